// SPDX-License-Identifier: MIT
#include "paint/PaintMesh.h"

#include <algorithm>
#include <cmath>

namespace
{
// A corner while a triangle is cut: position, normal and paint-map texels.
struct Corner
{
    float p[3];
    float n[3];
    float u, v;
};

// A triangle cut by the lines of one page column and one page row has at most seven corners;
// cut by two lines on each axis, a few more.
using Polygon = std::vector<Corner>;

Corner mix(const Corner& a, const Corner& b, float t)
{
    Corner c;
    for (int k = 0; k < 3; ++k)
    {
        c.p[k] = a.p[k] + (b.p[k] - a.p[k]) * t;
        c.n[k] = a.n[k];
    }
    c.u = a.u + (b.u - a.u) * t;
    c.v = a.v + (b.v - a.v) * t;
    return c;
}

// Keeps the part of IN where SIDE * (coordinate AXIS (0 u, 1 v) - LIMIT) <= 0.
void clip(const Polygon& in, Polygon& out, int axis, float limit, float side)
{
    out.clear();
    const size_t n = in.size();
    for (size_t i = 0; i < n; ++i)
    {
        const Corner& a = in[i];
        const Corner& b = in[(i + 1) % n];
        const float da = side * ((axis == 0 ? a.u : a.v) - limit);
        const float db = side * ((axis == 0 ? b.u : b.v) - limit);
        if (da <= 0.0f)
        {
            out.push_back(a);
        }
        if ((da <= 0.0f) != (db <= 0.0f))
        {
            out.push_back(mix(a, b, da / (da - db)));
        }
    }
}
} // namespace

PaintMesh PaintMesh::build(const float* vertices, const float* normals, int32_t count,
                           const Charts& charts, int page)
{
    PaintMesh mesh;
    const std::vector<float>& coords = charts.getCoords();
    const int32_t triangles = count / 3;
    mesh.vertices.reserve(size_t(count) * 3);
    mesh.normals.reserve(size_t(count) * 3);
    mesh.paint.reserve(size_t(count) * 4);
    const float size = float(page);
    auto emit = [&](const Corner& c, int px, int py)
    {
        for (int k = 0; k < 3; ++k)
        {
            mesh.vertices.push_back(c.p[k]);
            mesh.normals.push_back(c.n[k]);
        }
        mesh.paint.push_back(c.u - float(px) * size);
        mesh.paint.push_back(c.v - float(py) * size);
        mesh.paint.push_back(float(px));
        mesh.paint.push_back(float(py));
    };
    Polygon piece, column, cut, scratch;
    for (int32_t t = 0; t < triangles; ++t)
    {
        Corner corners[3];
        float minU = INFINITY, minV = INFINITY, maxU = -INFINITY, maxV = -INFINITY;
        for (int k = 0; k < 3; ++k)
        {
            const size_t i = size_t(t) * 3 + size_t(k);
            Corner& c = corners[k];
            for (int a = 0; a < 3; ++a)
            {
                c.p[a] = vertices[i * 4 + size_t(a)];
                c.n[a] = normals ? normals[i * 3 + size_t(a)] : 0.0f;
            }
            c.u = coords.size() > i * 2 + 1 ? coords[i * 2] : 0.0f;
            c.v = coords.size() > i * 2 + 1 ? coords[i * 2 + 1] : 0.0f;
            minU = std::min(minU, c.u);
            maxU = std::max(maxU, c.u);
            minV = std::min(minV, c.v);
            maxV = std::max(maxV, c.v);
        }
        const bool finite = std::isfinite(minU) && std::isfinite(maxU) && std::isfinite(minV) &&
                            std::isfinite(maxV);
        const int px0 = finite ? int(std::floor(minU / size)) : 0;
        const int py0 = finite ? int(std::floor(minV / size)) : 0;
        const int px1 = finite ? std::max(px0, int(std::ceil(maxU / size)) - 1) : 0;
        const int py1 = finite ? std::max(py0, int(std::ceil(maxV / size)) - 1) : 0;
        if (px0 == px1 && py0 == py1)
        {
            for (const Corner& c : corners)
            {
                emit(c, px0, py0);
            }
            continue;
        }
        // Across pages: cut into one piece per page, each drawn as a fan.
        piece.assign(corners, corners + 3);
        for (int px = px0; px <= px1; ++px)
        {
            clip(piece, scratch, 0, float(px) * size, -1.0f);
            clip(scratch, column, 0, float(px + 1) * size, 1.0f);
            if (column.size() < 3)
            {
                continue;
            }
            for (int py = py0; py <= py1; ++py)
            {
                clip(column, scratch, 1, float(py) * size, -1.0f);
                clip(scratch, cut, 1, float(py + 1) * size, 1.0f);
                for (size_t k = 1; k + 1 < cut.size(); ++k)
                {
                    emit(cut[0], px, py);
                    emit(cut[k], px, py);
                    emit(cut[k + 1], px, py);
                }
            }
        }
    }
    mesh.count = int32_t(mesh.vertices.size() / 3);
    return mesh;
}
