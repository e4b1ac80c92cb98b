#pragma once

#include "app/Camera.h"

#include <list>
#include <memory>

class Ball;
class CharacterController;
class Shader;

// The player: the first-person camera, the capsule that carries it through the level, the paint
// colours and the balls in flight. Needs the physics scene (the level's collision) to exist.
class Player
{
public:
    static constexpr int COLOUR_COUNT = 4;

    Player();
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Once a playing frame, after the physics step: turns and walks the camera by the input,
    // moves the capsule by the walk and a constant downward push, puts the eye 1.75 above the
    // capsule's centre, then removes dead balls and updates the rest.
    void update(float dt, float forward, float strafe, float mouseX, float mouseY);
    // Throws a ball of the current colour from below the eye along the view, unless the last
    // throw was less than a quarter second ago. Picks the next colour at random.
    void throwBall();
    void drawBalls(Shader* shader);

    const float* currentColour() const { return &paintColours[colourIndex].x; }
    int getColourIndex() const { return colourIndex; }
    Camera& camera() { return *eye; }
    CharacterController& getController() { return *controller; }
    const std::list<std::unique_ptr<Ball>>& getBalls() const { return balls; }
    float getShotCooldown() const { return shotCooldown; }

private:
    std::list<std::unique_ptr<Ball>> balls; // oldest first
    float shotCooldown = 0.0f;              // seconds; a throw needs it below 0
    int colourIndex = 0;                    // colour of the next ball
    Vec4 paintColours[COLOUR_COUNT];
    std::unique_ptr<Camera> eye;
    std::unique_ptr<CharacterController> controller;
};
