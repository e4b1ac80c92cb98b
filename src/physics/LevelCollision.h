#pragma once

#include "physics/PhysicsWorld.h"

#include <memory>

class Ball;
class Level;
class TriangleTree;
class btDynamicsWorld;
class btRigidBody;

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
    // TRIANGLES is the tree over LEVEL's vertex array. Makes the physics scene and adds the body.
    LevelCollision(Level& level, std::unique_ptr<TriangleTree> triangles);
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
