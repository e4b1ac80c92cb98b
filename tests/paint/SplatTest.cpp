// SPDX-License-Identifier: MIT
#include "scene/Level.h"
#include "support/Fixtures.h"
#include "support/TestLevel.h"

#include <cmath>
#include <random>

TEST_ON(RegistryTest, Level, ASplatOnTheFloorCoversTheThreeMetreSquareWithItsPicture)
{
    // A 20 x 20 floor of 1 m squares at y = 0, facing up.
    const auto level = levelOf(tiles({-10, 0, -10}, {0, 0, 20}, {20, 0, 0}));
    const Vec3 hit{0.3f, 0.0f, -0.7f};
    const Vec3 bitangent = splat::frame(hit, {0, 1, 0}).bitangent;
    double total = 0.0;
    for (const DecalPolygon& p : level->cutSplat(hit, {0, 1, 0}))
    {
        total += areaOf(p, {0, 1, 0});
        for (const DecalVertex& c : p)
        {
            EXPECT_LE(std::fabs(c.x - hit.x), 1.5f + 1e-4f);
            EXPECT_EQ(c.y, 0.0f);
            // The middle of the picture lands on the hit; u runs along the tangent, +z.
            EXPECT_NEAR(c.z - hit.z, (c.u - 0.5f) * 3.0f, 1e-4f);
            EXPECT_NEAR(c.v, 0.5f + math::dot({c.x - hit.x, 0, c.z - hit.z}, bitangent) / 3.0f,
                        1e-5f);
        }
    }
    EXPECT_NEAR(total, 9.0, 1e-3) << "the pieces must cover the square exactly";
}

TEST_ON(RegistryTest, Level, ASplatPaintsOnlyFacesTurnedTowardsTheHit)
{
    // A wall facing +z at z = -1 on the floor, and behind it a face turned the other way.
    const auto level = levelOf(tiles({-10, 0, -10}, {0, 0, 20}, {20, 0, 0}) + wallAt(-1.0f) +
                               quad({-5, 0, -1.2f}, {-5, 5, -1.2f}, {5, 5, -1.2f}, {5, 0, -1.2f}));
    // A hit whose normal points out between floor and wall paints both, up to 0.5 off its plane.
    const Vec3 normal = math::normalize({0, 1, 1});
    bool floor = false, wall = false;
    for (const DecalPolygon& p : level->cutSplat({0, 0.2f, -0.8f}, normal))
    {
        floor |= p[0].ny > 0.99f;
        wall |= p[0].nz > 0.99f;
        EXPECT_GT(p[0].nz, -0.5f) << "the back faces away and gets no paint";
        for (const DecalVertex& c : p)
        {
            EXPECT_LE(std::fabs(math::dot({c.x, c.y - 0.2f, c.z + 0.8f}, normal)), 0.5f + 1e-5f);
        }
    }
    EXPECT_TRUE(floor && wall);

    // Hitting the back from behind paints only the back.
    const std::list<DecalPolygon> back = level->cutSplat({0, 2, -1.2f}, {0, 0, -1});
    ASSERT_FALSE(back.empty());
    for (const DecalPolygon& p : back)
    {
        EXPECT_LT(p[0].nz, -0.99f);
    }
    EXPECT_TRUE(level->cutSplat({0, 0, 0}, {0, 0, 0}).empty()) << "a zero normal paints nothing";
}

TEST_ON(RegistryTest, Level, TheTreeFindsExactlyWhatAScanFinds)
{
    const auto level = shippedLevel();
    const int count = level->getVertexCount();
    ASSERT_GT(count, 3000);

    std::mt19937 random(2024);
    std::uniform_int_distribution<int> pick(0, count / 3 - 1);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    int painted = 0;
    for (int i = 0; i < 400; ++i)
    {
        // A random point on a random triangle, hit along the triangle's own normal.
        const float* v = level->getVertices() + pick(random) * 12;
        float a = unit(random), b = unit(random);
        if (a + b > 1.0f)
        {
            a = 1.0f - a;
            b = 1.0f - b;
        }
        const Vec3 p{v[0] + a * (v[4] - v[0]) + b * (v[8] - v[0]),
                     v[1] + a * (v[5] - v[1]) + b * (v[9] - v[1]),
                     v[2] + a * (v[6] - v[2]) + b * (v[10] - v[2])};
        const Vec3 n = math::cross({v[4] - v[0], v[5] - v[1], v[6] - v[2]},
                                   {v[8] - v[0], v[9] - v[1], v[10] - v[2]});
        if (math::dot(n, n) < 1e-12f)
        {
            continue;
        }
        const std::list<DecalPolygon> fromTree = level->cutSplat(p, n, true);
        const std::list<DecalPolygon> fromScan = level->cutSplat(p, n, false);
        ASSERT_EQ(fromTree.size(), fromScan.size()) << "hit " << i;
        auto t = fromTree.begin();
        for (const DecalPolygon& s : fromScan)
        {
            ASSERT_EQ(t->size(), s.size());
            for (size_t k = 0; k < s.size(); ++k)
            {
                ASSERT_EQ((*t)[k].x, s[k].x);
                ASSERT_EQ((*t)[k].z, s[k].z);
                ASSERT_EQ((*t)[k].u, s[k].u);
            }
            ++t;
        }
        painted += !fromScan.empty();
    }
    EXPECT_GT(painted, 300);
}
