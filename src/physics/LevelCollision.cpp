// SPDX-License-Identifier: MIT
#include "physics/LevelCollision.h"

#include "physics/Ball.h"
#include "physics/TriangleTree.h"

#include <btBulletDynamicsCommon.h>

#include <utility>

namespace
{
PhysicsBody* tagOf(const btCollisionObject* object)
{
    return static_cast<PhysicsBody*>(object->getUserPointer());
}

bool is(const PhysicsBody* body, PhysicsBody::Kind kind)
{
    return body && body->kind == kind;
}

// The unit normal of triangle TRIANGLE of VERTICES, turned to the side TOWARDS points to. Bullet's
// contact normal is no face normal: near an edge it points from the edge to the ball's centre,
// tilted by up to 50 degrees, and paint cut along it smears. Dividing by the length keeps a face
// along an axis exactly on it, which the splat's frame relies on for walls facing +-x.
Vec3 faceNormal(const float* vertices, int triangle, const btVector3& towards)
{
    const float* v = vertices + static_cast<size_t>(triangle) * 12;
    const Vec3 face = math::normalize(math::cross({v[4] - v[0], v[5] - v[1], v[6] - v[2]},
                                                  {v[8] - v[0], v[9] - v[1], v[10] - v[2]}));
    if (face.x * towards.x() + face.y * towards.y() + face.z * towards.z() < 0.0f)
    {
        return {-face.x, -face.y, -face.z};
    }
    return face;
}
} // namespace

PhysicsContactReport::PhysicsContactReport(const float* vertices, int32_t vertexCount)
    : vertices(vertices), triangleCount(vertexCount / 3)
{
}

void PhysicsContactReport::onTick(btDynamicsWorld& world)
{
    btDispatcher* dispatcher = world.getDispatcher();
    for (int m = 0; m < dispatcher->getNumManifolds(); ++m)
    {
        const btPersistentManifold* manifold = dispatcher->getManifoldByIndexInternal(m);
        const PhysicsBody* first = tagOf(manifold->getBody0());
        const PhysicsBody* second = tagOf(manifold->getBody1());
        const bool levelFirst = is(first, PhysicsBody::Kind::Level);
        const PhysicsBody* levelTag = levelFirst ? first : second;
        const PhysicsBody* ballTag = levelFirst ? second : first;
        if (!is(levelTag, PhysicsBody::Kind::Level) || !is(ballTag, PhysicsBody::Kind::Ball) ||
            !ballTag->ball)
        {
            continue;
        }
        Ball* ball = ballTag->ball;
        if (ball->life <= 0.0f)
        {
            continue; // it struck in an earlier tick of this step and has been recorded
        }
        // Continuous collision adds manifolds that say where the ball will be, not that it touched.
        if (PhysicsWorld::isPredictive(world, manifold))
        {
            continue;
        }
        PaintHit hit{{}, {}, ball->colour};
        if (!findStrike(*manifold, levelFirst, hit))
        {
            continue;
        }
        // Painting here would create decals and play sounds in the middle of Bullet's step.
        hits.push_back(hit);
        ball->life = 0.0f;
    }
}

// Bullet drops every point farther than its contact threshold (about 0.01 for a ball): every
// point left touches. Near an edge the ball also touches the triangles beyond it, at their edge;
// it struck the face whose normal Bullet's contact normal (from the level to the ball) follows
// best.
bool PhysicsContactReport::findStrike(const btPersistentManifold& manifold, bool levelFirst,
                                      PaintHit& hit) const
{
    float best = -1.0f;
    for (int p = 0; p < manifold.getNumContacts(); ++p)
    {
        const btManifoldPoint& point = manifold.getContactPoint(p);
        // The manifold's normal points from body 1 towards body 0; triangle indices are the
        // level's own triangle order.
        const btVector3 towardsBall = levelFirst ? -point.m_normalWorldOnB : point.m_normalWorldOnB;
        const int triangle = levelFirst
                                 ? TriangleTree::triangleNumber(point.m_partId0, point.m_index0)
                                 : TriangleTree::triangleNumber(point.m_partId1, point.m_index1);
        if (triangle < 0 || triangle >= triangleCount)
        {
            continue; // not one of the level's triangles; nothing to paint
        }
        const Vec3 face = faceNormal(vertices, triangle, towardsBall);
        const float fit =
            face.x * towardsBall.x() + face.y * towardsBall.y() + face.z * towardsBall.z();
        if (fit >= best)
        {
            const btVector3 onLevel =
                levelFirst ? point.getPositionWorldOnA() : point.getPositionWorldOnB();
            hit.point = {onLevel.x(), onLevel.y(), onLevel.z()};
            hit.normal = face;
            best = fit;
        }
    }
    return best >= 0.0f;
}

std::vector<PaintHit> PhysicsContactReport::takeHits()
{
    return std::exchange(hits, {});
}

LevelCollision::LevelCollision(const float* vertices, int32_t vertexCount,
                               std::unique_ptr<TriangleTree> triangles)
    : contactReport(vertices, vertexCount), tag(PhysicsBody::of(this)), tree(std::move(triangles))
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
