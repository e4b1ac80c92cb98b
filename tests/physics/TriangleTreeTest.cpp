// SPDX-License-Identifier: MIT
#include "physics/TriangleTree.h"
#include "scene/Level.h"
#include "support/Fixtures.h"
#include "support/TestLevel.h"

#include <algorithm>
#include <vector>

// The tree over the shipped level, which is big enough to be built on two threads, loses no
// triangle and keeps the level's numbering (paint and collision rely on it): the box around
// triangle i finds triangle i.
TEST_ON(RegistryTest, TriangleTree, FindsEveryTriangleUnderItsOwnNumber)
{
    const auto level = shippedLevel();
    const int triangles = level->getVertexCount() / 3;
    ASSERT_GT(triangles, 10000);
    const float* vertices = level->getVertices();
    const TriangleTree tree(vertices, level->getVertexCount());

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
