// SPDX-License-Identifier: MIT
#include "physics/PhysicsWorld.h"

#include <btBulletDynamicsCommon.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
const btVector3 GRAVITY(0.0f, -9.8f, 0.0f);
const float TICK = 1.0f / 60.0f;
const int MAX_TICKS = 8; // a slow frame is simulated up to 8 ticks, then time is dropped
const char* const DEBUGGER_HOST = "127.0.0.1";
const uint16_t DEBUGGER_PORT = 5425;

// The stock world keeps its predictive manifolds to itself.
class GameDynamicsWorld : public btDiscreteDynamicsWorld
{
public:
    using btDiscreteDynamicsWorld::btDiscreteDynamicsWorld;
    // The stock world only lets go of its predictive manifolds at its next step. They live in
    // the dispatcher, which outlasts the scene, and point at bodies that may be gone by then.
    ~GameDynamicsWorld() override { releasePredictiveContacts(); }

    bool isPredictive(const btPersistentManifold* manifold) const
    {
        for (int i = 0; i < m_predictiveManifolds.size(); ++i)
        {
            if (m_predictiveManifolds[i] == manifold)
            {
                return true;
            }
        }
        return false;
    }
};
} // namespace

PhysicsWorld::PhysicsWorld()
    : configuration(std::make_unique<btDefaultCollisionConfiguration>()),
      dispatcher(std::make_unique<btCollisionDispatcher>(configuration.get())),
      broadphase(std::make_unique<btDbvtBroadphase>()),
      solver(std::make_unique<btSequentialImpulseConstraintSolver>())
{
    std::fprintf(stderr, "[LOADED] Physics SDK!");
    connectDebugger();
}

PhysicsWorld::~PhysicsWorld()
{
    world.reset();
    if (debugger >= 0)
    {
        close(debugger);
    }
}

btDiscreteDynamicsWorld& PhysicsWorld::createScene()
{
    world = std::make_unique<GameDynamicsWorld>(dispatcher.get(), broadphase.get(), solver.get(),
                                                configuration.get());
    world->setGravity(GRAVITY);
    world->setInternalTickCallback(&PhysicsWorld::internalTick, this, false);
    return *world;
}

void PhysicsWorld::step(float dt)
{
    if (!world)
    {
        return;
    }
    world->stepSimulation(dt, MAX_TICKS, TICK);
    sendToDebugger();
}

bool PhysicsWorld::isPredictive(const btDynamicsWorld& world, const btPersistentManifold* manifold)
{
    const auto* ours = dynamic_cast<const GameDynamicsWorld*>(&world);
    return ours && ours->isPredictive(manifold);
}

void PhysicsWorld::internalTick(btDynamicsWorld* world, float)
{
    auto* self = static_cast<PhysicsWorld*>(world->getWorldUserInfo());
    if (self && self->afterTick)
    {
        self->afterTick(*world);
    }
}

// A viewer may listen on the loopback port (nc -l 5425 shows the world moving). The attempt is
// non-blocking and its outcome is only looked at later: the game never waits for it.
void PhysicsWorld::connectDebugger()
{
    debugger = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (debugger < 0)
    {
        return;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(DEBUGGER_PORT);
    inet_pton(AF_INET, DEBUGGER_HOST, &address.sin_addr);
    if (connect(debugger, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0)
    {
        debuggerUp = true;
    }
    else if (errno != EINPROGRESS)
    {
        close(debugger);
        debugger = -1;
    }
}

void PhysicsWorld::sendToDebugger()
{
    if (debugger < 0 || !world)
    {
        return;
    }
    if (!debuggerUp)
    {
        pollfd p{debugger, POLLOUT, 0};
        if (poll(&p, 1, 0) <= 0)
        {
            return; // still connecting
        }
        int error = 0;
        socklen_t size = sizeof(error);
        getsockopt(debugger, SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0)
        {
            close(debugger);
            debugger = -1;
            return;
        }
        debuggerUp = true;
    }
    char line[4096];
    int length = 0;
    const btCollisionObjectArray& objects = world->getCollisionObjectArray();
    for (int i = 0; i < objects.size() && length < static_cast<int>(sizeof(line)) - 64; ++i)
    {
        const auto* body = static_cast<const PhysicsBody*>(objects[i]->getUserPointer());
        const btVector3& p = objects[i]->getWorldTransform().getOrigin();
        length += std::snprintf(line + length, sizeof(line) - length, "%s (%.2f %.2f %.2f) ",
                                body ? body->name() : "?", p.x(), p.y(), p.z());
    }
    line[length++] = '\n';
    // A viewer that does not keep up loses lines; one that went away is forgotten.
    if (send(debugger, line, static_cast<size_t>(length), MSG_DONTWAIT | MSG_NOSIGNAL) < 0 &&
        errno != EAGAIN && errno != EWOULDBLOCK)
    {
        close(debugger);
        debugger = -1;
    }
}
