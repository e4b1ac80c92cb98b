// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

#include <list>
#include <vector>

// One corner of a paint polygon.
struct DecalVertex
{
    float x, y, z;    // level (world) coordinates
    float nx, ny, nz; // the surface's normal, carried along
    float u, v;       // 0..1 across the splat
    float unused = 0.0f;
};

// A convex polygon in fan order.
using DecalPolygon = std::vector<DecalVertex>;

// Where a splat is cut: centred on the hit POINT, 3 x 3 across and 1 deep along NORMAL, with
// its texture running along TANGENT and BITANGENT.
struct SplatFrame
{
    Vec3 point;
    Vec3 normal;
    Vec3 tangent;
    Vec3 bitangent;
};

namespace splat
{
constexpr float HALF_SIZE = 1.5f;           // half the splat's side
constexpr float HALF_DEPTH = 0.5f;          // how far off the hit plane paint still lands
constexpr float MIN_FACING = 1.0f / 128.0f; // surfaces turned further away get no paint

// The frame for a hit at POINT on a surface facing NORMAL (any length). The tangent is the
// normal turned a quarter about x; for normals with an x part that is not quite perpendicular, so
// splats on such surfaces come out a little skewed. That is how our paint has always looked.
SplatFrame frame(const Vec3& point, const Vec3& normal);
// The axis-aligned box around the splat's block.
void box(const SplatFrame& frame, Vec3& min, Vec3& max);
// Cuts triangle TRIANGLE of VERTICES (x, y, z, w per vertex, three vertices per triangle) to the
// splat's block. Appends the piece to OUT and returns true when the triangle faces the hit and
// something of it lies inside.
bool cutTriangle(const SplatFrame& frame, const float* vertices, int triangle,
                 std::list<DecalPolygon>& out);
// The box around every corner of POLYGONS.
void bounds(const std::list<DecalPolygon>& polygons, Vec3& min, Vec3& max);

// Where a splat picture can colour anything: an octagon on the picture (0..1 across) around all
// its texels that are not clear, widened by REACH texels. Outside it, every texel a filter reads
// within REACH of the point is clear, so paint there draws nothing.
struct Outline
{
    static constexpr int SIDES = 8;
    // Side k keeps the points (u, v) with dot((u, v) - (0.5, 0.5), direction k) <= limits[k],
    // the directions 45 degrees apart from +u. The whole picture to begin with.
    float limits[SIDES] = {1, 1, 1, 1, 1, 1, 1, 1};
    bool empty = false; // a picture clear all over
};

// The outline of a WIDTH x HEIGHT picture (four bytes a pixel, alpha last). The picture repeats
// beyond its edges, as the filters see it.
Outline outline(const unsigned char* rgba, int width, int height, float reach);
// Where a splat picture covers whatever lies under it: an octagon on the picture inside which
// every texel a filter reads within REACH texels of a point is fully opaque. Empty when the
// picture has no such place.
Outline core(const unsigned char* rgba, int width, int height, float reach);
// Cuts POLYGONS (carrying picture coordinates) to OUTLINE, dropping what lies outside it.
void trim(std::list<DecalPolygon>& polygons, const Outline& outline);
} // namespace splat
