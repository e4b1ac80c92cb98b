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

namespace
{
// A WIDTH x HEIGHT picture, clear but for the texels PAINTED.
std::vector<unsigned char> pictureWith(int width, int height,
                                       const std::vector<std::pair<int, int>>& painted)
{
    std::vector<unsigned char> rgba(size_t(width) * height * 4, 255);
    for (size_t i = 3; i < rgba.size(); i += 4)
    {
        rgba[i] = 0;
    }
    for (const auto& [x, y] : painted)
    {
        rgba[(size_t(y) * width + x) * 4 + 3] = 40;
    }
    return rgba;
}

// The picture's square cut into an 8 x 8 grid of pieces, each two triangles' worth, lying in the
// plane z = 2 with x = 3u, y = 3v.
std::list<DecalPolygon> squarePieces()
{
    std::list<DecalPolygon> pieces;
    for (int j = 0; j < 8; ++j)
    {
        for (int i = 0; i < 8; ++i)
        {
            DecalPolygon p;
            for (const auto& [du, dv] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}})
            {
                const float u = (i + du) / 8.0f, v = (j + dv) / 8.0f;
                p.push_back({3 * u, 3 * v, 2, 0, 0, 1, u, v});
            }
            pieces.push_back(p);
        }
    }
    return pieces;
}

bool inside(const std::list<DecalPolygon>& pieces, float u, float v)
{
    for (const DecalPolygon& p : pieces)
    {
        bool in = true;
        for (size_t i = 0; i < p.size() && in; ++i)
        {
            const DecalVertex& a = p[i];
            const DecalVertex& b = p[(i + 1) % p.size()];
            in = (b.u - a.u) * (v - a.v) - (b.v - a.v) * (u - a.u) >= -1e-6f;
        }
        if (in)
        {
            return true;
        }
    }
    return false;
}

double areaOnPicture(const std::list<DecalPolygon>& pieces)
{
    double total = 0.0;
    for (const DecalPolygon& p : pieces)
    {
        for (size_t i = 0; i < p.size(); ++i)
        {
            const DecalVertex& a = p[i];
            const DecalVertex& b = p[(i + 1) % p.size()];
            total += 0.5 * (double(a.u) * b.v - double(b.u) * a.v);
        }
    }
    return total;
}
} // namespace

TEST(Outline, TrimmedPaintKeepsEveryPointThePictureCanColour)
{
    const int size = 64;
    const float reach = 3.0f;
    // A blob in the middle, a speck at the left edge (which the picture repeats on the right)
    // and one near the top right corner.
    std::vector<std::pair<int, int>> painted{{0, 20}, {57, 58}};
    for (int y = 24; y < 36; ++y)
    {
        for (int x = 26; x < 40; ++x)
        {
            painted.push_back({x, y});
        }
    }
    const std::vector<unsigned char> rgba = pictureWith(size, size, painted);
    const splat::Outline outline = splat::outline(rgba.data(), size, size, reach);
    std::list<DecalPolygon> pieces = squarePieces();
    splat::trim(pieces, outline);

    auto couldColour = [&](float u, float v) {
        for (const auto& [x, y] : painted)
        {
            for (int repeat = -1; repeat <= 1; ++repeat)
            {
                const float tx = u * size - repeat * size, ty = v * size;
                if (tx >= x - reach && tx <= x + 1 + reach && ty >= y - reach &&
                    ty <= y + 1 + reach)
                {
                    return true;
                }
            }
        }
        return false;
    };
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    int checked = 0;
    for (int i = 0; i < 20000; ++i)
    {
        const float u = unit(random), v = unit(random);
        if (couldColour(u, v))
        {
            ++checked;
            ASSERT_TRUE(inside(pieces, u, v)) << "paint left out at " << u << ", " << v;
        }
    }
    EXPECT_GT(checked, 1000);
    // The speck on the left shows again on the right, so the octagon spans the picture; it
    // still leaves out the clear corners.
    EXPECT_LT(areaOnPicture(pieces), 0.9);
    EXPECT_FALSE(inside(pieces, 0.02f, 0.98f));

    for (const DecalPolygon& p : pieces)
    {
        ASSERT_GE(p.size(), 3u);
        for (const DecalVertex& c : p)
        {
            // Corners made by the cut lie where the picture puts them on the plane.
            EXPECT_NEAR(c.x, 3 * c.u, 1e-4f);
            EXPECT_NEAR(c.y, 3 * c.v, 1e-4f);
            EXPECT_EQ(c.z, 2.0f);
            EXPECT_EQ(c.nz, 1.0f);
        }
    }
}

TEST(Outline, AFewTexelsOfPaintKeepLittleOfTheSquareAndAClearPictureNone)
{
    const std::vector<unsigned char> speck = pictureWith(64, 64, {{31, 31}, {32, 32}});
    std::list<DecalPolygon> pieces = squarePieces();
    splat::trim(pieces, splat::outline(speck.data(), 64, 64, 2.0f));
    // Two texels and two either side: an octagon inside 6 x 6 texels of 64 x 64.
    EXPECT_GT(areaOnPicture(pieces), 3.0 * 3.0 / (64 * 64));
    EXPECT_LT(areaOnPicture(pieces), 6.0 * 6.0 / (64 * 64));
    EXPECT_TRUE(inside(pieces, 32.0f / 64, 32.0f / 64));

    const std::vector<unsigned char> clear = pictureWith(64, 64, {});
    pieces = squarePieces();
    splat::trim(pieces, splat::outline(clear.data(), 64, 64, 2.0f));
    EXPECT_TRUE(pieces.empty());
}

TEST(Outline, TheCoreHoldsOnlyPointsWhereEveryTexelWithinReachIsOpaque)
{
    const int size = 64;
    const float reach = 2.0f;
    // An opaque disc with a soft rim, a translucent texel inside it near the rim, and an opaque
    // band across the left and right edges (the picture repeats there).
    std::vector<unsigned char> rgba = pictureWith(size, size, {});
    for (int y = 0; y < size; ++y)
    {
        for (int x = 0; x < size; ++x)
        {
            const float d = std::hypot(x + 0.5f - 30.0f, y + 0.5f - 34.0f);
            unsigned char& alpha = rgba[(size_t(y) * size + x) * 4 + 3];
            alpha = d < 18.0f ? 255 : d < 21.0f ? 128 : 0;
            if ((x < 3 || x >= 61) && y >= 4 && y < 12)
            {
                alpha = 255;
            }
        }
    }
    rgba[(size_t(34) * size + 42) * 4 + 3] = 254;
    const splat::Outline core = splat::core(rgba.data(), size, size, reach);
    ASSERT_FALSE(core.empty);
    std::list<DecalPolygon> pieces = squarePieces();
    splat::trim(pieces, core);

    // Every texel a filter reads within REACH of a point of the core is opaque.
    auto opaqueAround = [&](float u, float v) {
        const float tx = u * size, ty = v * size;
        for (int y = int(std::floor(ty - reach - 0.5f)); y <= int(std::floor(ty + reach)); ++y)
        {
            for (int x = int(std::floor(tx - reach - 0.5f)); x <= int(std::floor(tx + reach)); ++x)
            {
                const int sx = (x % size + size) % size, sy = (y % size + size) % size;
                if (rgba[(size_t(sy) * size + sx) * 4 + 3] != 255)
                {
                    return false;
                }
            }
        }
        return true;
    };
    std::mt19937 random(5);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    int checked = 0;
    for (int i = 0; i < 40000; ++i)
    {
        const float u = unit(random), v = unit(random);
        if (inside(pieces, u, v))
        {
            ++checked;
            ASSERT_TRUE(opaqueAround(u, v)) << "a core point with clear texels near " << u << ", "
                                            << v;
        }
    }
    EXPECT_GT(checked, 1000);
    // An octagon in a disc of radius 18 - 3 (the reach and a texel) has at most 2.83 x 15^2
    // texels; the core keeps a good part of that even beside the translucent texel.
    const double area = areaOnPicture(pieces) * size * size;
    EXPECT_GT(area, 0.4 * 2.83 * 15 * 15);
    EXPECT_LT(area, 2.83 * 15 * 15);

    // Opaque all over: all of it. Nothing fully opaque: nothing.
    const std::vector<unsigned char> full(size_t(size) * size * 4, 255);
    pieces = squarePieces();
    splat::trim(pieces, splat::core(full.data(), size, size, reach));
    EXPECT_NEAR(areaOnPicture(pieces), 1.0, 1e-6);
    std::vector<unsigned char> almost(size_t(size) * size * 4, 254);
    EXPECT_TRUE(splat::core(almost.data(), size, size, reach).empty);
}
