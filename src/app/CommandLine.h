// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>

// What the command line asks for. No argument plays the shipped level, as the game always did.
struct CommandLine
{
    enum class Action
    {
        Play,    // start the game; levelFile may name another level
        Help,    // print the help and exit 0
        Version, // print the version and exit 0
        Misuse   // print the problem and the usage on standard error and exit 2
    };
    Action action = Action::Play;
    std::string levelFile; // empty: the shipped level; else as given, relative to the working dir
    std::string problem;   // for Misuse: what was wrong
    bool resetSettings = false; // start from the defaults, not the remembered settings
    float sensitivity = 0.0f;   // the mouse factor for this run; 0: the remembered one
};

CommandLine parseCommandLine(int argc, const char* const* argv);

// The one-line usage and the option list.
void printUsage(std::FILE* out);
// The usage, the keys and where the data is looked for, on standard output.
void printHelp();
void printVersion();
