// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

#include <cstdint>
#include <memory>
#include <vector>

class btBvhTriangleMeshShape;
class btOptimizedBvh;
class btTriangleIndexVertexArray;

// A bounding-volume tree over a flat triangle list (every three consecutive vertices of x, y, z, w
// are a triangle), shared by the level's collision and the paint. It reads the vertex array in
// place, which must outlive it and must not change while it lives.
class TriangleTree
{
public:
    // VERTEXCOUNT is a whole number of triangles, at least one. Touches nothing but its own memory
    // and the vertices, so it may run on any thread.
    TriangleTree(const float* vertices, int32_t vertexCount);
    ~TriangleTree();
    TriangleTree(const TriangleTree&) = delete;
    TriangleTree& operator=(const TriangleTree&) = delete;

    // The indices of the triangles whose bounds overlap the box MIN..MAX, ascending. It may list
    // a few more than touch the box (the tree's boxes are rounded outwards), never fewer.
    void query(const Vec3& min, const Vec3& max, std::vector<int>& triangles) const;

    // Bullet names a triangle by part and index: triangle t of the level is index t % 2097152 of
    // part t / 2097152 (a level of fewer triangles has part 0 only).
    static int triangleNumber(int part, int index) { return part * PART_TRIANGLES + index; }
    static constexpr int PART_TRIANGLES = 1 << 21; // Bullet keeps 21 bits for the index
    btBvhTriangleMeshShape& shape() { return *bvh; }

private:
    std::vector<int32_t> indices; // 0, 1, 2, ... for one part: the level's vertices are not shared
    std::unique_ptr<btTriangleIndexVertexArray> mesh;
    std::unique_ptr<btOptimizedBvh> tree; // the shape walks it but does not own it
    std::unique_ptr<btBvhTriangleMeshShape> bvh;
};
