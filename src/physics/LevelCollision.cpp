#include "physics/LevelCollision.h"

#include "physics/Ball.h"
#include "physics/TriangleTree.h"
#include "scene/Level.h"

#include <btBulletDynamicsCommon.h>

#include <cstdio>
#include <cstring>

namespace
{
// A manifold keeps points a little apart from the surface; only real touches paint.
const float TOUCH_DISTANCE = 0.05f;

PhysicsBody* tagOf(const btCollisionObject* object)
{
    return static_cast<PhysicsBody*>(object->getUserPointer());
}

bool named(const PhysicsBody* body, const char* name)
{
    return body && std::strcmp(body->name, name) == 0;
}
} // namespace

void PhysicsContactReport::onTick(btDynamicsWorld& world)
{
    btDispatcher* dispatcher = world.getDispatcher();
    for (int m = 0; m < dispatcher->getNumManifolds(); ++m)
    {
        const btPersistentManifold* manifold = dispatcher->getManifoldByIndexInternal(m);
        const PhysicsBody* first = tagOf(manifold->getBody0());
        const PhysicsBody* second = tagOf(manifold->getBody1());
        const bool levelFirst = named(first, "Level");
        const PhysicsBody* levelTag = levelFirst ? first : second;
        const PhysicsBody* ballTag = levelFirst ? second : first;
        if (!named(levelTag, "Level") || !named(ballTag, "Ball"))
        {
            continue;
        }
        auto* ball = static_cast<Ball*>(ballTag->owner);
        if (ball->life <= 0.0f)
        {
            continue; // it has painted already in an earlier tick of this step
        }
        // Continuous collision adds manifolds that say where the ball will be, not that it touched.
        if (PhysicsWorld::isPredictive(world, manifold))
        {
            continue;
        }
        const btManifoldPoint* last = nullptr;
        for (int p = 0; p < manifold->getNumContacts(); ++p)
        {
            const btManifoldPoint& point = manifold->getContactPoint(p);
            if (point.getDistance() <= TOUCH_DISTANCE)
            {
                last = &point;
            }
        }
        if (!last)
        {
            continue;
        }
        // The manifold's normal points from body 1 towards body 0: outwards from the level when
        // the level is body 1.
        const btVector3 onLevel =
            levelFirst ? last->getPositionWorldOnA() : last->getPositionWorldOnB();
        const btVector3 normal = levelFirst ? -last->m_normalWorldOnB : last->m_normalWorldOnB;
        auto* level = static_cast<Level*>(levelTag->owner);
        level->paintHit({onLevel.x(), onLevel.y(), onLevel.z()},
                        {normal.x(), normal.y(), normal.z()}, ball->colour);
        ball->life = 0.0f;
    }
}

LevelCollision::LevelCollision(Level& level, std::unique_ptr<TriangleTree> triangles)
    : tag{"Level", &level}, tree(std::move(triangles))
{
    btRigidBody::btRigidBodyConstructionInfo info(0.0f, nullptr, &tree->shape());
    body = std::make_unique<btRigidBody>(info);
    body->setUserPointer(&tag);

    PhysicsWorld& physics = PhysicsWorld::instance();
    btDiscreteDynamicsWorld& world = physics.createScene();
    world.addRigidBody(body.get());
    physics.setTickCallback([this](btDynamicsWorld& w) { contactReport.onTick(w); });
}

LevelCollision::~LevelCollision()
{
    if (PhysicsWorld::exists())
    {
        PhysicsWorld& physics = PhysicsWorld::instance();
        physics.setTickCallback(nullptr);
        if (physics.scene())
        {
            physics.scene()->removeRigidBody(body.get());
        }
    }
}
