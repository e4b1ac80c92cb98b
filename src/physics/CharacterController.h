// SPDX-License-Identifier: MIT
#pragma once

#include <LinearMath/btVector3.h>

#include <memory>

class btCapsuleShape;
class btCollisionObject;
class btCollisionWorld;

// What a move touched, as bits of the value move() returns.
enum CharacterCollision : unsigned
{
    CollisionSides = 1u << 0, // something blocked or deflected the walk
    CollisionUp = 1u << 1,    // a ceiling stopped an upward move
    CollisionDown = 1u << 2,  // the capsule ended the move standing or sliding on something
};

// The player's body: an upright capsule (radius 1.0, 1.75 between the sphere centres) that walks
// over the static geometry of a collision world by sweeping, never by simulation. It keeps a skin
// of 0.1 between itself and every surface, steps up ledges no higher than 0.5, walks slopes up to
// 45 degrees, slides down steeper ones and falls off edges. It has no body of its own: nothing
// can push it, and moving bodies (paint balls) pass through it.
class CharacterController
{
public:
    // WORLD must outlive the controller. CENTRE is the capsule's centre; resting on a floor it sits
    // 1.975 above it.
    CharacterController(btCollisionWorld& world, const btVector3& centre);
    ~CharacterController();

    CharacterController(const CharacterController&) = delete;
    CharacterController& operator=(const CharacterController&) = delete;

    // Moves by DISPLACEMENT (distance, not velocity: the caller scales it by the frame time) and
    // returns CharacterCollision bits. Call once per frame with the whole frame's move, gravity
    // included: the walk is the horizontal part, the vertical part presses the capsule down.
    // A move shorter than 0.001, or one that is not finite, does nothing and returns 0.
    unsigned move(const btVector3& displacement);

    // The capsule's centre.
    btVector3 position() const { return centre; }
    // Teleports without any collision test; the next move pushes the capsule out of whatever it
    // was put into.
    void setPosition(const btVector3& newCentre)
    {
        centre = newCentre;
        grounded = false;
    }

private:
    struct SweepHit;
    struct Pass;

    Pass tryMove(const btVector3& walk, float vertical, float climbFrom, bool firstTry);
    bool slide(const btVector3& delta, bool falling, float climbFrom, SweepHit* last = nullptr);
    bool sweepTo(const btVector3& delta, SweepHit& hit);
    void depenetrate();
    static bool standable(const SweepHit& hit, float climbFrom);

    btCollisionWorld& world;
    std::unique_ptr<btCapsuleShape> shape;
    std::unique_ptr<btCollisionObject> probe; // the capsule for overlap tests, never in the world
    btVector3 centre;
    bool grounded = false;  // the last move ended standing on something...
    float groundHeight = 0; // ...touching it this high
};
