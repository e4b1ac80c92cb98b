// SPDX-License-Identifier: MIT
#include "app/Camera.h"

#include <SDL_scancode.h>

namespace
{
const float PITCH_LIMIT = 1.0f;        // in pixels of accumulated vertical mouse motion
const float PLACEHOLDER_HEIGHT = 3.0f; // overwritten by the carrying body right after the move
const Vec3 UP{0.0f, 1.0f, 0.0f};

// Turns the camera about AXIS (world coordinates) by ANGLE game units.
void turn(Camera& camera, const Vec3& axis, float angle)
{
    const Mat3 q = math::toMat3(math::axisAngle(axis, angle));
    // Each camera axis (a row) is rotated by q: R' = R q^T.
    const Mat3 qt{{q[0], q[3], q[6], q[1], q[4], q[7], q[2], q[5], q[8]}};
    camera.rotation = math::multiply(camera.rotation, qt);
}
} // namespace

WalkInput walkInput(const unsigned char* keys)
{
    WalkInput input;
    if (keys[SDL_SCANCODE_UP] || keys[SDL_SCANCODE_W])
    {
        input.forward = 1.0f;
    }
    if (keys[SDL_SCANCODE_DOWN] || keys[SDL_SCANCODE_S])
    {
        input.forward = -1.0f;
    }
    if (keys[SDL_SCANCODE_LEFT] || keys[SDL_SCANCODE_A])
    {
        input.strafe = -1.0f;
    }
    if (keys[SDL_SCANCODE_RIGHT] || keys[SDL_SCANCODE_D])
    {
        input.strafe = 1.0f;
    }
    return input;
}

Vec3 Camera::viewDirection() const
{
    const Vec3 back = row(2);
    return {-back.x, -back.y, -back.z};
}

Mat4 viewMatrix(const Camera& camera)
{
    const Mat4 rotation = math::toMat4(camera.rotation);
    const Vec3 eye{-camera.position.x, -camera.position.y, -camera.position.z};
    return math::translate(rotation, eye);
}

void move(Camera& camera, float dt, float forward, float strafe, float mouseX, float mouseY)
{
    camera.previousView = viewMatrix(camera);
    if (forward != 0.0f)
    {
        const float a = camera.moveSpeed * dt * forward;
        const Vec3 back = camera.row(2);
        camera.position = {camera.position.x - a * back.x, camera.position.y - a * back.y,
                           camera.position.z - a * back.z};
    }
    if (strafe != 0.0f)
    {
        const float b = camera.moveSpeed * dt * strafe;
        const Vec3 right = camera.row(0);
        camera.position = {camera.position.x + b * right.x, camera.position.y + b * right.y,
                           camera.position.z + b * right.z};
    }

    float delta = -mouseY;
    if (camera.pitch + delta > PITCH_LIMIT)
    {
        delta = PITCH_LIMIT - camera.pitch;
    }
    if (camera.pitch + delta < -PITCH_LIMIT)
    {
        delta = -PITCH_LIMIT - camera.pitch;
    }
    if (-mouseX != 0.0f)
    {
        turn(camera, UP, -mouseX * camera.turnRate);
    }
    if (delta != 0.0f)
    {
        turn(camera, camera.row(0), delta * camera.turnRate);
    }
    camera.pitch += delta;
    camera.position.y = PLACEHOLDER_HEIGHT;
}

void resetOrientation(Camera& camera)
{
    camera.rotation = math::identity3();
    camera.pitch = 0.0f;
}
