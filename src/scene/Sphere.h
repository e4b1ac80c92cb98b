// SPDX-License-Identifier: MIT
#pragma once

#include "scene/SceneNode.h"

#include <cstdint>
#include <memory>

class Shader;

// A 32 x 32 latitude-longitude sphere mesh around the origin: the two poles on the z axis and 31
// rings of 33 vertices each (the seam is closed by a duplicate of each ring's first point).
struct SphereMesh
{
    static constexpr int VERTEX_COUNT = 1025;
    static constexpr int INDEX_COUNT = 5952;

    explicit SphereMesh(float radius);
    ~SphereMesh();
    SphereMesh(const SphereMesh&) = delete;
    SphereMesh& operator=(const SphereMesh&) = delete;

    // Draws with the attribute "vertex"; from the GL buffers when "vbo" is on, else from memory.
    void draw(Shader* shader) const;

    std::unique_ptr<float[]> vertices;   // VERTEX_COUNT x (x, y, z, 1)
    std::unique_ptr<uint32_t[]> indices; // INDEX_COUNT triangle corners
    unsigned int vertexBuffer = 0;
    unsigned int indexBuffer = 0;
};

// A sphere in the world (paint balls, the overlay's colour disc). Needs a GL context.
class Sphere : public GeometryNode
{
public:
    Sphere(Vec3 position, float radius, Vec4 color);

    void update(float) override {}
    void draw(Shader* shader) override;

    Vec4 color; // sent to the shader as it stands
    float radius;

private:
    SphereMesh mesh;
};
