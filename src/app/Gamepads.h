// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

struct _SDL_GameController;
typedef struct _SDL_GameController SDL_GameController;

// The game controllers plugged in: any SDL knows, from its own mapping database or from
// SDL_GAMECONTROLLERCONFIG. Pads come and go while the game runs; each arrival and departure
// prints one line. The sticks of every pad add up. Needs SDL's game controller subsystem.
class Gamepads
{
public:
    Gamepads() = default;
    ~Gamepads(); // closes the pads still open
    Gamepads(const Gamepads&) = delete;
    Gamepads& operator=(const Gamepads&) = delete;

    // SDL_CONTROLLERDEVICEADDED: opens the pad at DEVICEINDEX.
    void add(int deviceIndex);
    // SDL_CONTROLLERDEVICEREMOVED: closes the pad with joystick instance INSTANCEID.
    void remove(int instanceId);
    bool empty() const { return pads.empty(); }

    // What the sticks ask for, each -1..1 after the dead zone. Walk: forward (left stick up
    // positive) and strafe (right positive); look: x right and y down, as the mouse moves.
    float forward() const;
    float strafe() const;
    float lookX() const;
    float lookY() const;

private:
    float axis(int which) const; // summed over the pads, clamped to -1..1

    std::vector<SDL_GameController*> pads;
};

// Scales a raw stick value (-32768..32767) to -1..1, with the DEADZONE (a fraction of the full
// range) around the centre reading 0 and the rest stretched so motion starts smoothly.
float stickValue(int raw, float deadZone);
