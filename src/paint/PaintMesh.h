// SPDX-License-Identifier: MIT
#pragma once

#include "paint/Charts.h"

#include <cstdint>
#include <vector>

// The level's triangles as they are drawn: cut along the edges of the paint map's pages, so that
// each lies in one page. A vertex then finds its page once and the pixels between read the paint
// straight from it, without looking the page up again for every pixel. The level's own triangle
// list (which physics and paint cutting read) is left as it is.
struct PaintMesh
{
    std::vector<float> vertices; // x, y, z per vertex; three vertices a triangle
    std::vector<float> normals;  // x, y, z per vertex
    // Per vertex: where it lies in its page (paint-map texels from the page's corner) and the
    // page's column and row.
    std::vector<float> paint;
    int32_t count = 0; // vertices

    // Cuts the COUNT vertices of VERTICES and NORMALS, laid out in CHARTS, at every multiple of
    // PAGE texels of paint-map space.
    static PaintMesh build(const float* vertices, const float* normals, int32_t count,
                           const Charts& charts, int page);
};
