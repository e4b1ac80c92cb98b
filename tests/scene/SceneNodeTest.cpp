#include "scene/SceneNode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace
{
// Records its own destruction and updates.
class Probe : public SceneNode
{
public:
    Probe(int id, std::vector<int>& deaths, std::vector<int>& updates)
        : id(id), deaths(deaths), updates(updates)
    {
    }
    ~Probe() override { deaths.push_back(id); }
    void update(float dt) override
    {
        updates.push_back(id);
        SceneNode::update(dt);
    }

private:
    int id;
    std::vector<int>& deaths;
    std::vector<int>& updates;
};
} // namespace

TEST(SceneNode, OwnsItsChildrenAndVisitsThemInOrder)
{
    std::vector<int> deaths, updates;
    auto root = std::make_unique<SceneNode>();
    SceneNode* a = root->addChild(std::make_unique<Probe>(1, deaths, updates));
    a->addChild(std::make_unique<Probe>(2, deaths, updates));
    SceneNode* c = a->addChild(std::make_unique<Probe>(3, deaths, updates));
    c->addChild(std::make_unique<Probe>(4, deaths, updates));
    root->addChild(std::make_unique<Probe>(5, deaths, updates));

    root->update(0.016f);
    EXPECT_EQ(updates, (std::vector<int>{1, 2, 3, 4, 5})); // a node before its children

    root.reset();
    std::vector<int> sorted = deaths;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<int>{1, 2, 3, 4, 5})); // every descendant exactly once
}
