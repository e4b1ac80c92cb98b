// SPDX-License-Identifier: MIT
#include "scene/Sphere.h"

#include "core/Settings.h"
#include "render/GlBuffer.h"
#include "render/Shader.h"

#include <GL/glew.h>

namespace
{
const int RINGS = 32;    // latitude bands from pole to pole
const int SEGMENTS = 32; // points around each ring before the closing duplicate
const int RING_SIZE = SEGMENTS + 1;
} // namespace

SphereMesh::SphereMesh(float radius)
    : vertices(new float[VERTEX_COUNT * 4]), indices(new uint32_t[INDEX_COUNT])
{
    float* v = vertices.get();
    auto put = [&v](float x, float y, float z)
    {
        *v++ = x;
        *v++ = y;
        *v++ = z;
        *v++ = 1.0f;
    };
    put(0.0f, 0.0f, radius);
    for (int i = 1; i < RINGS; ++i)
    {
        const float theta = static_cast<float>(i) * math::PI / RINGS;
        const float* first = v;
        for (int j = 0; j < SEGMENTS; ++j)
        {
            const float phi = static_cast<float>(j) * math::PI / (SEGMENTS / 2);
            put(radius * math::sine(theta) * math::cosine(phi),
                radius * math::sine(theta) * math::sine(phi), radius * math::cosine(theta));
        }
        put(first[0], first[1], first[2]);
    }
    put(0.0f, 0.0f, -radius);

    uint32_t* n = indices.get();
    auto triangle = [&n](uint32_t a, uint32_t b, uint32_t c)
    {
        *n++ = a;
        *n++ = b;
        *n++ = c;
    };
    for (uint32_t k = 1; k <= SEGMENTS; ++k)
    {
        triangle(0, k, k + 1);
    }
    for (int ring = 1; ring < RINGS - 1; ++ring)
    {
        const uint32_t a = 1 + static_cast<uint32_t>((ring - 1) * RING_SIZE);
        const uint32_t b = a + RING_SIZE;
        for (uint32_t j = 0; j < SEGMENTS; ++j)
        {
            triangle(b + j, b + j + 1, a + j);
            triangle(a + j, b + j + 1, a + j + 1);
        }
    }
    const uint32_t lastRing = 1 + (RINGS - 2) * RING_SIZE; // 991
    const uint32_t southPole = VERTEX_COUNT - 1;
    for (uint32_t j = 0; j < SEGMENTS; ++j)
    {
        triangle(lastRing + j, southPole, lastRing + 1 + j);
    }

    vertexBuffer =
        createStaticBuffer(GL_ARRAY_BUFFER, vertices.get(), VERTEX_COUNT * 4 * sizeof(float));
    indexBuffer =
        createStaticBuffer(GL_ELEMENT_ARRAY_BUFFER, indices.get(), INDEX_COUNT * sizeof(uint32_t));
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

SphereMesh::~SphereMesh()
{
    glDeleteBuffers(1, &vertexBuffer);
    glDeleteBuffers(1, &indexBuffer);
}

void SphereMesh::draw(Shader* shader) const
{
    if (Settings::instance().getBool("vbo"))
    {
        glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer);
        shader->setAttributeBuffer("vertex", 4);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, indexBuffer);
        glDrawElements(GL_TRIANGLES, INDEX_COUNT, GL_UNSIGNED_INT, nullptr);
        shader->disableAttribute("vertex");
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    }
    else
    {
        shader->setAttribute("vertex", 4, vertices.get());
        glDrawElements(GL_TRIANGLES, INDEX_COUNT, GL_UNSIGNED_INT, indices.get());
        shader->disableAttribute("vertex");
    }
}

Sphere::Sphere(Vec3 position, float radius, Vec4 color) : color(color), radius(radius), mesh(radius)
{
    model = math::translate(math::scale(1.0f), position);
}

void Sphere::draw(Shader* shader)
{
    if (!shader)
    {
        return;
    }
    shader->setMatrix("model", model);
    shader->setVec4("color", &color.x);
    mesh.draw(shader);
}
