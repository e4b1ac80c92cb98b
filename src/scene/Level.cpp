// SPDX-License-Identifier: MIT
#include "scene/Level.h"

#include "core/Settings.h"
#include "physics/LevelCollision.h"
#include "physics/TriangleTree.h"
#include "render/GlBuffer.h"
#include "render/Shader.h"

#include <GL/glew.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace
{
const Vec4 SURFACE_COLOR{1.0f, 1.0f, 1.0f, 1.0f};
// Splats stamped at once before the clock is looked at, and the time after which a frame starts
// no further part while the whole paint is stamped again. Stamping goes page by page, and a page
// costs a draw however few splats it takes: the more splats at once, the cheaper each. A part of
// paint spread over the whole level takes about 150 ms on a software renderer, so there a frame
// stamps one part; smaller parts made the whole slower (10,000 splats: 1.7 s in parts of 1,024,
// 2.1 s in parts of 256).
const size_t STAMP_CHUNK = 1024;
const auto STAMP_BUDGET = std::chrono::milliseconds(40);
// How often the painted share is counted.
const auto COUNT_INTERVAL = std::chrono::milliseconds(250);

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
        glDeleteBuffers(1, &paintCoordBuffer);
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
    // The collision tree builds on a second thread while this one lays out the paint map.
    startPhysics();
    // Where each triangle lies in the paint map, and the triangles as drawn.
    charts = Charts(vertices.get(), vertexCount, PaintMap::BUDGET_TEXELS, PaintMap::PAYLOAD);
    drawn = PaintMesh::build(vertices.get(), normals.get(), hasWholeTriangles() ? vertexCount : 0,
                             charts, PaintMap::PAYLOAD);
}

void Level::initBuffers()
{
    model = math::scale(1.0f);
    prevModel = math::scale(1.0f);
    const size_t count = size_t(drawn.count);
    vertexBuffer = createStaticBuffer(GL_ARRAY_BUFFER, drawn.vertices.data(), count * 12);
    normalBuffer = createStaticBuffer(GL_ARRAY_BUFFER, drawn.normals.data(), count * 12);
    paintCoordBuffer = createStaticBuffer(GL_ARRAY_BUFFER, drawn.paint.data(), count * 16);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    paintMap = std::make_unique<PaintMap>(charts);
}

void Level::draw(Shader* shader)
{
    if (!shader)
    {
        return;
    }
    drawSurface(shader, drawsPaint(shader) && paintMap);
}

void Level::updatePaint()
{
    if (!paintMap)
    {
        return;
    }
    const bool cut = !Settings::instance().getBool("transparency");
    if (cut != stampedCut)
    {
        // How splats combine has changed: the whole paint is stamped again from the records.
        paintMap->clear();
        stamped = 0;
        stampedCut = cut;
    }
    const auto start = std::chrono::steady_clock::now();
    while (stamped < splats.size())
    {
        const size_t end = std::min(splats.size(), stamped + STAMP_CHUNK);
        paintMap->stamp(splats, stamped, end, cut);
        stamped = end;
        if (std::chrono::steady_clock::now() - start > STAMP_BUDGET)
        {
            break;
        }
    }
    // The smaller level once the paint has caught up: while the whole paint is stamped again,
    // making it after every part would cost as much again as the stamping.
    if (stamped == splats.size())
    {
        paintMap->updateSmallerLevels();
    }
    const auto now = std::chrono::steady_clock::now();
    if (now - lastCount >= COUNT_INTERVAL)
    {
        lastCount = now;
        paintMap->refreshCoverage();
    }
}

void Level::drawSurface(Shader* shader, bool painted)
{
    shader->setMatrix("model", model);
    // The level is static: its motion in the blur pass comes from the camera alone.
    shader->setMatrix("prevmodel", model);
    shader->setVec4("color", &SURFACE_COLOR.x);
    if (drawn.count <= 0)
    {
        return;
    }
    if (painted)
    {
        paintMap->bind(*shader);
    }
    if (Settings::instance().getBool("vbo"))
    {
        glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer);
        shader->setAttributeBuffer("vertex", 3);
        glBindBuffer(GL_ARRAY_BUFFER, normalBuffer);
        shader->setAttributeBuffer("normal", 3);
        glBindBuffer(GL_ARRAY_BUFFER, paintCoordBuffer);
        shader->setAttributeBuffer("paintmapcoord", 4);
        glDrawArrays(GL_TRIANGLES, 0, drawn.count);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
    }
    else
    {
        shader->setAttribute("vertex", 3, drawn.vertices.data());
        shader->setAttribute("normal", 3, drawn.normals.data());
        shader->setAttribute("paintmapcoord", 4, drawn.paint.data());
        glDrawArrays(GL_TRIANGLES, 0, drawn.count);
    }
    shader->disableAttribute("vertex");
    shader->disableAttribute("normal");
    shader->disableAttribute("paintmapcoord");
    if (painted)
    {
        PaintMap::unbind(*shader);
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

bool Level::paintHit(Vec3 point, Vec3 normal, Vec4 colour)
{
    hits.push_back({point, normal, colour});
    // The charts the splat reaches: those of the triangles it cuts.
    hitPolygons.clear();
    hitTriangles.clear();
    hitCharts.clear();
    cut(point, normal, true, hitPolygons, &hitTriangles);
    if (charts.size() == 0)
    {
        return false;
    }
    for (int triangle : hitTriangles)
    {
        const uint32_t chart = charts.chartOf(triangle);
        if (std::find(hitCharts.begin(), hitCharts.end(), chart) == hitCharts.end())
        {
            hitCharts.push_back(chart);
        }
    }
    if (hitCharts.empty())
    {
        return false;
    }
    const SplatFrame frame = splat::frame(point, normal);
    splats.add(point, frame.normal, colour, std::rand() % PICTURE_COUNT, hitCharts);
    return true;
}

int Level::paintRecordedHits()
{
    if (!collision)
    {
        return 0;
    }
    int made = 0;
    for (const PaintHit& hit : collision->getContactReport().takeHits())
    {
        made += paintHit(hit.point, hit.normal, hit.colour) ? 1 : 0;
    }
    return made;
}

std::list<DecalPolygon> Level::cutSplat(Vec3 point, Vec3 normal, bool tree) const
{
    std::list<DecalPolygon> polygons;
    cut(point, normal, tree, polygons, nullptr);
    return polygons;
}

void Level::cut(Vec3 point, Vec3 normal, bool tree, std::list<DecalPolygon>& polygons,
                std::vector<int>* triangles) const
{
    const SplatFrame frame = splat::frame(point, normal);
    if (!std::isfinite(frame.bitangent.x) || !std::isfinite(frame.bitangent.y) ||
        !std::isfinite(frame.bitangent.z))
    {
        return; // a zero normal, or a tangent along it: no surface to paint
    }
    auto cutOne = [&](int triangle)
    {
        if (splat::cutTriangle(frame, vertices.get(), triangle, polygons) && triangles)
        {
            triangles->push_back(triangle);
        }
    };
    if (tree && collision)
    {
        Vec3 min, max;
        splat::box(frame, min, max);
        std::vector<int> nearby;
        collision->getTree().query(min, max, nearby);
        for (int triangle : nearby)
        {
            cutOne(triangle);
        }
        return;
    }
    for (int triangle = 0; triangle < vertexCount / 3; ++triangle)
    {
        cutOne(triangle);
    }
}
