// SPDX-License-Identifier: MIT
#pragma once

#include "physics/LevelCollision.h"
#include "scene/Paint.h"
#include "scene/SceneNode.h"
#include "scene/Splat.h"

#include <cstdint>
#include <future>
#include <list>
#include <memory>
#include <vector>

class Shader;
class TriangleTree;

// The one static mesh the player walks in: a flat, unindexed triangle list (every three
// consecutive vertices are a triangle) with its GL buffers and the paint stuck onto it. The level
// never moves. Needs a GL context from initBuffers() on.
class Level : public GeometryNode
{
public:
    Level();
    ~Level() override;

    // Takes over the imported arrays: VERTICES holds COUNT x (x, y, z, 1), NORMALS COUNT x 3,
    // UVS COUNT x 2.
    void setMesh(std::unique_ptr<float[]> vertices, std::unique_ptr<float[]> normals,
                 std::unique_ptr<float[]> uvs, int32_t count);
    // Uploads the arrays once; the mesh is never re-uploaded.
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
    // of the surface around it and sticks it on as a decal (which also plays the splash).
    void paintHit(Vec3 point, Vec3 normal, Vec4 colour);
    // Paints what the balls struck during the physics steps since the last call, in the order
    // they struck. Call it after PhysicsWorld::step has returned, never from inside the step.
    void paintRecordedHits();
    // The splat's polygons for a hit, without making a decal. The triangles near the hit come
    // from the collision tree when the level has one (TREE), else from a scan of every triangle;
    // both give the same polygons in the same order.
    std::list<DecalPolygon> cutSplat(Vec3 point, Vec3 normal, bool tree = true) const;
    // Every hit painted so far, oldest first.
    const std::vector<PaintHit>& getHits() const { return hits; }

    void update(float) override {}
    // The surface in white, then, in the lit and the flat pass only, the paint on top of it.
    void draw(Shader* shader) override;

    // The splats stuck on so far, oldest first; drawn after the surface in that order.
    const Paint& getPaint() const { return paint; }
    size_t decalCount() const { return paint.size(); }

    int32_t getVertexCount() const { return vertexCount; }
    const float* getVertices() const { return vertices.get(); }
    const float* getNormals() const { return normals.get(); }

private:
    void drawSurface(Shader* shader);
    bool hasWholeTriangles() const;

    unsigned int vertexBuffer = 0;
    unsigned int uvBuffer = 0;
    unsigned int normalBuffer = 0;
    std::unique_ptr<float[]> vertices;
    std::unique_ptr<float[]> normals;
    std::unique_ptr<float[]> uvs;
    int32_t vertexCount = 0;
    Paint paint;
    std::unique_ptr<LevelCollision> collision;
    std::vector<PaintHit> hits;
    // The tree that startPhysics() builds; it reads the vertices, so it goes before they do.
    std::future<std::unique_ptr<TriangleTree>> pendingTree;
};
