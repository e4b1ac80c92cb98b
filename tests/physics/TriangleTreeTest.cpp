#include "physics/TriangleTree.h"
#include "scene/FbxLoader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

// The tree over the shipped level, which is big enough to be built on two threads, loses no
// triangle and keeps the level's numbering (paint and collision rely on it): the box around
// triangle i finds triangle i.
TEST(TriangleTree, FindsEveryTriangleUnderItsOwnNumber)
{
    testing::internal::CaptureStdout();
    FbxLoader loader;
    loader.load(std::string(BLOTCH_SOURCE_DIR) + "/data/fbx/level.fbx");
    loader.convertNodes();
    testing::internal::GetCapturedStdout();
    const int triangles = loader.vertexCount / 3;
    ASSERT_GT(triangles, 10000);
    const float* vertices = loader.vertices.get();
    const TriangleTree tree(vertices, loader.vertexCount);

    std::vector<int> found;
    for (int t = 0; t < triangles; ++t)
    {
        const float* c = vertices + t * 12;
        const Vec3 min{std::min({c[0], c[4], c[8]}), std::min({c[1], c[5], c[9]}),
                       std::min({c[2], c[6], c[10]})};
        const Vec3 max{std::max({c[0], c[4], c[8]}), std::max({c[1], c[5], c[9]}),
                       std::max({c[2], c[6], c[10]})};
        tree.query(min, max, found);
        ASSERT_TRUE(std::binary_search(found.begin(), found.end(), t)) << "triangle " << t;
    }
}
