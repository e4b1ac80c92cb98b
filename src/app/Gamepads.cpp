// SPDX-License-Identifier: MIT
#include "app/Gamepads.h"

#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{
// Worn sticks rest a little off centre; below this they mean nothing.
const float DEAD_ZONE = 0.24f;
const float AXIS_RANGE = 32767.0f;

const char* padName(SDL_GameController* pad)
{
    const char* name = SDL_GameControllerName(pad);
    return name ? name : "unnamed";
}
} // namespace

float stickValue(int raw, float deadZone)
{
    const float value = std::clamp(static_cast<float>(raw) / AXIS_RANGE, -1.0f, 1.0f);
    const float magnitude = std::fabs(value);
    if (magnitude <= deadZone)
    {
        return 0.0f;
    }
    return std::copysign((magnitude - deadZone) / (1.0f - deadZone), value);
}

Gamepads::~Gamepads()
{
    for (SDL_GameController* pad : pads)
    {
        SDL_GameControllerClose(pad);
    }
}

void Gamepads::add(int deviceIndex)
{
    const SDL_JoystickID id = SDL_JoystickGetDeviceInstanceID(deviceIndex);
    for (SDL_GameController* pad : pads)
    {
        if (SDL_JoystickInstanceID(SDL_GameControllerGetJoystick(pad)) == id)
        {
            return; // SDL announces the pads present at start; one may already be open
        }
    }
    SDL_GameController* pad = SDL_GameControllerOpen(deviceIndex);
    if (!pad)
    {
        std::fprintf(stderr, "[ERROR] Could not open the gamepad: %s\n", SDL_GetError());
        return;
    }
    pads.push_back(pad);
    std::fprintf(stderr, "Gamepad connected: %s\n", padName(pad));
}

void Gamepads::remove(int instanceId)
{
    for (auto it = pads.begin(); it != pads.end(); ++it)
    {
        if (SDL_JoystickInstanceID(SDL_GameControllerGetJoystick(*it)) == instanceId)
        {
            std::fprintf(stderr, "Gamepad disconnected: %s\n", padName(*it));
            SDL_GameControllerClose(*it);
            pads.erase(it);
            return;
        }
    }
}

float Gamepads::axis(int which) const
{
    float sum = 0.0f;
    for (SDL_GameController* pad : pads)
    {
        sum += stickValue(
            SDL_GameControllerGetAxis(pad, static_cast<SDL_GameControllerAxis>(which)), DEAD_ZONE);
    }
    return std::clamp(sum, -1.0f, 1.0f);
}

float Gamepads::forward() const
{
    return -axis(SDL_CONTROLLER_AXIS_LEFTY); // the stick's y grows downwards
}

float Gamepads::strafe() const
{
    return axis(SDL_CONTROLLER_AXIS_LEFTX);
}

float Gamepads::lookX() const
{
    return axis(SDL_CONTROLLER_AXIS_RIGHTX);
}

float Gamepads::lookY() const
{
    return axis(SDL_CONTROLLER_AXIS_RIGHTY);
}
