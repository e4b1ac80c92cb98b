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

} // namespace splat
