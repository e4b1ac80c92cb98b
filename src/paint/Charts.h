// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// A set of level triangles that lie in one plane and share edges, laid flat on that plane and
// given a rectangle of paint-map space. Paint-map space is measured in texels of the finest level
// of the paint map; a chart's rectangle holds its triangles' projection plus a gutter on every
// side, so filtering at a chart's edge never reads another chart's paint.
struct Chart
{
    Vec3 axisU;        // unit, in the plane
    Vec3 axisV;        // unit, in the plane, axisU x axisV = normal
    Vec3 normal;       // unit, the way the triangles face
    float offset = 0;  // dot(normal, p) on the plane
    float minU = 0;    // the lowest dot(axisU, p) over the chart's corners, metres
    float minV = 0;
    int x = 0, y = 0;  // the rectangle in paint-map texels, gutter included
    int width = 0, height = 0;
};

// Where every triangle of a level lies in paint-map space. Built once per match from the level's
// triangle list; knows nothing of GL.
class Charts
{
public:
    // Texels of gutter on each side of a chart (what bilinear filtering of the paint map's two
    // levels reads past a triangle's edge), and the grid every rectangle keeps to: the coarser
    // level is half the finer, so no texel of it straddles two charts.
    static constexpr int GUTTER = 2;
    static constexpr int ALIGN = 2;
    // Densities a level may be given, texels per metre: the splat pictures are 256 texels over
    // 3 m, so finer buys nothing.
    static constexpr float MAX_DENSITY = 256.0f / 3.0f;
    static constexpr float MIN_DENSITY = 2.0f;

    Charts() = default;
    // Lays out the COUNT vertices of VERTICES (x, y, z, w each; three a triangle) at the finest
    // density whose rectangles fit in about BUDGET texels, rows WIDTH_MULTIPLE texels wide at
    // least (the paint map's page payload), each row a whole number of them wide.
    Charts(const float* vertices, int32_t count, double budget, int widthMultiple);

    float getDensity() const { return density; }
    int getWidth() const { return width; }   // of the whole paint-map space, texels
    int getHeight() const { return height; }
    double getArea() const { return area; } // of every triangle, square metres
    size_t size() const { return charts.size(); }
    const Chart& operator[](size_t i) const { return charts[i]; }
    uint32_t chartOf(int triangle) const { return triangleChart[size_t(triangle)]; }
    // The triangles of chart C.
    const uint32_t* trianglesOf(size_t c, size_t& count) const;
    // Paint-map texels for each vertex (u, v pairs), in the order of the level's vertices.
    const std::vector<float>& getCoords() const { return coords; }
    // Where point P of chart C's plane lies in paint-map space, and back.
    void toMap(const Chart& c, const Vec3& p, float& u, float& v) const;
    Vec3 toWorld(const Chart& c, float u, float v) const;
    // The charts whose rectangles overlap the paint-map rectangle [X0, X1) x [Y0, Y1), each once.
    void chartsIn(int x0, int y0, int x1, int y1, std::vector<uint32_t>& out) const;
    // Whether any chart reaches into square (CX, CY) of the grid of WIDTH_MULTIPLE texels.
    bool cellUsed(int cx, int cy) const
    {
        const size_t cell = size_t(cy) * size_t(cellsAcross) + size_t(cx);
        return cellFirst[cell + 1] > cellFirst[cell];
    }

private:
    void group(const float* vertices, int32_t count);
    void chooseDensity(double budget);
    void pack(int widthMultiple);

    float density = 0.0f;
    int width = 0;
    int height = 0;
    double area = 0.0;
    std::vector<Chart> charts;
    std::vector<uint32_t> triangleChart;
    std::vector<uint32_t> chartTriangles; // grouped by chart
    std::vector<uint32_t> chartFirst;     // chart c's are chartFirst[c]..chartFirst[c + 1]
    std::vector<float> coords;
    // Chart extents in metres on their own axes, before the density is known.
    std::vector<float> spanU, spanV;
    // A coarse grid over paint-map space: for each cell the charts that overlap it.
    int cellSize = 1;
    int cellsAcross = 0;
    std::vector<uint32_t> cellFirst;
    std::vector<uint32_t> cellCharts;
};
