#pragma once

#include "physics/PhysicsWorld.h"

#include <cstdint>
#include <memory>
#include <vector>

class Ball;
class Level;
class btBvhTriangleMeshShape;
class btDynamicsWorld;
class btRigidBody;
class btTriangleIndexVertexArray;

// Tells the level where paint balls touch it. Runs after each internal physics tick: for every
// live ball touching the level it hands the contact point on the level, the level's outward normal
// there and the ball's colour to Level::paintHit, and ends the ball's life so it paints once.
class PhysicsContactReport
{
public:
    virtual ~PhysicsContactReport() = default;
    void onTick(btDynamicsWorld& world);
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

    btBvhTriangleMeshShape& getShape() { return *shape; }
    PhysicsContactReport& getContactReport() { return contactReport; }

private:
    PhysicsContactReport contactReport;
    PhysicsBody tag;
    std::vector<int32_t> indices; // 0, 1, 2, ...: the level's vertices are not shared
    std::unique_ptr<btTriangleIndexVertexArray> mesh;
    std::unique_ptr<btBvhTriangleMeshShape> shape;
    std::unique_ptr<btRigidBody> body;
};
