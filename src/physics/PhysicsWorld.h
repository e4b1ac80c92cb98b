// SPDX-License-Identifier: MIT
#pragma once

#include "core/Singleton.h"

#include <functional>
#include <memory>

class btBroadphaseInterface;
class btCollisionDispatcher;
class btConstraintSolver;
class btDefaultCollisionConfiguration;
class btDiscreteDynamicsWorld;
class btDynamicsWorld;
class btPersistentManifold;

class Ball;
class LevelCollision;

// Who a body in the world is, reached through its user pointer: the level's collision or a
// paint ball, and the game object behind it.
struct PhysicsBody
{
    enum class Kind
    {
        Level,
        Ball
    };
    Kind kind;
    LevelCollision* level = nullptr; // set for Kind::Level
    Ball* ball = nullptr;            // set for Kind::Ball

    static PhysicsBody of(LevelCollision* owner) { return {Kind::Level, owner, nullptr}; }
    static PhysicsBody of(Ball* owner) { return {Kind::Ball, nullptr, owner}; }
    // The name the remote debugger shows.
    const char* name() const { return kind == Kind::Level ? "Level" : "Ball"; }
};

// The process-wide physics world on Bullet: gravity -9.8, fixed 1/60 s ticks, at most 8 ticks a
// frame. The scene itself is made when the level builds its collision (createScene), so every
// other part reaches it through scene() and must cope with null before that.
class PhysicsWorld : public Singleton<PhysicsWorld>
{
    friend class Singleton<PhysicsWorld>;

public:
    // Called after every internal tick, with the world, so contacts are read when Bullet is no
    // longer inside its narrowphase.
    using TickCallback = std::function<void(btDynamicsWorld&)>;

    ~PhysicsWorld();

    // Makes the one scene (replacing any earlier one) and returns it.
    btDiscreteDynamicsWorld& createScene();
    btDiscreteDynamicsWorld* scene() const { return world.get(); }
    void setTickCallback(TickCallback callback) { afterTick = std::move(callback); }
    // True for the manifolds continuous collision makes ahead of a fast body: their points lie
    // on its predicted path, not where anything touches.
    static bool isPredictive(const btDynamicsWorld& world, const btPersistentManifold* manifold);

    // Advances the scene by DT seconds (0 is legal and does nothing). Contacts are reported from
    // inside this call.
    void step(float dt);

private:
    PhysicsWorld();
    void connectDebugger();
    void sendToDebugger();
    static void internalTick(btDynamicsWorld* world, float timeStep);

    std::unique_ptr<btDefaultCollisionConfiguration> configuration;
    std::unique_ptr<btCollisionDispatcher> dispatcher;
    std::unique_ptr<btBroadphaseInterface> broadphase;
    std::unique_ptr<btConstraintSolver> solver;
    std::unique_ptr<btDiscreteDynamicsWorld> world;
    TickCallback afterTick;
    int debugger = -1;       // socket to a remote viewer on port 5425, -1 when none
    bool debuggerUp = false; // the connection has completed
};
