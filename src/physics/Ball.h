// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"
#include "physics/PhysicsWorld.h"

#include <memory>

class btCollisionShape;
class btDefaultMotionState;
class btRigidBody;

// A paint ball: a small dynamic sphere thrown from below the player's eye. It lives until it
// touches the level (the contact report sets its life to 0) or for 10 seconds; the player removes
// dead balls. Needs the physics scene; the scene draws it.
class Ball
{
public:
    // START is below the eye; the body starts 1.5 above it. The throw aims 0.25 above DIRECTION.
    Ball(Vec3 start, Vec3 direction, Vec4 colour);
    ~Ball();
    Ball(const Ball&) = delete;
    Ball& operator=(const Ball&) = delete;

    // Notes where the body is, for drawing, and runs the life down by DT seconds.
    void update(float dt);

    Vec3 position() const;
    Vec3 velocity() const;

    Vec3 start;
    Vec3 direction;
    Vec4 colour;
    float life; // seconds left
    // Where the ball is drawn: the body's place at the last update, START before the first.
    Vec3 shownAt;

private:
    PhysicsBody tag;
    std::unique_ptr<btCollisionShape> shape;
    std::unique_ptr<btDefaultMotionState> motion;
    std::unique_ptr<btRigidBody> body;
};
