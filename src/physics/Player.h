// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

#include <list>
#include <memory>

class Ball;
class CharacterController;

// The player's body: the capsule that carries the eye through the level, the paint colours and
// the balls in flight. Where the player looks is the caller's business: it hands over the walk
// and the direction of a throw. Needs the physics scene (the level's collision) to exist.
class Player
{
public:
    static constexpr int COLOUR_COUNT = 4;

    Player();
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Once a playing frame, after the physics step: moves the capsule by WALK_X, WALK_Z (metres
    // across the ground) and a constant downward push, then removes dead balls and updates the
    // rest.
    void update(float dt, float walkX, float walkZ);
    // The eye, 1.75 above the capsule's centre.
    Vec3 eye() const;
    // A throw needs a quarter second since the last one.
    bool canThrow() const { return shotCooldown < 0.0f; }
    // Throws a ball of the current colour from below the eye along HEADING when canThrow(), and
    // picks the next colour at random.
    void throwBall(Vec3 heading);

    const float* currentColour() const { return &paintColours[colourIndex].x; }
    int getColourIndex() const { return colourIndex; }
    CharacterController& getController() { return *controller; }
    const std::list<std::unique_ptr<Ball>>& getBalls() const { return balls; }
    float getShotCooldown() const { return shotCooldown; }

private:
    std::list<std::unique_ptr<Ball>> balls; // oldest first
    float shotCooldown = 0.0f;              // seconds; a throw needs it below 0
    int colourIndex = 0;                    // colour of the next ball
    Vec4 paintColours[COLOUR_COUNT];
    std::unique_ptr<CharacterController> controller;
};
