#include "physics/Player.h"

#include "physics/Ball.h"
#include "physics/CharacterController.h"
#include "physics/PhysicsWorld.h"
#include "sound/SoundManager.h"

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
      eye(std::make_unique<Camera>()),
      controller(std::make_unique<CharacterController>(*PhysicsWorld::instance().scene(), START))
{
    eye->position = {START.x(), START.y() + EYE_ABOVE_CENTRE, START.z()};
}

Player::~Player()
{
    balls.clear();
    controller.reset();
}

void Player::update(float dt, float forward, float strafe, float mouseX, float mouseY)
{
    const float oldX = eye->position.x;
    const float oldZ = eye->position.z;
    move(*eye, dt, forward, strafe, mouseX, mouseY);
    controller->move(btVector3(eye->position.x - oldX, DOWN_PUSH, eye->position.z - oldZ));
    const btVector3 centre = controller->position();
    eye->position = {centre.x(), centre.y() + EYE_ABOVE_CENTRE, centre.z()};

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

void Player::throwBall()
{
    if (!(shotCooldown < 0.0f))
    {
        return;
    }
    SoundManager::instance().playShot();
    const Vec3 start{eye->position.x, eye->position.y - BALL_BELOW_EYE, eye->position.z};
    balls.push_back(std::make_unique<Ball>(start, eye->viewDirection(), paintColours[colourIndex]));
    shotCooldown = SHOT_COOLDOWN;
    colourIndex = std::rand() % COLOUR_COUNT;
}

void Player::drawBalls(Shader* shader)
{
    for (auto& ball : balls)
    {
        ball->draw(shader);
    }
}
