// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

// What one frame is seen through, built once from the camera after the player has moved and
// handed to everything that draws the frame.
struct FrameView
{
    Mat4 perspective = math::identity();
    Mat4 view = math::identity();         // the camera's now
    Mat4 previousView = math::identity(); // the camera's a frame ago, for the motion pass
    Vec3 eye{0.0f, 0.0f, 0.0f};
};
