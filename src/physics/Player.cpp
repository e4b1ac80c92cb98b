// SPDX-License-Identifier: MIT
#include "physics/Player.h"

#include "physics/Ball.h"
#include "physics/CharacterController.h"
#include "physics/PhysicsWorld.h"

#include <btBulletDynamicsCommon.h>

#include <cstdlib>

namespace
{
const btVector3 START(2.0f, 5.0f, 3.0f); // the capsule's centre when a match starts
const float EYE_ABOVE_CENTRE = 1.75f;
// Pressed onto the ground by the same amount every frame, whatever the frame rate: the capsule
// sticks to stairs and slopes going down and drops off edges at once.
const float DOWN_PUSH = -9.81f;
const float BALL_BELOW_EYE = 3.0f; // the ball's start; its body is raised 1.5 from there
const float SHOT_COOLDOWN = 0.25f; // seconds between throws
} // namespace

Player::Player()
    : paintColours{{1.0f, 0.617f, 0.0f, 1.0f},
                   {0.604f, 1.0f, 0.0f, 1.0f},
                   {0.988f, 0.0f, 1.0f, 1.0f},
                   {0.0f, 0.918f, 1.0f, 1.0f}},
      controller(std::make_unique<CharacterController>(*PhysicsWorld::instance().scene(), START))
{
}

Player::~Player()
{
    balls.clear();
    controller.reset();
}

Vec3 Player::eye() const
{
    const btVector3 centre = controller->position();
    return {centre.x(), centre.y() + EYE_ABOVE_CENTRE, centre.z()};
}

void Player::update(float dt, float walkX, float walkZ)
{
    controller->move(btVector3(walkX, DOWN_PUSH, walkZ));
    for (auto it = balls.begin(); it != balls.end();)
    {
        if ((*it)->life <= 0.0f)
        {
            it = balls.erase(it);
            continue;
        }
        (*it)->update(dt);
        ++it;
    }
    shotCooldown -= dt;
}

void Player::throwBall(Vec3 heading)
{
    if (!canThrow())
    {
        return;
    }
    const Vec3 from = eye();
    const Vec3 start{from.x, from.y - BALL_BELOW_EYE, from.z};
    balls.push_back(std::make_unique<Ball>(start, heading, paintColours[colourIndex]));
    shotCooldown = SHOT_COOLDOWN;
    colourIndex = std::rand() % COLOUR_COUNT;
}
