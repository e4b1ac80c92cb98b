// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"
#include "physics/PhysicsWorld.h"

#include <memory>
#include <vector>

class TriangleTree;
class btDynamicsWorld;
class btPersistentManifold;
class btRigidBody;

// Where a paint ball struck the level.
struct PaintHit
{
    Vec3 point;  // on the level's surface
    Vec3 normal; // of the level triangle the ball touched, unit length, facing the ball
    Vec4 colour; // the ball's paint
};

// Finds where paint balls touch the level. Runs after each internal physics tick, still inside
// PhysicsWorld::step: for every live ball touching the level it records the hit and ends the
// ball's life, so the ball records nothing more. It paints nothing itself: whoever steps the world
// paints the recorded hits once the step has returned.
class PhysicsContactReport
{
public:
    // VERTICES is the level's triangle list (x, y, z, w per vertex), read in place.
    PhysicsContactReport(const float* vertices, int32_t vertexCount);
    virtual ~PhysicsContactReport() = default;
    void onTick(btDynamicsWorld& world);
    // The hits recorded since the last call, in the order the balls struck; they are forgotten.
    [[nodiscard]] std::vector<PaintHit> takeHits();

private:
    // Fills HIT's point and normal from the level triangle the ball of MANIFOLD struck; false
    // when the manifold holds no point.
    bool findStrike(const btPersistentManifold& manifold, bool levelFirst, PaintHit& hit) const;

    const float* vertices;
    int32_t triangleCount;
    std::vector<PaintHit> hits;
};

// The level's side of the physics: a static triangle mesh over the level's own vertex array, in
// render order (triangle i of the collision is triangle i of the drawing), on a body named
// "Level". Removes its body from the world when destroyed.
class LevelCollision
{
public:
    // TRIANGLES is the tree over the level's vertex array VERTICES (VERTEX_COUNT x (x, y, z, w)),
    // which must outlive it. Makes the physics scene and adds the body.
    LevelCollision(const float* vertices, int32_t vertexCount,
                   std::unique_ptr<TriangleTree> triangles);
    ~LevelCollision();
    LevelCollision(const LevelCollision&) = delete;
    LevelCollision& operator=(const LevelCollision&) = delete;

    const TriangleTree& getTree() const { return *tree; }
    PhysicsContactReport& getContactReport() { return contactReport; }

private:
    PhysicsContactReport contactReport;
    PhysicsBody tag;
    std::unique_ptr<TriangleTree> tree;
    std::unique_ptr<btRigidBody> body;
};
