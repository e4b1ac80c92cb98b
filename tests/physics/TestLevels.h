#pragma once

#include <btBulletDynamicsCommon.h>

#include <memory>
#include <vector>

class CharacterController;

// A Bullet world like the game's, with a static triangle-mesh level assembled from boxes and
// wedges, and a clock that steps the world and the player as the game's frame does.
class TestLevel
{
public:
    TestLevel();
    ~TestLevel();

    void addQuad(const btVector3& a, const btVector3& b, const btVector3& c, const btVector3& d);
    void addBox(const btVector3& lo, const btVector3& hi);
    // A floor with its top at y = 0 over x and z in [-size, size].
    void addFloor(float size = 40);
    // A wedge rising along +x from the floor at FOOT to HEIGHT at ANGLE degrees, then a plateau
    // at that height out to x = 40, spanning z in [-10, 10].
    void addRamp(float foot, float angle, float height);
    // Makes everything added so far the level; call once, before creating the player.
    void build();
    // A paint ball, as the game throws them: a small dynamic sphere.
    void addBall(const btVector3& at);

    // One game frame: physics first, then the player walks VELOCITY (horizontal, per second) for
    // DT and is pressed down by the game's fixed -9.81. Returns the move's flags.
    unsigned frame(CharacterController& player, const btVector3& velocity, float dt);
    // Runs FRAMES frames; returns the flags of the last one.
    unsigned walk(CharacterController& player, const btVector3& velocity, int frames,
                  float fps = 60);

    btDiscreteDynamicsWorld& physics() { return world; }

private:
    void addBody(float mass, btCollisionShape* bodyShape, const btVector3& at);

    btDefaultCollisionConfiguration configuration;
    btCollisionDispatcher dispatcher;
    btDbvtBroadphase broadphase;
    btSequentialImpulseConstraintSolver solver;
    btDiscreteDynamicsWorld world;
    std::unique_ptr<btTriangleMesh> mesh = std::make_unique<btTriangleMesh>();
    std::unique_ptr<btBvhTriangleMeshShape> shape;
    btSphereShape ballShape{0.3f};
    std::vector<std::unique_ptr<btRigidBody>> bodies;
};
