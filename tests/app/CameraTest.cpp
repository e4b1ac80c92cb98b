// SPDX-License-Identifier: MIT
#include "app/Camera.h"

#include <SDL_scancode.h>
#include <gtest/gtest.h>

#include <cmath>

namespace
{
float angleBetween(const Vec3& a, const Vec3& b)
{
    return std::acos(std::fmin(1.0f, math::dot(math::normalize(a), math::normalize(b))));
}
} // namespace

TEST(Camera, OnePixelOfMouseTurnsTheViewBy0_0609Radians)
{
    Camera camera;
    const Vec3 before = camera.viewDirection();
    move(camera, 0.016f, 0, 0, 1.0f, 0.0f);
    const Vec3 after = camera.viewDirection();
    EXPECT_NEAR(angleBetween(before, after), 0.0609f, 2e-4f);
    EXPECT_GT(after.x, 0.0f); // the mouse going right turns the view right
    EXPECT_NEAR(after.y, 0.0f, 1e-6f);

    // Turning back by the same motion ends where it started; each move keeps the view it
    // started from, for the motion blur.
    const Mat4 turned = viewMatrix(camera);
    move(camera, 0.016f, 0, 0, -1.0f, 0.0f);
    EXPECT_NEAR(angleBetween(before, camera.viewDirection()), 0.0f, 1e-3f);
    for (int i = 0; i < 16; ++i)
    {
        EXPECT_FLOAT_EQ(camera.previousView.m[i], turned.m[i]) << i;
    }
}

TEST(Camera, VerticalLookStopsAtPlusMinusOneAndComesBackAtOnce)
{
    Camera camera;
    move(camera, 0.0f, 0, 0, 0.0f, -5.0f); // mouse up: look up, clamped
    EXPECT_FLOAT_EQ(camera.pitch, 1.0f);
    const Vec3 top = camera.viewDirection();
    EXPECT_NEAR(std::asin(top.y), 0.0609f, 2e-4f); // only one pixel's worth above level

    move(camera, 0.0f, 0, 0, 0.0f, -3.0f);
    EXPECT_FLOAT_EQ(camera.pitch, 1.0f);
    EXPECT_NEAR(camera.viewDirection().y, top.y, 1e-6f);

    move(camera, 0.0f, 0, 0, 0.0f, 0.5f);
    EXPECT_FLOAT_EQ(camera.pitch, 0.5f);
    EXPECT_LT(camera.viewDirection().y, top.y);

    move(camera, 0.0f, 0, 0, 0.0f, 10.0f);
    EXPECT_FLOAT_EQ(camera.pitch, -1.0f);
    EXPECT_NEAR(std::asin(camera.viewDirection().y), -0.0609f, 2e-4f);

    resetOrientation(camera);
    EXPECT_EQ(camera.pitch, 0.0f);
    EXPECT_NEAR(camera.viewDirection().z, -1.0f, 1e-7f);
}

TEST(Camera, WalksAlongTheViewAndStrafesSideways)
{
    Camera camera;
    camera.position = {2.0f, 6.7f, 3.0f};
    move(camera, 0.5f, 1.0f, 0.0f, 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(camera.position.z, 3.0f - 2.5f); // 5 per second along -z
    EXPECT_FLOAT_EQ(camera.position.x, 2.0f);
    EXPECT_FLOAT_EQ(camera.position.y, 3.0f); // the body sets the real height afterwards

    move(camera, 0.2f, 0.0f, 1.0f, 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(camera.position.x, 3.0f);

    // After a quarter turn to the right, forwards is +x.
    Camera turned;
    const float quarterTurnPixels = (math::PI / 2) / (200.0f * math::DEG_TO_RAD * math::DEG_TO_RAD);
    move(turned, 0.0f, 0, 0, quarterTurnPixels, 0);
    turned.position = {};
    move(turned, 1.0f, 1.0f, 0.0f, 0.0f, 0.0f);
    EXPECT_NEAR(turned.position.x, 5.0f, 1e-3f);
    EXPECT_NEAR(turned.position.z, 0.0f, 1e-3f);
}

TEST(Camera, OppositeKeysResolveBackwardsAndRight)
{
    unsigned char keys[512] = {};
    keys[SDL_SCANCODE_W] = keys[SDL_SCANCODE_S] = 1;
    keys[SDL_SCANCODE_A] = keys[SDL_SCANCODE_D] = 1;
    WalkInput walk = walkInput(keys);
    EXPECT_EQ(walk.forward, -1.0f);
    EXPECT_EQ(walk.strafe, 1.0f);

    unsigned char arrows[512] = {};
    arrows[SDL_SCANCODE_UP] = arrows[SDL_SCANCODE_LEFT] = 1;
    walk = walkInput(arrows);
    EXPECT_EQ(walk.forward, 1.0f);
    EXPECT_EQ(walk.strafe, -1.0f);
}

TEST(Camera, ViewMatrixPutsWhatTheCameraLooksAtStraightAhead)
{
    Camera camera;
    move(camera, 0.0f, 0, 0, 7.0f, -1.0f);
    camera.position = {2.0f, 6.7f, 3.0f};
    const Vec3 d = camera.viewDirection();
    const Vec4 looked =
        math::transform(viewMatrix(camera), {2.0f + d.x * 4, 6.7f + d.y * 4, 3.0f + d.z * 4, 1.0f});
    EXPECT_NEAR(looked.x, 0.0f, 1e-4f);
    EXPECT_NEAR(looked.y, 0.0f, 1e-4f);
    EXPECT_NEAR(looked.z, -4.0f, 1e-4f);
}
