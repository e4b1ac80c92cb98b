// SPDX-License-Identifier: MIT
#include "scene/Level.h"

#include "core/Settings.h"
#include "physics/LevelCollision.h"
#include "physics/TriangleTree.h"
#include "render/GlBuffer.h"
#include "render/Shader.h"

#include <GL/glew.h>

#include <cmath>
#include <cstdio>
#include <system_error>

namespace
{
// Paint must win the depth test against the surface it lies on without z-fighting.
const float DECAL_OFFSET = -4.5f;
const Vec4 SURFACE_COLOR{1.0f, 1.0f, 1.0f, 1.0f};

// Paint is drawn only in the lit and the flat pass; the motion pass sees the bare surface.
bool drawsPaint(const Shader* shader)
{
    return shader->getName() == "unicolor" || shader->getName() == "minimal";
}
} // namespace

Level::Level() = default;

Level::~Level()
{
    pendingTree = {}; // waits for a tree still being built
    collision.reset();
    if (vertexBuffer)
    {
        glDeleteBuffers(1, &vertexBuffer);
        glDeleteBuffers(1, &normalBuffer);
        glDeleteBuffers(1, &uvBuffer);
    }
}

void Level::setMesh(std::unique_ptr<float[]> newVertices, std::unique_ptr<float[]> newNormals,
                    std::unique_ptr<float[]> newUvs, int32_t count)
{
    pendingTree = {}; // it was reading the old vertices
    vertices = std::move(newVertices);
    normals = std::move(newNormals);
    uvs = std::move(newUvs);
    vertexCount = count;
}

void Level::initBuffers()
{
    model = math::scale(1.0f);
    prevModel = math::scale(1.0f);
    const size_t count = vertexCount > 0 ? static_cast<size_t>(vertexCount) : 0;
    vertexBuffer = createStaticBuffer(GL_ARRAY_BUFFER, vertices.get(), count * 16);
    normalBuffer = createStaticBuffer(GL_ARRAY_BUFFER, normals.get(), count * 12);
    uvBuffer = createStaticBuffer(GL_ARRAY_BUFFER, uvs.get(), count * 8);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void Level::draw(Shader* shader)
{
    glClear(GL_STENCIL_BUFFER_BIT);
    if (!shader)
    {
        return;
    }
    drawSurface(shader);
    if (!drawsPaint(shader) || paint.empty())
    {
        return;
    }
    glEnable(GL_POLYGON_OFFSET_FILL);
    glPolygonOffset(DECAL_OFFSET, DECAL_OFFSET);
    glDepthMask(GL_FALSE);
    paint.draw();
    glDepthMask(GL_TRUE);
    glDisable(GL_POLYGON_OFFSET_FILL);
}

void Level::drawSurface(Shader* shader)
{
    shader->setMatrix("model", model);
    // The level is static: its motion in the blur pass comes from the camera alone.
    shader->setMatrix("prevmodel", model);
    shader->setVec4("color", &SURFACE_COLOR.x);
    if (vertexCount <= 0)
    {
        return;
    }
    if (Settings::instance().getBool("vbo"))
    {
        glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer);
        shader->setAttributeBuffer("vertex", 4);
        glBindBuffer(GL_ARRAY_BUFFER, normalBuffer);
        shader->setAttributeBuffer("normal", 3);
        glDrawArrays(GL_TRIANGLES, 0, vertexCount);
        shader->disableAttribute("vertex");
        shader->disableAttribute("normal");
        glBindBuffer(GL_ARRAY_BUFFER, 0);
    }
    else
    {
        shader->setAttribute("vertex", 4, vertices.get());
        shader->setAttribute("normal", 3, normals.get());
        glDrawArrays(GL_TRIANGLES, 0, vertexCount);
        shader->disableAttribute("vertex");
        shader->disableAttribute("normal");
    }
}

bool Level::hasWholeTriangles() const
{
    return vertexCount >= 3 && vertexCount % 3 == 0 && vertices;
}

void Level::startPhysics()
{
    if (!hasWholeTriangles() || pendingTree.valid())
    {
        return;
    }
    // The tree touches nothing but the vertices and its own memory, and nothing changes the
    // vertices before buildPhysics() collects it.
    try
    {
        pendingTree = std::async(std::launch::async, [v = vertices.get(), n = vertexCount]
                                 { return std::make_unique<TriangleTree>(v, n); });
    }
    catch (const std::system_error&)
    {
        // No thread to be had: buildPhysics() builds the tree on this one.
    }
}

bool Level::buildPhysics()
{
    if (!hasWholeTriangles())
    {
        std::fprintf(stderr, "[ERROR] Triangle Mesh is not valid!\n");
        return false;
    }
    std::unique_ptr<TriangleTree> tree =
        pendingTree.valid() ? pendingTree.get()
                            : std::make_unique<TriangleTree>(vertices.get(), vertexCount);
    collision =
        std::make_unique<LevelCollision>(vertices.get(), vertexCount, std::move(tree));
    return true;
}

void Level::paintHit(Vec3 point, Vec3 normal, Vec4 colour)
{
    hits.push_back({point, normal, colour});
    std::list<DecalPolygon> polygons = cutSplat(point, normal);
    if (polygons.empty())
    {
        return;
    }
    Vec3 min, max;
    splat::bounds(polygons, min, max);
    paint.add(polygons, Bounds::fromMinMax(min, max), colour);
}

void Level::paintRecordedHits()
{
    if (!collision)
    {
        return;
    }
    for (const PaintHit& hit : collision->getContactReport().takeHits())
    {
        paintHit(hit.point, hit.normal, hit.colour);
    }
}

std::list<DecalPolygon> Level::cutSplat(Vec3 point, Vec3 normal, bool tree) const
{
    const SplatFrame frame = splat::frame(point, normal);
    std::list<DecalPolygon> polygons;
    if (!std::isfinite(frame.bitangent.x) || !std::isfinite(frame.bitangent.y) ||
        !std::isfinite(frame.bitangent.z))
    {
        return polygons; // a zero normal, or a tangent along it: no surface to paint
    }
    if (tree && collision)
    {
        Vec3 min, max;
        splat::box(frame, min, max);
        std::vector<int> nearby;
        collision->getTree().query(min, max, nearby);
        for (int triangle : nearby)
        {
            splat::cutTriangle(frame, vertices.get(), triangle, polygons);
        }
        return polygons;
    }
    for (int triangle = 0; triangle < vertexCount / 3; ++triangle)
    {
        splat::cutTriangle(frame, vertices.get(), triangle, polygons);
    }
    return polygons;
}
