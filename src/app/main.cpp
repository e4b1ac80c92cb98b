#include "app/CommandLine.h"
#include "app/Game.h"
#include "core/DataPath.h"

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

#if defined(__SANITIZE_ADDRESS__)
#define BLOTCH_OWN_CRASH_REPORT 0 // the sanitizer's own report says more
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BLOTCH_OWN_CRASH_REPORT 0
#endif
#endif
#ifndef BLOTCH_OWN_CRASH_REPORT
#define BLOTCH_OWN_CRASH_REPORT 1
#endif

const int FATAL_SIGNALS[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};
const int MAX_FRAMES = 64;

void say(const char* text)
{
    ssize_t ignored = write(STDERR_FILENO, text, std::strlen(text));
    (void)ignored;
}

// A crash names its signal and prints the call stack on standard error, then ends the game as
// the signal would have. Only calls that are safe in a signal handler, and no allocation: the
// heap may be what broke.
void reportCrash(int signal)
{
    const char* name = signal == SIGSEGV   ? "SIGSEGV"
                       : signal == SIGABRT ? "SIGABRT"
                       : signal == SIGBUS  ? "SIGBUS"
                       : signal == SIGFPE  ? "SIGFPE"
                                           : "SIGILL";
    say("[CRASH] blotch stopped on ");
    say(name);
    say(", called from:\n");
    void* frames[MAX_FRAMES];
    backtrace_symbols_fd(frames, backtrace(frames, MAX_FRAMES), STDERR_FILENO);
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void installCrashReport()
{
    if (!BLOTCH_OWN_CRASH_REPORT)
    {
        return;
    }
    // The first backtrace loads the unwinder, which allocates: do it now, not in the handler.
    void* frames[1];
    backtrace(frames, 1);
    for (int signal : FATAL_SIGNALS)
    {
        std::signal(signal, reportCrash);
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
