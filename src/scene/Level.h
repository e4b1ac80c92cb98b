// SPDX-License-Identifier: MIT
#pragma once

#include "physics/LevelCollision.h"
#include "paint/Charts.h"
#include "paint/PaintMap.h"
#include "paint/PaintMesh.h"
#include "paint/Splat.h"
#include "paint/SplatRecords.h"
#include "scene/SceneNode.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <list>
#include <memory>
#include <vector>

class Shader;
class TriangleTree;

// The one static mesh the player walks in: a flat, unindexed triangle list (every three
// consecutive vertices are a triangle) with its GL buffers and the paint on it. The paint is kept
// in the level's paint map: every splat is recorded and stamped into the map once, and the lit
// and the flat pass read the map as they draw the surface. The level never moves. Needs a GL
// context from initBuffers() on.
class Level : public GeometryNode
{
public:
    Level();
    ~Level() override;

    // Takes over the imported arrays: VERTICES holds COUNT x (x, y, z, 1), NORMALS COUNT x 3,
    // UVS COUNT x 2; lays the triangles out in the paint map's charts while the collision tree
    // starts building beside it (see startPhysics()).
    void setMesh(std::unique_ptr<float[]> vertices, std::unique_ptr<float[]> normals,
                 std::unique_ptr<float[]> uvs, int32_t count);
    // Uploads the triangles as drawn, with where each vertex lies in the paint map, once; the mesh
    // is never re-uploaded.
    void initBuffers();
    // Starts building the collision tree over the mesh on a second thread, so that it builds
    // while this one uploads the mesh; buildPhysics() waits for it. Optional: without it, or
    // when no thread can be had, buildPhysics() builds the tree itself.
    void startPhysics();
    // Makes the physics scene with the level's triangles as its static collision. False (with
    // "[ERROR] Triangle Mesh is not valid!") when the mesh is not a whole number of triangles.
    // Nothing of the level is left running on another thread once it returns.
    bool buildPhysics();
    // A paint ball struck the level at POINT, whose outward normal is NORMAL: cuts a splat out
    // of the surface around it and records it, with a picture chosen at random, to be stamped
    // into the paint map before the next frame is drawn. True when the splat reaches any of the
    // surface.
    bool paintHit(Vec3 point, Vec3 normal, Vec4 colour);
    // Paints what the balls struck during the physics steps since the last call, in the order
    // they struck, and says how many splats that made. Call it after PhysicsWorld::step has
    // returned, never from inside the step.
    int paintRecordedHits();
    // Stamps the splats not yet in the paint map (all of them again after the "transparency"
    // switch changed, a part each frame so the game goes on) and, a few times a second, counts
    // how much of the surface is painted. Once a frame, before the frame is drawn.
    void updatePaint();
    // The splat's polygons for a hit, without making a decal. The triangles near the hit come
    // from the collision tree when the level has one (TREE), else from a scan of every triangle;
    // both give the same polygons in the same order.
    std::list<DecalPolygon> cutSplat(Vec3 point, Vec3 normal, bool tree = true) const;
    // Every hit painted so far, oldest first.
    const std::vector<PaintHit>& getHits() const { return hits; }

    void update(float) override {}
    // The surface in white, then, in the lit and the flat pass only, the paint on top of it.
    void draw(Shader* shader) override;

    // The splats so far, oldest first, and the paint map they are stamped into (none before
    // initBuffers()).
    const SplatRecords& getSplats() const { return splats; }
    size_t splatCount() const { return splats.size(); }
    size_t stampedCount() const { return stamped; }
    const Charts& getCharts() const { return charts; }
    // The triangles as drawn: the level's own, cut at the paint map's page edges.
    int32_t drawnVertexCount() const { return drawn.count; }
    PaintMap* getPaintMap() const { return paintMap.get(); }
    // The share of the surface painted, 0..1, as last counted.
    float revealed() const { return paintMap ? paintMap->revealed() : 0.0f; }

    int32_t getVertexCount() const { return vertexCount; }
    const float* getVertices() const { return vertices.get(); }
    const float* getNormals() const { return normals.get(); }

private:
    void drawSurface(Shader* shader, bool painted);
    bool hasWholeTriangles() const;
    // Cuts the splat for a hit into POLYGONS and, when TRIANGLES is given, lists the triangle
    // each polygon was cut from.
    void cut(Vec3 point, Vec3 normal, bool tree, std::list<DecalPolygon>& polygons,
             std::vector<int>* triangles) const;

    unsigned int vertexBuffer = 0;
    unsigned int normalBuffer = 0;
    unsigned int paintCoordBuffer = 0;
    std::unique_ptr<float[]> vertices;
    std::unique_ptr<float[]> normals;
    std::unique_ptr<float[]> uvs;
    int32_t vertexCount = 0;
    Charts charts;
    PaintMesh drawn;
    std::unique_ptr<PaintMap> paintMap;
    SplatRecords splats;
    size_t stamped = 0;      // splats[0..stamped) are in the paint map
    bool stampedCut = false; // how they were stamped: cut hard ("transparency" off) or blended
    std::chrono::steady_clock::time_point lastCount;
    std::list<DecalPolygon> hitPolygons;
    std::vector<int> hitTriangles;
    std::vector<uint32_t> hitCharts;
    std::unique_ptr<LevelCollision> collision;
    std::vector<PaintHit> hits;
    // The tree that startPhysics() builds; it reads the vertices, so it goes before they do.
    std::future<std::unique_ptr<TriangleTree>> pendingTree;
};
