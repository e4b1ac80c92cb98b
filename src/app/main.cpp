// SPDX-License-Identifier: MIT
#include "app/CommandLine.h"
#include "app/Game.h"
#include "core/DataPath.h"
#include "core/SettingsFile.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include <execinfo.h>
#include <unistd.h>

namespace
{
const int MISUSE_STATUS = 2; // as other command-line programs answer a bad command line
const char* const FAILED_START = "Could not initialize Blotch - MAJOR PROBLEM";

struct FatalSignal
{
    int number;
    const char* name;
};
const FatalSignal FATAL_SIGNALS[] = {{SIGSEGV, "SIGSEGV"},
                                     {SIGABRT, "SIGABRT"},
                                     {SIGBUS, "SIGBUS"},
                                     {SIGFPE, "SIGFPE"},
                                     {SIGILL, "SIGILL"}};
const int MAX_FRAMES = 64;
// The report runs on a stack of its own, so a stack that overflowed is reported too.
alignas(16) char crashStack[64 * 1024];

void say(const char* text)
{
    ssize_t ignored = write(STDERR_FILENO, text, std::strlen(text));
    (void)ignored;
}

// A crash names its signal and prints the call stack on standard error, then ends the game as
// the signal would have (the handler is reset on entry). Only calls that are safe in a signal
// handler, and no allocation: the heap may be what broke.
void reportCrash(int number)
{
    say("[CRASH] blotch stopped on ");
    for (const FatalSignal& fatal : FATAL_SIGNALS)
    {
        if (fatal.number == number)
        {
            say(fatal.name);
        }
    }
    say(", called from:\n");
    void* frames[MAX_FRAMES];
    backtrace_symbols_fd(frames, backtrace(frames, MAX_FRAMES), STDERR_FILENO);
    raise(number);
}

void installCrashReport()
{
#ifdef BLOTCH_SANITIZED
    return; // the sanitizers' own report says more
#endif
    // The first backtrace loads the unwinder, which allocates: do it now, not in the handler.
    void* frames[1];
    backtrace(frames, 1);
    stack_t stack{};
    stack.ss_sp = crashStack;
    stack.ss_size = sizeof(crashStack);
    sigaltstack(&stack, nullptr);
    struct sigaction action
    {
    };
    action.sa_handler = reportCrash;
    action.sa_flags = SA_ONSTACK | SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    for (const FatalSignal& fatal : FATAL_SIGNALS)
    {
        sigaction(fatal.number, &action, nullptr);
    }
}
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

    installCrashReport();
    // Without its data the game would open a window that draws nothing: fail as any start does.
    if (!locateData())
    {
        std::fprintf(stderr, "%s", FAILED_START);
        return 0;
    }
    auto game =
        line.levelFile.empty() ? std::make_unique<Game>() : std::make_unique<Game>(line.levelFile);
    game->rememberSettings(settingsfile::defaultPath(), line.resetSettings, line.sensitivity);
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
