#pragma once

#include "physics/PhysicsWorld.h"

#include <cstdint>
#include <memory>

class Ball;
class Level;
class TriangleTree;
class btDynamicsWorld;
class btRigidBody;

// Tells the level where paint balls touch it. Runs after each internal physics tick: for every
// live ball touching the level it hands the contact point on the level, the normal of the level
// triangle touched (facing the ball) and the ball's colour to Level::paintHit, and ends the
// ball's life so it paints once.
class PhysicsContactReport
{
public:
    // VERTICES is the level's triangle list (x, y, z, w per vertex), read in place.
    PhysicsContactReport(const float* vertices, int32_t vertexCount);
    virtual ~PhysicsContactReport() = default;
    void onTick(btDynamicsWorld& world);

private:
    const float* vertices;
    int32_t triangleCount;
};

// The level's side of the physics: a static triangle mesh over the level's own vertex array, in
// render order (triangle i of the collision is triangle i of the drawing), on a body named
// "Level". Removes its body from the world when destroyed.
class LevelCollision
{
public:
    LevelCollision(Level& level, const float* vertices, int32_t vertexCount);
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
