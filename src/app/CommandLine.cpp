// SPDX-License-Identifier: MIT
#include "app/CommandLine.h"

#include "core/DataPath.h"
#include "core/SettingsFile.h"

#include <SDL.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{
#ifndef BLOTCH_VERSION
#define BLOTCH_VERSION "unknown"
#endif
const char* const VERSION = BLOTCH_VERSION; // the CMake project's version

const char* const KEYS = "Keys:\n"
                         "  Return            start a match (on the title screen)\n"
                         "  W A S D, arrows   walk\n"
                         "  mouse             look\n"
                         "  left button       throw a paint ball\n"
                         "  R                 level the view again\n"
                         "  M                 music off and on\n"
                         "  F1                help row with the graphics switches\n"
                         "  F2                frame rate and game time\n"
                         "  F3                wireframe\n"
                         "  F4 / F5           texture quality / mipmap filter\n"
                         "  F6                vertex buffers\n"
                         "  F7                motion blur\n"
                         "  F8                view-frustum culling\n"
                         "  F9                transparency\n"
                         "  F11, Alt+Return   fullscreen and back\n"
                         "  F12               save a screenshot in the pictures folder\n"
                         "  Escape            quit\n"
                         "\n"
                         "Gamepad: left stick walks, right stick looks, right trigger or\n"
                         "A throws, Start starts a match, Back quits, the d-pad moves the\n"
                         "menu cursor. Switching to another window pauses a match.\n";

// FACTOR as the sensitivity option takes it; false when it is no number in range.
bool readSensitivity(const char* text, float& factor)
{
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, factor);
    return *text && error == std::errc() && stop == end &&
           factor >= settingsfile::MIN_SENSITIVITY && factor <= settingsfile::MAX_SENSITIVITY;
}
} // namespace

CommandLine parseCommandLine(int argc, const char* const* argv)
{
    CommandLine line;
    bool optionsEnded = false; // after "--" a name that starts with '-' is a level file
    for (int i = 1; i < argc; ++i)
    {
        const char* arg = argv[i];
        if (!optionsEnded && std::strcmp(arg, "--") == 0)
        {
            optionsEnded = true;
        }
        else if (!optionsEnded && (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0))
        {
            line.action = CommandLine::Action::Help;
            return line;
        }
        else if (!optionsEnded && std::strcmp(arg, "--version") == 0)
        {
            line.action = CommandLine::Action::Version;
            return line;
        }
        else if (!optionsEnded && std::strcmp(arg, "--reset-settings") == 0)
        {
            line.resetSettings = true;
        }
        else if (!optionsEnded && std::strcmp(arg, "--sensitivity") == 0)
        {
            if (i + 1 >= argc || !readSensitivity(argv[i + 1], line.sensitivity))
            {
                line.action = CommandLine::Action::Misuse;
                line.problem = "--sensitivity takes a factor from 0.05 to 5";
                return line;
            }
            ++i;
        }
        else if (!optionsEnded && arg[0] == '-' && arg[1] != '\0')
        {
            line.action = CommandLine::Action::Misuse;
            line.problem = std::string("unknown option '") + arg + "'";
            return line;
        }
        else if (!line.levelFile.empty() || arg[0] == '\0')
        {
            line.action = CommandLine::Action::Misuse;
            line.problem = arg[0] == '\0' ? "an empty level file name" : "more than one level file";
            return line;
        }
        else
        {
            line.levelFile = arg;
        }
    }
    return line;
}

void printUsage(std::FILE* out)
{
    std::fprintf(out, "Usage: blotch [LEVEL] [--sensitivity FACTOR] [--reset-settings]\n"
                      "       blotch --help | --version\n"
                      "\n"
                      "  LEVEL                 play this level file (.fbx, .glb or .gltf)\n"
                      "                        instead of the shipped one\n"
                      "  --sensitivity FACTOR  mouse and stick look speed for this run, 0.05 to\n"
                      "                        5 times the usual\n"
                      "  --reset-settings      start from the default settings\n"
                      "  -h, --help            show the keys, the settings file and where the\n"
                      "                        game looks for its data\n"
                      "  --version             show the version\n");
}

void printHelp()
{
    std::printf("Blotch %s: walk a level that turns white, and throw paint to see it again.\n\n",
                VERSION);
    printUsage(stdout);
    std::printf("\nA level is an FBX file (binary or ASCII; its last mesh is played, triangulated)\n"
                "or a glTF 2.0 file (.glb, or .gltf with its buffers; every triangle primitive\n"
                "of the default scene, node transforms applied), in metres with Y up. The player\n"
                "starts at (2, 5, 3) and the match ends when the eye falls below a height of 4.\n"
                "\n"
                "Progress and errors go to standard error; the level's import report and its\n"
                "vertex count to standard output.\n\n%s",
                KEYS);

    std::printf("\nSettings: the function keys' switches, fullscreen, the window size, the\n"
                "mouse sensitivity, invert-y and the music and effects volumes are kept in\n"
                "  %s\n"
                "($XDG_CONFIG_HOME/blotch/settings.ini, ~/.config when unset).\n",
                settingsfile::defaultPath().c_str());

    std::string exeDir;
    if (char* base = SDL_GetBasePath())
    {
        exeDir = base;
        SDL_free(base);
    }
    const char* environment = std::getenv("BLOTCH_DATA");
    const bool set = environment && *environment;
    std::printf("\nData: the first of these folders that holds the game's data:\n");
    if (!set)
    {
        std::printf("  $BLOTCH_DATA (not set)\n");
    }
    const std::vector<std::string> places = dataSearchOrder(environment, exeDir);
    for (size_t i = 0; i < places.size(); ++i)
    {
        const bool last = i + 1 == places.size(); // the working directory's, always tried
        std::printf("  %s%s%s\n", set && i == 0 ? "$BLOTCH_DATA = " : "", places[i].c_str(),
                    last ? " (in the working directory)" : "");
    }
}

void printVersion()
{
    std::printf("blotch %s\n", VERSION);
}
