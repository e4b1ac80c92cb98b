#include "physics/TestLevels.h"

#include "physics/CharacterController.h"

#include <cmath>

namespace
{
const float GRAVITY_PUSH = -9.81f; // what the game presses the player down with, every frame
const float PI = 3.14159265f;
} // namespace

TestLevel::TestLevel()
    : dispatcher(&configuration), world(&dispatcher, &broadphase, &solver, &configuration)
{
    world.setGravity(btVector3(0, -9.8f, 0));
}

TestLevel::~TestLevel()
{
    for (auto& body : bodies)
        world.removeRigidBody(body.get());
}

void TestLevel::addQuad(const btVector3& a, const btVector3& b, const btVector3& c,
                        const btVector3& d)
{
    mesh->addTriangle(a, b, c);
    mesh->addTriangle(a, c, d);
}

void TestLevel::addBox(const btVector3& lo, const btVector3& hi)
{
    const btVector3 v[8] = {{lo.x(), lo.y(), lo.z()}, {hi.x(), lo.y(), lo.z()},
                            {hi.x(), hi.y(), lo.z()}, {lo.x(), hi.y(), lo.z()},
                            {lo.x(), lo.y(), hi.z()}, {hi.x(), lo.y(), hi.z()},
                            {hi.x(), hi.y(), hi.z()}, {lo.x(), hi.y(), hi.z()}};
    addQuad(v[0], v[3], v[2], v[1]);
    addQuad(v[4], v[5], v[6], v[7]);
    addQuad(v[0], v[4], v[7], v[3]);
    addQuad(v[1], v[2], v[6], v[5]);
    addQuad(v[3], v[7], v[6], v[2]);
    addQuad(v[0], v[1], v[5], v[4]);
}

void TestLevel::addFloor(float size)
{
    addBox(btVector3(-size, -1, -size), btVector3(size, 0, size));
}

void TestLevel::addRamp(float foot, float angle, float height)
{
    const float top = foot + height / std::tan(angle * PI / 180);
    addQuad({foot, 0, -10}, {foot, 0, 10}, {top, height, 10}, {top, height, -10});
    mesh->addTriangle({foot, 0, -10}, {top, height, -10}, {top, 0, -10});
    mesh->addTriangle({foot, 0, 10}, {top, 0, 10}, {top, height, 10});
    addBox(btVector3(top, 0, -10), btVector3(40, height, 10));
}

void TestLevel::build()
{
    shape = std::make_unique<btBvhTriangleMeshShape>(mesh.get(), true);
    addBody(0, shape.get(), btVector3(0, 0, 0));
}

void TestLevel::addBall(const btVector3& at)
{
    addBody(0.25f, &ballShape, at);
}

unsigned TestLevel::frame(CharacterController& player, const btVector3& velocity, float dt)
{
    world.stepSimulation(dt, 8, 1.0f / 60);
    return player.move(velocity * dt + btVector3(0, GRAVITY_PUSH, 0));
}

unsigned TestLevel::walk(CharacterController& player, const btVector3& velocity, int frames,
                         float fps)
{
    unsigned flags = 0;
    for (int i = 0; i < frames; ++i)
        flags = frame(player, velocity, 1 / fps);
    return flags;
}

void TestLevel::addBody(float mass, btCollisionShape* bodyShape, const btVector3& at)
{
    btVector3 inertia(0, 0, 0);
    if (mass > 0)
        bodyShape->calculateLocalInertia(mass, inertia);
    btRigidBody::btRigidBodyConstructionInfo info(mass, nullptr, bodyShape, inertia);
    info.m_startWorldTransform.setOrigin(at);
    bodies.push_back(std::make_unique<btRigidBody>(info));
    world.addRigidBody(bodies.back().get());
}
