#pragma once

#include "scene/Math.h"

#include <cstdint>
#include <memory>
#include <vector>

class btBvhTriangleMeshShape;
class btTriangleIndexVertexArray;

// A bounding-volume tree over a flat triangle list (every three consecutive vertices of x, y, z, w
// are a triangle), shared by the level's collision and the paint. It reads the vertex array in
// place, which must outlive it.
class TriangleTree
{
public:
    TriangleTree(const float* vertices, int32_t vertexCount);
    ~TriangleTree();
    TriangleTree(const TriangleTree&) = delete;
    TriangleTree& operator=(const TriangleTree&) = delete;

    // The indices of the triangles whose bounds overlap the box MIN..MAX, ascending. It may list
    // a few more than touch the box (the tree's boxes are rounded outwards), never fewer.
    void query(const Vec3& min, const Vec3& max, std::vector<int>& triangles) const;

    btBvhTriangleMeshShape& shape() { return *bvh; }

private:
    std::vector<int32_t> indices; // 0, 1, 2, ...: the level's vertices are not shared
    std::unique_ptr<btTriangleIndexVertexArray> mesh;
    std::unique_ptr<btBvhTriangleMeshShape> bvh;
};
