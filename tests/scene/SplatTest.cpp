#include "scene/Splat.h"
#include "physics/PhysicsWorld.h"
#include "scene/FbxLoader.h"
#include "scene/Level.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>

namespace
{
// A level made of triangles given as 9 floats each, with its collision tree.
std::unique_ptr<Level> levelOf(const std::vector<float>& triangles)
{
    const int count = static_cast<int>(triangles.size() / 3);
    auto vertices = std::make_unique<float[]>(count * 4);
    for (int i = 0; i < count; ++i)
    {
        for (int c = 0; c < 3; ++c)
        {
            vertices[i * 4 + c] = triangles[i * 3 + c];
        }
        vertices[i * 4 + 3] = 1.0f;
    }
    auto level = std::make_unique<Level>();
    level->setMesh(std::move(vertices), std::make_unique<float[]>(count * 3),
                   std::make_unique<float[]>(count * 2), count);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(level->buildPhysics());
    testing::internal::GetCapturedStderr();
    return level;
}

// A 20 x 20 floor at y = 0 made of 2 x 2 squares, facing up.
std::vector<float> tiledFloor()
{
    std::vector<float> t;
    for (int x = -10; x < 10; x += 2)
    {
        for (int z = -10; z < 10; z += 2)
        {
            const float a = x, b = x + 2, c = z, d = z + 2;
            t.insert(t.end(), {a, 0, c, a, 0, d, b, 0, d, a, 0, c, b, 0, d, b, 0, c});
        }
    }
    return t;
}

double area(const DecalPolygon& p)
{
    double sum = 0.0;
    for (size_t i = 1; i + 1 < p.size(); ++i)
    {
        const Vec3 e1{p[i].x - p[0].x, p[i].y - p[0].y, p[i].z - p[0].z};
        const Vec3 e2{p[i + 1].x - p[0].x, p[i + 1].y - p[0].y, p[i + 1].z - p[0].z};
        const Vec3 c = math::cross(e1, e2);
        sum += 0.5 * std::sqrt(math::dot(c, c));
    }
    return sum;
}

class SplatTest : public ::testing::Test
{
protected:
    void TearDown() override { PhysicsWorld::destroy(); }
};
} // namespace

TEST_F(SplatTest, AFloorHitCoversTheThreeMetreSquare)
{
    std::unique_ptr<Level> level = levelOf(tiledFloor());
    const Vec3 hit{0.3f, 0.0f, -0.7f};
    const std::list<DecalPolygon> polygons = level->cutSplat(hit, {0, 1, 0});
    ASSERT_FALSE(polygons.empty());
    double total = 0.0;
    for (const DecalPolygon& p : polygons)
    {
        total += area(p);
        for (const DecalVertex& c : p)
        {
            EXPECT_GE(c.u, 0.0f);
            EXPECT_LE(c.u, 1.0f);
            EXPECT_NEAR(c.z - hit.z, (c.u - 0.5f) * 3.0f, 1e-4f); // u runs along the tangent, +z
            EXPECT_LE(std::fabs(c.x - hit.x), 1.5f + 1e-4f);
            EXPECT_EQ(c.y, 0.0f);
        }
    }
    EXPECT_NEAR(total, 9.0, 1e-3) << "the pieces must cover the square exactly";

    // The corner of the texture that lands on the hit is its middle.
    for (const DecalPolygon& p : polygons)
    {
        for (const DecalVertex& c : p)
        {
            const float expectedV = 0.5f + math::dot({c.x - hit.x, 0, c.z - hit.z},
                                                     splat::frame(hit, {0, 1, 0}).bitangent) /
                                               3.0f;
            EXPECT_NEAR(c.v, expectedV, 1e-5f);
        }
    }
}

TEST_F(SplatTest, AHitNextToAWallPaintsBothAndNothingFacingAway)
{
    std::vector<float> scene = tiledFloor();
    // A wall facing +z at z = -1, and its back facing -z.
    scene.insert(scene.end(), {-5, 0, -1, 5, 0, -1, 5, 5, -1, -5, 0, -1, 5, 5, -1, -5, 5, -1});
    scene.insert(scene.end(), {-5, 0, -1.2f, 5, 5, -1.2f, 5, 0, -1.2f});
    std::unique_ptr<Level> level = levelOf(scene);
    // A hit whose normal points out between floor and wall paints both.
    const std::list<DecalPolygon> polygons = level->cutSplat({0, 0.2f, -0.8f}, {0, 1, 1});
    bool floor = false, wall = false;
    for (const DecalPolygon& p : polygons)
    {
        floor |= p[0].ny > 0.99f;
        wall |= p[0].nz > 0.99f;
        EXPECT_FALSE(p[0].nz < -0.5f) << "the wall's back faces away and gets no paint";
        for (const DecalVertex& c : p)
        {
            const float offPlane =
                math::dot({c.x, c.y - 0.2f, c.z + 0.8f}, math::normalize({0, 1, 1}));
            EXPECT_LE(std::fabs(offPlane), 0.5f + 1e-5f)
                << "paint reaches only 0.5 off the hit plane";
        }
    }
    EXPECT_TRUE(floor);
    EXPECT_TRUE(wall);

    EXPECT_TRUE(level->cutSplat({0, 0, 0}, {0, 0, 0}).empty()) << "a zero normal paints nothing";

    // Hitting the back of the wall from behind paints only the back.
    const std::list<DecalPolygon> back = level->cutSplat({0, 2, -1.2f}, {0, 0, -1});
    ASSERT_FALSE(back.empty());
    for (const DecalPolygon& p : back)
    {
        EXPECT_LT(p[0].nz, -0.99f);
    }
}

TEST_F(SplatTest, TheTreeFindsExactlyWhatAScanFinds)
{
    testing::internal::CaptureStdout();
    FbxLoader loader;
    loader.load(std::string(BLOTCH_SOURCE_DIR) + "/data/fbx/level.fbx");
    loader.convertNodes();
    testing::internal::GetCapturedStdout();
    ASSERT_GT(loader.vertexCount, 3000);
    const int count = loader.vertexCount;
    const std::vector<float> copy(loader.vertices.get(), loader.vertices.get() + count * 4);
    auto level = std::make_unique<Level>();
    level->setMesh(std::move(loader.vertices), std::move(loader.normals), std::move(loader.uvs),
                   count);
    level->startPhysics(); // as the game builds it: the tree on a second thread
    testing::internal::CaptureStderr();
    ASSERT_TRUE(level->buildPhysics());
    testing::internal::GetCapturedStderr();

    std::mt19937 random(2024);
    std::uniform_int_distribution<int> pick(0, count / 3 - 1);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    int painted = 0;
    for (int i = 0; i < 400; ++i)
    {
        // A random point on a random triangle, hit along the triangle's own normal.
        const float* v = copy.data() + pick(random) * 12;
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
