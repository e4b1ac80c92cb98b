#include "app/CommandLine.h"
#include "app/Game.h"
#include "core/DataPath.h"

#include <cstdio>
#include <memory>

namespace
{
const int MISUSE_STATUS = 2; // as other command-line programs answer a bad command line
const char* const FAILED_START = "Could not initialize Blotch - MAJOR PROBLEM";
} // namespace

int main(int argc, char** argv)
{
    const CommandLine line = parseCommandLine(argc, argv);
    switch (line.action)
    {
    case CommandLine::Action::Help:
        printHelp();
        return 0;
    case CommandLine::Action::Version:
        printVersion();
        return 0;
    case CommandLine::Action::Misuse:
        std::fprintf(stderr, "blotch: %s\n", line.problem.c_str());
        printUsage(stderr);
        return MISUSE_STATUS;
    case CommandLine::Action::Play:
        break;
    }

    // Without its data the game would open a window that draws nothing: fail as any start does.
    if (!locateData())
    {
        std::fprintf(stderr, "%s", FAILED_START);
        return 0;
    }
    auto game =
        line.levelFile.empty() ? std::make_unique<Game>() : std::make_unique<Game>(line.levelFile);
    if (game->init())
    {
        std::fprintf(stderr, "[SUCCESS] - Successfully started Main Loop\n");
        game->run();
    }
    else
    {
        std::fprintf(stderr, "%s", FAILED_START); // no line break: the text stands as it is
    }
    game.reset(); // also after a failed start: tears down whatever was built
    return 0;
}
