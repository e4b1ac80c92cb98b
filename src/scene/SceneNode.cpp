// SPDX-License-Identifier: MIT
#include "scene/SceneNode.h"

void SceneNode::update(float dt)
{
    for (auto& child : children)
    {
        child->update(dt);
    }
}

void SceneNode::draw(Shader* shader)
{
    for (auto& child : children)
    {
        child->draw(shader);
    }
}

SceneNode* SceneNode::addChild(std::unique_ptr<SceneNode> child)
{
    children.push_back(std::move(child));
    return children.back().get();
}
