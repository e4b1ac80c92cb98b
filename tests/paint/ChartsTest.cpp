// SPDX-License-Identifier: MIT
#include "paint/Charts.h"
#include "paint/PaintMap.h"
#include "scene/Level.h"
#include "support/TestLevel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace
{
// The level's triangles as the level keeps them: x, y, z, 1 per vertex.
std::vector<float> verticesOf(const Triangles& triangles)
{
    std::vector<float> v;
    for (size_t i = 0; i < triangles.size(); i += 3)
    {
        v.insert(v.end(), {triangles[i], triangles[i + 1], triangles[i + 2], 1.0f});
    }
    return v;
}

Charts chartsOf(const std::vector<float>& vertices, double budget = 1e9)
{
    return Charts(vertices.data(), int32_t(vertices.size() / 4), budget, PaintMap::PAYLOAD);
}

bool overlap(const Chart& a, const Chart& b)
{
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height &&
           b.y < a.y + a.height;
}

// Every rectangle inside paint-map space, on the grid, none over another; every vertex inside its
// chart's rectangle, the gutter clear; and back from paint-map space onto the vertex.
void expectSoundLayout(const Charts& charts, const float* vertices, int32_t count)
{
    ASSERT_GT(charts.size(), 0u);
    for (size_t i = 0; i < charts.size(); ++i)
    {
        const Chart& c = charts[i];
        EXPECT_EQ(c.x % Charts::ALIGN, 0);
        EXPECT_EQ(c.width % Charts::ALIGN, 0);
        EXPECT_GE(c.x, 0);
        EXPECT_GE(c.y, 0);
        EXPECT_LE(c.x + c.width, charts.getWidth());
        EXPECT_LE(c.y + c.height, charts.getHeight());
    }
    // Sorted by x, only neighbours within the widest chart need comparing.
    std::vector<size_t> order(charts.size());
    for (size_t i = 0; i < order.size(); ++i)
    {
        order[i] = i;
    }
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return charts[a].x < charts[b].x; });
    size_t overlaps = 0;
    for (size_t i = 0; i < order.size(); ++i)
    {
        for (size_t j = i + 1; j < order.size() && charts[order[j]].x < charts[order[i]].x + charts[order[i]].width; ++j)
        {
            overlaps += overlap(charts[order[i]], charts[order[j]]) ? 1 : 0;
        }
    }
    EXPECT_EQ(overlaps, 0u);

    const std::vector<float>& coords = charts.getCoords();
    ASSERT_EQ(coords.size(), size_t(count) * 2);
    const float margin = Charts::GUTTER - 0.01f;
    for (int32_t i = 0; i < count; ++i)
    {
        const Chart& c = charts[charts.chartOf(i / 3)];
        const float u = coords[size_t(i) * 2], v = coords[size_t(i) * 2 + 1];
        ASSERT_GE(u, c.x + margin) << "vertex " << i;
        ASSERT_LE(u, c.x + c.width - margin) << "vertex " << i;
        ASSERT_GE(v, c.y + margin) << "vertex " << i;
        ASSERT_LE(v, c.y + c.height - margin) << "vertex " << i;
        const Vec3 back = charts.toWorld(c, u, v);
        const float* p = vertices + size_t(i) * 4;
        ASSERT_NEAR(back.x, p[0], 2e-3f) << "vertex " << i;
        ASSERT_NEAR(back.y, p[1], 2e-3f) << "vertex " << i;
        ASSERT_NEAR(back.z, p[2], 2e-3f) << "vertex " << i;
    }
}
} // namespace

TEST(Charts, CoplanarNeighboursShareAChartAndEverythingElseGetsItsOwn)
{
    // A floor of 4 x 4 tiles, a wall on it, a second floor at the same height that touches the
    // first nowhere, and a tilted quad.
    const Triangles level = tiles({-2, 0, -2}, {0, 0, 4}, {4, 0, 0}) +
                            wallAt(-10.0f) + tiles({10, 0, -2}, {0, 0, 2}, {2, 0, 0}) +
                            quad({0, 1, 5}, {1, 1, 5}, {1, 2, 6}, {0, 2, 6});
    const std::vector<float> v = verticesOf(level);
    const Charts charts = chartsOf(v);
    const int floorTriangles = 32, wallTriangles = int(wallAt(-10.0f).size() / 9);
    for (int t = 1; t < floorTriangles; ++t)
    {
        EXPECT_EQ(charts.chartOf(t), charts.chartOf(0)) << "floor triangle " << t;
    }
    const int wall = floorTriangles;
    EXPECT_NE(charts.chartOf(wall), charts.chartOf(0));
    const int island = wall + wallTriangles;
    EXPECT_NE(charts.chartOf(island), charts.chartOf(0)) << "apart, though in the same plane";
    EXPECT_EQ(charts.chartOf(island + 7), charts.chartOf(island));
    EXPECT_EQ(charts.size(), 4u);
    // The floor's chart lies flat: 4 m across at the density, plus its gutters.
    const Chart& floor = charts[charts.chartOf(0)];
    EXPECT_NEAR(floor.normal.y, 1.0f, 1e-6f);
    EXPECT_GE(floor.width, int(4.0f * charts.getDensity()) + 2 * Charts::GUTTER);
    EXPECT_NEAR(charts.getArea(), 16.0 + 100.0 * 40.0 + 4.0 + std::sqrt(2.0), 1e-3);
    expectSoundLayout(charts, v.data(), int32_t(v.size() / 4));
}

TEST(Charts, AChartTurnedInItsPlaneIsLaidAlongItsOwnEdges)
{
    // A 4 m square floor turned 30 degrees about the vertical, and a 2 x 6 m wall strip turned as
    // much about its normal, each cut into triangles along a diagonal: along the world's axes
    // their rectangles would be 1.87 and 1.6 times larger.
    const float c = std::cos(float(M_PI) / 6.0f), s = std::sin(float(M_PI) / 6.0f);
    const auto floorCorner = [&](float x, float z) {
        return Vec3{c * x - s * z, 0.0f, s * x + c * z};
    };
    const auto wallCorner = [&](float x, float y) {
        return Vec3{c * x - s * y, 20.0f + s * x + c * y, 30.0f};
    };
    const Triangles level =
        quad(floorCorner(0, 0), floorCorner(0, 4), floorCorner(4, 4), floorCorner(4, 0)) +
        quad(wallCorner(0, 0), wallCorner(6, 0), wallCorner(6, 2), wallCorner(0, 2));
    const std::vector<float> v = verticesOf(level);
    const Charts charts = chartsOf(v);
    ASSERT_EQ(charts.size(), 2u);
    const float texels = charts.getDensity();
    const auto expectTight = [&](const Chart& chart, float a, float b)
    {
        const float area =
            float(chart.width - 2 * Charts::GUTTER) * float(chart.height - 2 * Charts::GUTTER);
        EXPECT_LT(area, (a * texels + Charts::ALIGN) * (b * texels + Charts::ALIGN));
        EXPECT_GE(area, a * b * texels * texels * 0.99f);
    };
    expectTight(charts[charts.chartOf(0)], 4.0f, 4.0f);
    expectTight(charts[charts.chartOf(2)], 6.0f, 2.0f);
    expectSoundLayout(charts, v.data(), int32_t(v.size() / 4));
}

TEST(Charts, TheDensityIsTheFinestThatFitsTheBudget)
{
    const std::vector<float> v = verticesOf(floorAt(0.0f, 50.0f)); // 100 x 100 m
    const Charts fine = chartsOf(v);
    EXPECT_FLOAT_EQ(fine.getDensity(), Charts::MAX_DENSITY);
    const double budget = 2000.0 * 2000.0;
    const Charts coarse = chartsOf(v, budget);
    EXPECT_LT(coarse.getDensity(), 20.0f);
    EXPECT_GT(coarse.getDensity(), 18.0f); // 2000 texels over 100 m, less the slack
    EXPECT_LE(double(coarse[0].width) * coarse[0].height, budget);
    EXPECT_EQ(coarse.getWidth() % PaintMap::PAYLOAD, 0);
}

TEST(Charts, DegenerateAndBrokenTrianglesStillGetARectangle)
{
    Triangles level = floorAt(0.0f, 2.0f);
    level.insert(level.end(), {1, 1, 1, 1, 1, 1, 1, 1, 1});             // a point
    level.insert(level.end(), {0, 0, 0, NAN, 0, 0, 0, INFINITY, 0}); // not finite
    const std::vector<float> v = verticesOf(level);
    const Charts charts = chartsOf(v);
    EXPECT_EQ(charts.size(), 3u);
    EXPECT_GT(charts.getWidth(), 0);
    EXPECT_NEAR(charts.getArea(), 16.0, 1e-6);
}

TEST(Charts, TheShippedLevelLaysOutWithoutOverlapAtAUsefulDensity)
{
    const std::unique_ptr<Level> level = shippedLevel();
    ASSERT_TRUE(level);
    const Charts& charts = level->getCharts(); // laid out as the game lays it out
    EXPECT_GE(charts.getDensity(), 48.0f);
    EXPECT_LT(charts.size(), size_t(level->getVertexCount() / 3));
    expectSoundLayout(charts, level->getVertices(), level->getVertexCount());
}
