// SPDX-License-Identifier: MIT
#include "app/VirtualPad.h"

#include <SDL.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace
{
const char* const PAD_NAME = "Blotch virtual pad";
// The virtual joystick's inputs are numbered as the game controller API numbers its own, and
// this mapping says so.
const char* const MAPPING =
    "a:b0,b:b1,x:b2,y:b3,back:b4,guide:b5,start:b6,leftstick:b7,rightstick:b8,"
    "leftshoulder:b9,rightshoulder:b10,dpup:b11,dpdown:b12,dpleft:b13,dpright:b14,"
    "leftx:a0,lefty:a1,rightx:a2,righty:a3,lefttrigger:a4,righttrigger:a5";
} // namespace

std::unique_ptr<VirtualPad> VirtualPad::fromEnvironment()
{
    const char* path = std::getenv("BLOTCH_VIRTUAL_PAD");
    if (!path || !*path)
    {
        return nullptr;
    }
    // Non-blocking: a pipe without a writer yet must not hold up the start.
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
    {
        std::fprintf(stderr, "[ERROR] BLOTCH_VIRTUAL_PAD: cannot open %s: %s\n", path,
                     std::strerror(errno));
        return nullptr;
    }
    return std::unique_ptr<VirtualPad>(new VirtualPad(fd));
}

VirtualPad::VirtualPad(int fd) : fd(fd) {}

VirtualPad::~VirtualPad()
{
    detach();
    close(fd);
}

void VirtualPad::poll()
{
    char buffer[1024];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof(buffer))) > 0)
    {
        pending.append(buffer, static_cast<size_t>(n));
    }
    for (size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n'))
    {
        const std::string line = pending.substr(0, end);
        pending.erase(0, end + 1);
        run(line);
    }
}

void VirtualPad::run(const std::string& line)
{
    std::istringstream words(line);
    std::string command, name;
    int value = 0;
    words >> command;
    if (command == "attach")
    {
        attach();
    }
    else if (command == "detach")
    {
        detach();
    }
    else if (command == "axis" && words >> name >> value && joystick)
    {
        const SDL_GameControllerAxis axis = SDL_GameControllerGetAxisFromString(name.c_str());
        if (axis != SDL_CONTROLLER_AXIS_INVALID)
        {
            SDL_JoystickSetVirtualAxis(joystick, axis, static_cast<Sint16>(value));
            // Each change becomes its events now: a press and a release read together must
            // not cancel out before SDL looks at the pad.
            SDL_JoystickUpdate();
            return;
        }
        std::fprintf(stderr, "[ERROR] BLOTCH_VIRTUAL_PAD: no axis '%s'\n", name.c_str());
    }
    else if (command == "button" && words >> name >> value && joystick)
    {
        const SDL_GameControllerButton button = SDL_GameControllerGetButtonFromString(name.c_str());
        if (button != SDL_CONTROLLER_BUTTON_INVALID)
        {
            SDL_JoystickSetVirtualButton(joystick, button, value ? SDL_PRESSED : SDL_RELEASED);
            SDL_JoystickUpdate();
            return;
        }
        std::fprintf(stderr, "[ERROR] BLOTCH_VIRTUAL_PAD: no button '%s'\n", name.c_str());
    }
    else if (!command.empty())
    {
        std::fprintf(stderr, "[ERROR] BLOTCH_VIRTUAL_PAD: cannot do '%s'%s\n", line.c_str(),
                     joystick ? "" : " (no pad attached)");
    }
}

void VirtualPad::attach()
{
    if (joystick)
    {
        return;
    }
    SDL_VirtualJoystickDesc desc{};
    desc.version = SDL_VIRTUAL_JOYSTICK_DESC_VERSION;
    desc.type = SDL_JOYSTICK_TYPE_GAMECONTROLLER;
    desc.naxes = SDL_CONTROLLER_AXIS_MAX;
    desc.nbuttons = SDL_CONTROLLER_BUTTON_MAX;
    desc.name = PAD_NAME;
    const int index = SDL_JoystickAttachVirtualEx(&desc);
    if (index < 0)
    {
        std::fprintf(stderr, "[ERROR] BLOTCH_VIRTUAL_PAD: %s\n", SDL_GetError());
        return;
    }
    char guid[64];
    SDL_JoystickGetGUIDString(SDL_JoystickGetDeviceGUID(index), guid, sizeof(guid));
    const std::string mapping = std::string(guid) + "," + PAD_NAME + "," + MAPPING;
    SDL_GameControllerAddMapping(mapping.c_str());
    // The game opens it as a controller on SDL's device-added event; this handle only feeds it.
    joystick = SDL_JoystickOpen(index);
}

void VirtualPad::detach()
{
    if (!joystick)
    {
        return;
    }
    const SDL_JoystickID id = SDL_JoystickInstanceID(joystick);
    SDL_JoystickClose(joystick);
    joystick = nullptr;
    for (int i = 0; i < SDL_NumJoysticks(); ++i)
    {
        if (SDL_JoystickGetDeviceInstanceID(i) == id)
        {
            SDL_JoystickDetachVirtual(i);
            return;
        }
    }
}
