// SPDX-License-Identifier: MIT
#include "physics/Ball.h"

#include <btBulletDynamicsCommon.h>

#include <cstdio>

namespace
{
const float LIFE = 10.0f; // seconds a ball flies at most
const float RADIUS = 0.3f;
const float MASS = 0.25f;
const float ANGULAR_DAMPING = 0.05f;
const float RAISE = 1.5f;   // the body starts this far above the given start
const float AIM_UP = 0.25f; // the throw aims a little above the view
// The throw is one push of this force lasting exactly one 1/60 s tick, given as one impulse so
// that it does not depend on how many ticks a frame runs: 33.3 m/s per unit of direction.
const float THROW_FORCE = 500.0f;
const float THROW_TIME = 1.0f / 60.0f;
// Without continuous collision a third of head-on shots pass through a one-triangle wall.
const float CCD_MOTION_THRESHOLD = 0.15f;
// How far around itself a ball looks for level triangles: Bullet's default contact breaking
// threshold, more than the distance at which its sphere-triangle test already reports a touch.
const float CONTACT_REACH = 0.02f;

// Bullet looks for the level triangles a sphere may touch inside the sphere's own bounds. A fast
// ball is stopped by a predictive contact exactly at the wall, a rounding error away from it,
// with no speed left towards it; nothing ever pushes it closer, so with bare bounds it never
// finds the wall's triangles, never touches and slides down the wall without painting. Bounds
// grown by the contact threshold let the sphere-triangle test see the wall it rests against.
class BallShape : public btSphereShape
{
public:
    using btSphereShape::btSphereShape;

    void getAabb(const btTransform& transform, btVector3& min, btVector3& max) const override
    {
        btSphereShape::getAabb(transform, min, max);
        const btVector3 reach(CONTACT_REACH, CONTACT_REACH, CONTACT_REACH);
        min -= reach;
        max += reach;
    }
};
} // namespace

Ball::Ball(Vec3 start, Vec3 direction, Vec4 colour)
    : start(start), direction(direction), colour(colour), life(LIFE),
      shownAt(start), tag(PhysicsBody::of(this)), shape(std::make_unique<BallShape>(RADIUS))
{
    btTransform origin;
    origin.setIdentity();
    origin.setOrigin(btVector3(start.x, start.y + RAISE, start.z));
    motion = std::make_unique<btDefaultMotionState>(origin);
    btVector3 inertia(0, 0, 0);
    shape->calculateLocalInertia(MASS, inertia);
    btRigidBody::btRigidBodyConstructionInfo info(MASS, motion.get(), shape.get(), inertia);
    info.m_linearDamping = 0.0f;
    info.m_angularDamping = ANGULAR_DAMPING;
    body = std::make_unique<btRigidBody>(info);
    body->setUserPointer(&tag);
    body->setCcdMotionThreshold(CCD_MOTION_THRESHOLD);
    body->setCcdSweptSphereRadius(RADIUS);

    const btVector3 aim(direction.x, direction.y + AIM_UP, direction.z);
    std::fprintf(stderr, "(%.2f, %.2f, %.2f)\n", aim.x(), aim.y(), aim.z());
    if (btDiscreteDynamicsWorld* world = PhysicsWorld::instance().scene())
    {
        world->addRigidBody(body.get());
    }
    body->applyCentralImpulse(aim * (THROW_FORCE * THROW_TIME));
}

Ball::~Ball()
{
    if (PhysicsWorld::exists())
    {
        if (btDiscreteDynamicsWorld* world = PhysicsWorld::instance().scene())
        {
            world->removeRigidBody(body.get());
        }
    }
}

void Ball::update(float dt)
{
    const Vec3 p = position();
    shownAt = p;
    if (life > 0.0f)
    {
        life -= dt;
    }
}

Vec3 Ball::position() const
{
    const btVector3& p = body->getWorldTransform().getOrigin();
    return {p.x(), p.y(), p.z()};
}

Vec3 Ball::velocity() const
{
    const btVector3& v = body->getLinearVelocity();
    return {v.x(), v.y(), v.z()};
}
