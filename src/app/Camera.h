// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

// The first-person camera. The orientation's rows are the camera's axes in world coordinates:
// row 0 points right, row 1 up, row 2 backwards (the camera looks along -row 2).
struct Camera
{
    float moveSpeed = 5.0f;  // distance per second
    float turnRate = 200.0f; // game turn units per pixel of mouse motion
    Vec3 position{0.0f, 1.75f, 0.0f};
    Mat3 rotation = math::identity3();
    // Accumulated vertical look in unscaled pixels, kept within -1..1: the view only tilts a few
    // degrees above and below the level, which is the intended feel.
    float pitch = 0.0f;
    // The view matrix as it was when the last move began, for the motion-blur pass.
    Mat4 previousView = math::identity();

    Vec3 row(int i) const { return {rotation[i], rotation[3 + i], rotation[6 + i]}; }
    // The direction the camera looks in.
    Vec3 viewDirection() const;
};

// What the held movement keys ask for: FORWARD and STRAFE are -1, 0 or +1.
struct WalkInput
{
    float forward = 0.0f;
    float strafe = 0.0f;
};
// KEYS is the game's key table indexed by SDL scancode. Backwards wins over forwards and right
// over left when both are held.
WalkInput walkInput(const unsigned char* keys);

// Translation to the eye followed by the orientation.
Mat4 viewMatrix(const Camera& camera);
// Walks FORWARD (-1, 0, +1) along the view direction and STRAFE (-1, 0, +1) sideways, both
// including the vertical part of the orientation, and turns by the mouse motion in pixels.
// Leaves position.y at 3: the body that carries the camera sets the real height.
void move(Camera& camera, float dt, float forward, float strafe, float mouseX, float mouseY);
void resetOrientation(Camera& camera);
