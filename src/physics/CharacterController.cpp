// SPDX-License-Identifier: MIT
#include "physics/CharacterController.h"

#include <BulletCollision/BroadphaseCollision/btBroadphaseProxy.h>
#include <BulletCollision/CollisionDispatch/btCollisionObject.h>
#include <BulletCollision/CollisionDispatch/btCollisionObjectWrapper.h>
#include <BulletCollision/CollisionDispatch/btCollisionWorld.h>
#include <BulletCollision/CollisionShapes/btCapsuleShape.h>
#include <BulletCollision/CollisionShapes/btScaledBvhTriangleMeshShape.h>
#include <BulletCollision/CollisionShapes/btStridingMeshInterface.h>
#include <BulletCollision/CollisionShapes/btTriangleMeshShape.h>
#include <BulletCollision/NarrowPhaseCollision/btManifoldPoint.h>

#include <algorithm>
#include <cmath>

namespace
{
const btVector3 UP(0, 1, 0);

const float RADIUS = 1.0f;  // the player's girth; doorways are built for it
const float HEIGHT = 1.75f; // between the sphere centres; the eye sits this far above the centre
const float SKIN = 0.1f; // kept between the capsule and everything, so sweeps never start touching
const float STEP_OFFSET = 0.5f;    // stairs up to this high are walked, anything taller blocks
const float SLOPE_LIMIT = 0.707f;  // cos 45 degrees: faces steeper than that cannot be walked up
const float MIN_DISTANCE = 0.001f; // moves shorter than this are input noise, not intent
// Bullet reports a time of impact once shapes are within 0.001; stopping twice that far away keeps
// the next sweep out of contact. It is taken out of the swept radius so the skin stays exactly
// SKIN.
const float CONTACT_GAP = 0.002f;
const float SWEEP_RADIUS = RADIUS + SKIN - CONTACT_GAP;
const float FOOT_BELOW_CENTRE =
    HEIGHT / 2 + RADIUS + SKIN;       // 1.975: where the floor is when resting
const int MAX_SLIDES = 4;             // a fifth plane in one pass means we are wedged; stop there
const int MAX_PUSH_OUTS = 4;          // enough to leave a corner of three faces
const float PENETRATION_SLOP = 1e-4f; // overlap Bullet's own rounding makes; not worth a push
const float TIE_DISTANCE =
    0.01f; // hits this close along a sweep touch at once (both faces of an edge)
const float FACE_CONTACT_COS =
    0.999f; // contact normal this close to the face's: on the face, not its edge
const float CLIMB_TOLERANCE = 0.01f; // a 0.5 step lands a rounding error above 0.5
const float BOXED_IN = 1e-4f; // a slide into a remembered plane by more than this counts as into it

bool finite(const btVector3& v)
{
    return std::isfinite(v.x()) && std::isfinite(v.y()) && std::isfinite(v.z());
}

btVector3 horizontal(const btVector3& v)
{
    return v - UP * v.dot(UP);
}

// Only the level blocks the player: balls and anything else that moves go through the capsule.
bool blocksPlayer(const btBroadphaseProxy* proxy)
{
    const auto* object = static_cast<const btCollisionObject*>(proxy->m_clientObject);
    return object && object->isStaticObject() && object->hasContactResponse();
}

btVector3 readVertex(const unsigned char* base, PHY_ScalarType type, int stride, unsigned index)
{
    const unsigned char* p = base + static_cast<size_t>(index) * stride;
    if (type == PHY_DOUBLE)
    {
        const auto* d = reinterpret_cast<const double*>(p);
        return btVector3(btScalar(d[0]), btScalar(d[1]), btScalar(d[2]));
    }
    const auto* f = reinterpret_cast<const float*>(p);
    return btVector3(f[0], f[1], f[2]);
}

unsigned readIndex(const unsigned char* base, PHY_ScalarType type, int corner)
{
    if (type == PHY_SHORT)
        return reinterpret_cast<const unsigned short*>(base)[corner];
    if (type == PHY_UCHAR)
        return base[corner];
    return reinterpret_cast<const unsigned int*>(base)[corner];
}

// The contact normal Bullet gives rounds off over edges and corners (a capsule resting on the lip
// of a ledge "feels" a 45 degree slope there), so the slope test needs the triangle's own normal.
// Falls back to the contact normal for shapes that are not triangle meshes.
btVector3 faceNormal(const btCollisionObject& object, const btCollisionWorld::LocalShapeInfo* info,
                     const btVector3& contactNormal)
{
    const btCollisionShape* shape = object.getCollisionShape();
    btVector3 scaling(1, 1, 1);
    if (shape->getShapeType() == SCALED_TRIANGLE_MESH_SHAPE_PROXYTYPE)
    {
        const auto* scaled = static_cast<const btScaledBvhTriangleMeshShape*>(shape);
        scaling = scaled->getLocalScaling();
        shape = scaled->getChildShape();
    }
    if (!info || shape->getShapeType() != TRIANGLE_MESH_SHAPE_PROXYTYPE)
        return contactNormal;

    const btStridingMeshInterface* mesh =
        static_cast<const btTriangleMeshShape*>(shape)->getMeshInterface();
    if (info->m_shapePart < 0 || info->m_shapePart >= mesh->getNumSubParts())
        return contactNormal;
    const unsigned char* vertices = nullptr;
    const unsigned char* indices = nullptr;
    int vertexCount = 0, vertexStride = 0, indexStride = 0, faceCount = 0;
    PHY_ScalarType vertexType = PHY_FLOAT, indexType = PHY_INTEGER;
    mesh->getLockedReadOnlyVertexIndexBase(&vertices, vertexCount, vertexType, vertexStride,
                                           &indices, indexStride, faceCount, indexType,
                                           info->m_shapePart);
    btVector3 corners[3];
    bool valid = info->m_triangleIndex >= 0 && info->m_triangleIndex < faceCount;
    for (int i = 0; valid && i < 3; ++i)
    {
        const unsigned index = readIndex(
            indices + static_cast<size_t>(info->m_triangleIndex) * indexStride, indexType, i);
        valid = index < static_cast<unsigned>(vertexCount);
        if (valid)
            corners[i] = readVertex(vertices, vertexType, vertexStride, index) *
                         mesh->getScaling() * scaling;
    }
    mesh->unLockReadOnlyVertexBase(info->m_shapePart);
    if (!valid)
        return contactNormal;

    btVector3 normal = object.getWorldTransform().getBasis() *
                       (corners[1] - corners[0]).cross(corners[2] - corners[0]);
    if (normal.length2() < 1e-12f)
        return contactNormal;
    normal.normalize();
    // Meshes are two-sided for the capsule; the face we touched is the one looking at us.
    return normal.dot(contactNormal) < 0 ? -normal : normal;
}

// One touch found by a sweep.
struct Touch
{
    float distance = 0; // along the sweep until the swept capsule touches
    btVector3 normal;   // contact normal, out of the surface towards the capsule
    btVector3 point;    // on the surface
    btVector3 face;     // the touched triangle's normal, facing the capsule
};

// Keeps the earliest touch, and among the touches that happen at the same moment (the two faces of
// an edge, floor and wall in a corner) the one that is best to stand on.
class SweepCallback : public btCollisionWorld::ConvexResultCallback
{
public:
    explicit SweepCallback(float length) : length(length) {}

    bool needsCollision(btBroadphaseProxy* proxy) const override { return blocksPlayer(proxy); }

    btScalar addSingleResult(btCollisionWorld::LocalConvexResult& result,
                             bool normalInWorldSpace) override
    {
        const btCollisionObject& object = *result.m_hitCollisionObject;
        Touch touch;
        touch.distance = result.m_hitFraction * length;
        touch.normal = normalInWorldSpace
                           ? result.m_hitNormalLocal
                           : object.getWorldTransform().getBasis() * result.m_hitNormalLocal;
        touch.point = result.m_hitPointLocal; // Bullet passes the world point through this field
        touch.face = faceNormal(object, result.m_localShapeInfo, touch.normal);
        if (!found || touch.distance < first.distance - TIE_DISTANCE)
        {
            first = touch;
            support = touch;
        }
        else
        {
            if (touch.distance < first.distance)
                first = touch;
            if (touch.face.dot(UP) > support.face.dot(UP))
                support = touch;
        }
        found = true;
        // Let touches just behind the earliest one through, so ties get compared.
        m_closestHitFraction = std::min(btScalar(1), (first.distance + TIE_DISTANCE) / length);
        return m_closestHitFraction;
    }

    bool found = false;
    Touch first;
    Touch support;

private:
    float length;
};

// Collects the deepest overlap of the capsule with the level.
class PenetrationCallback : public btCollisionWorld::ContactResultCallback
{
public:
    explicit PenetrationCallback(const btCollisionObject& self) : self(self) {}

    bool needsCollision(btBroadphaseProxy* proxy) const override { return blocksPlayer(proxy); }

    btScalar addSingleResult(btManifoldPoint& point, const btCollisionObjectWrapper* a, int, int,
                             const btCollisionObjectWrapper*, int, int) override
    {
        if (point.getDistance() < depth)
        {
            depth = point.getDistance();
            // Bullet's normal points from B to A; we want it pointing at the capsule.
            normal =
                a->getCollisionObject() == &self ? point.m_normalWorldOnB : -point.m_normalWorldOnB;
        }
        return 0;
    }

    float depth = -PENETRATION_SLOP;
    btVector3 normal{0, 0, 0};

private:
    const btCollisionObject& self;
};

// Slides MOVE along the newest of PLANES, then along the crease it makes with an older one if it
// would run into that. Nothing is returned that goes against ORIGINAL: bouncing back and forth
// between two walls is what makes a character shiver in a corner.
btVector3 clipToPlanes(const btVector3& move, const btVector3* planes, int count,
                       const btVector3& original)
{
    const btVector3& newest = planes[count - 1];
    btVector3 result = move - newest * std::min(move.dot(newest), btScalar(0));
    for (int i = 0; i < count - 1; ++i)
    {
        if (result.dot(planes[i]) >= -BOXED_IN)
            continue;
        btVector3 crease = newest.cross(planes[i]);
        if (crease.length2() < 1e-8f)
            return btVector3(0, 0, 0); // two opposite walls: a corridor as narrow as we are
        crease.normalize();
        result = crease * move.dot(crease);
        for (int j = 0; j < count - 1; ++j)
            if (j != i && result.dot(planes[j]) < -BOXED_IN)
                return btVector3(0, 0, 0);
        break;
    }
    return result.dot(original) > 0 ? result : btVector3(0, 0, 0);
}
} // namespace

struct CharacterController::SweepHit
{
    float distance = 0;     // along the sweep until the capsule's skin touches
    btVector3 normal;       // contact normal of that first touch
    btVector3 supportPoint; // contact point of the touch best to stand on (the same one, usually)
    btVector3 supportNormal;
    btVector3 face; // triangle normal of that touch
};

// What one attempt at the move ended on.
struct CharacterController::Pass
{
    unsigned flags = 0;
    bool unwalkable = false; // landed on a face too steep, or on a ledge too high
    bool standing = false;   // ended on something it may stand on...
    float groundHeight = 0;  // ...touching it this high
};

CharacterController::CharacterController(btCollisionWorld& world, const btVector3& centre)
    : world(world), shape(std::make_unique<btCapsuleShape>(SWEEP_RADIUS, HEIGHT)),
      probe(std::make_unique<btCollisionObject>()), centre(centre)
{
    probe->setCollisionShape(shape.get());
}

CharacterController::~CharacterController() = default;

unsigned CharacterController::move(const btVector3& displacement)
{
    if (!finite(displacement) || displacement.length() < MIN_DISTANCE)
        return 0;

    // Spawned or teleported into the level: get out before sweeping, or every sweep would start
    // inside and stop at once.
    depenetrate();

    const btVector3 start = centre;
    const float vertical = displacement.dot(UP);
    const btVector3 walk = horizontal(displacement);
    // Ledges are measured from the ground we stand on. On a slope or a stair's lip that is above
    // the capsule's lowest point, and measuring from there would stop us at the crest of a ramp.
    const float foot = start.dot(UP) - FOOT_BELOW_CENTRE;
    const float climbFrom = grounded ? std::max(foot, groundHeight) : foot;

    Pass pass = tryMove(walk, vertical, climbFrom, true);
    if (pass.unwalkable)
    {
        // The move would have put us on a face too steep to stand on, or up a ledge taller than
        // a step. Go again from the start without the step up: the side pass treats that surface
        // as a wall, and this time the downward push slides us off it.
        centre = start;
        pass = tryMove(walk, vertical, climbFrom, false);
    }
    if (!finite(centre))
    {
        centre = start; // never seen, but one NaN would lose the player for good
        pass.standing = false;
    }
    grounded = pass.standing;
    groundHeight = pass.groundHeight;
    return pass.flags;
}

CharacterController::Pass CharacterController::tryMove(const btVector3& walk, float vertical,
                                                       float climbFrom, bool firstTry)
{
    Pass pass;
    const bool walking = walk.length() >= MIN_DISTANCE;

    // step up: lift by the step offset so that anything lower passes under the capsule. Only when
    // walking (standing still must not bob) and not on the retry (it is what got us onto the face).
    const float stepWanted = walking && firstTry ? STEP_OFFSET : 0.0f;
    const float rise = std::max(vertical, 0.0f) + stepWanted;
    float stepTaken = 0;
    if (rise > 0)
    {
        const float before = centre.dot(UP);
        SweepHit hit;
        if (sweepTo(UP * rise, hit) && vertical > 0)
            pass.flags |= CollisionUp;
        // A low ceiling shortens the lift; only undo what was done.
        stepTaken = std::min(stepWanted, centre.dot(UP) - before);
    }

    // slide sideways. If something stopped the lifted capsule, the lift may be what ran it into
    // the lip of a low ceiling: try the walk unlifted too and keep whichever gets further.
    if (walking)
    {
        const btVector3 liftedFrom = centre;
        bool blocked = slide(walk, false, climbFrom);
        if (blocked && stepTaken > 0)
        {
            const btVector3 liftedTo = centre;
            const btVector3 unlifted = liftedFrom - UP * stepTaken; // on the path just swept: clear
            const btVector3 direction = walk.normalized();
            centre = unlifted;
            const bool blockedLow = slide(walk, false, climbFrom);
            if ((centre - unlifted).dot(direction) >
                (liftedTo - liftedFrom).dot(direction) + MIN_DISTANCE)
            {
                stepTaken = 0;
                blocked = blockedLow;
            }
            else
                centre = liftedTo;
        }
        pass.flags |= blocked ? CollisionSides : 0u;
    }

    // step down: undo the lift and press down in one sweep. It does not slide, so standing on a
    // walkable slope never creeps; the retry slides, which is how steep faces shed the player.
    const btVector3 down = UP * (std::min(vertical, 0.0f) - stepTaken);
    if (down.length() < MIN_DISTANCE)
        return pass;
    SweepHit hit;
    const bool touched = firstTry ? sweepTo(down, hit) : slide(down, true, climbFrom, &hit);
    if (touched)
    {
        pass.flags |= CollisionDown;
        pass.standing = standable(hit, climbFrom);
        pass.unwalkable = firstTry && !pass.standing;
        pass.groundHeight = hit.supportPoint.dot(UP);
    }
    return pass;
}

// A face flat enough, touched on the face itself or on an edge no higher than a step above the
// ground we stood on. Without the edge rule the rounded bottom of the capsule rides up onto any
// ledge whose lip it can reach (constrained climbing).
bool CharacterController::standable(const SweepHit& hit, float climbFrom)
{
    if (hit.face.dot(UP) < SLOPE_LIMIT)
        return false;
    if (hit.supportNormal.dot(hit.face) >= FACE_CONTACT_COS)
        return true;
    return hit.supportPoint.dot(UP) - climbFrom <= STEP_OFFSET + CLIMB_TOLERANCE;
}

// Collide and slide along DELTA. Walking (FALLING false), whatever cannot be stood on is a wall
// and only its horizontal normal counts, so the walk never climbs it. Falling, the slide runs down
// steep faces and stops on anything else. Returns whether anything was touched, and the last touch
// in LAST if asked.
bool CharacterController::slide(const btVector3& delta, bool falling, float climbFrom,
                                SweepHit* last)
{
    btVector3 planes[MAX_SLIDES];
    int planeCount = 0;
    btVector3 remaining = delta;
    bool touched = false;
    while (planeCount < MAX_SLIDES && remaining.length() >= MIN_DISTANCE)
    {
        const btVector3 from = centre;
        SweepHit hit;
        if (!sweepTo(remaining, hit))
            break;
        touched = true;
        if (last)
            *last = hit;
        const bool canStand = standable(hit, climbFrom);
        // Falling, slide only down planes too steep to stand on: anything flatter holds us, even
        // the rounded lip of a ledge we were not allowed to climb.
        if (falling && (canStand || hit.normal.dot(UP) >= SLOPE_LIMIT))
            break;
        btVector3 plane = hit.normal;
        if (!falling && !canStand)
        {
            plane = horizontal(plane);
            if (plane.length2() < 1e-8f)
                break;
            plane.normalize();
        }
        planes[planeCount++] = plane;
        remaining = clipToPlanes(remaining - (centre - from), planes, planeCount, delta);
    }
    return touched;
}

// Sweeps the capsule along DELTA and moves it as far as it can go, keeping the skin. Returns
// whether something was in the way, and fills HIT then.
bool CharacterController::sweepTo(const btVector3& delta, SweepHit& hit)
{
    const float length = delta.length();
    if (length < 1e-6f)
        return false;
    SweepCallback callback(length);
    btTransform from(btQuaternion::getIdentity(), centre);
    btTransform to(btQuaternion::getIdentity(), centre + delta);
    world.convexSweepTest(shape.get(), from, to, callback);
    if (!callback.found || callback.first.distance >= length)
    {
        centre += delta;
        return false;
    }
    hit.distance = callback.first.distance;
    hit.normal = callback.first.normal;
    hit.supportPoint = callback.support.point;
    hit.supportNormal = callback.support.normal;
    hit.face = callback.support.face;

    // Back off along the path so the gap measured along the normal is CONTACT_GAP; a glancing
    // touch would need a long way back, so there we stay put and let the slide take the rest.
    const btVector3 direction = delta / length;
    const float approach = -direction.dot(hit.normal);
    const float travel =
        approach > 0 ? std::max(0.0f, hit.distance - CONTACT_GAP / approach) : hit.distance;
    centre += direction * std::min(travel, length);
    return true;
}

void CharacterController::depenetrate()
{
    for (int i = 0; i < MAX_PUSH_OUTS; ++i)
    {
        probe->setWorldTransform(btTransform(btQuaternion::getIdentity(), centre));
        PenetrationCallback callback(*probe);
        world.contactTest(probe.get(), callback);
        if (callback.depth >= -PENETRATION_SLOP || !finite(callback.normal))
            return;
        centre += callback.normal * (CONTACT_GAP - callback.depth);
    }
}
