// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

struct _SDL_Joystick;
typedef struct _SDL_Joystick SDL_Joystick;

// A test switch: BLOTCH_VIRTUAL_PAD=PATH makes the game play a virtual controller that SDL
// handles as any real one (its own events, the game controller API, plug and unplug). The
// commands come one a line from PATH, a pipe or a file that grows:
//   attach | detach
//   axis NAME VALUE     NAME as SDL names controller axes (leftx, righty, righttrigger, ...),
//                       VALUE -32768..32767
//   button NAME 0|1     NAME as SDL names controller buttons (a, start, back, dpdown, ...)
// A line that is not understood is reported and skipped.
class VirtualPad
{
public:
    // The pad BLOTCH_VIRTUAL_PAD asks for; null when it is unset or its file cannot be opened
    // (said on standard error). Needs SDL's game controller subsystem.
    static std::unique_ptr<VirtualPad> fromEnvironment();
    ~VirtualPad();
    VirtualPad(const VirtualPad&) = delete;
    VirtualPad& operator=(const VirtualPad&) = delete;

    // Carries out the commands that have arrived since the last call; never waits.
    void poll();

private:
    explicit VirtualPad(int fd);
    void run(const std::string& line);
    void attach();
    void detach();

    int fd;
    std::string pending;              // the start of a line still being written
    SDL_Joystick* joystick = nullptr; // while attached
};
