// SPDX-License-Identifier: MIT
// bench_match_build LEVEL.fbx [RUNS]
//
// How long the player waits between pressing Return on the title screen and the first playing
// frame, stage by stage, on LEVEL.fbx (a big level, e.g. from tools/level/make_bench_level.py) and
// on the shipped level. Each run is a fresh game in a process of its own and a real window (needs
// an X display; run it from the repository, where data/ is): the title screen is drawn, a Return
// key event goes through the game's own event handling, which builds the match, and then one frame
// is drawn and finished. Prints the median of each stage over RUNS runs (5 unless given), with the
// fastest and the slowest run; the last line is
//   build_ms=D shipped_ms=E
// with the median Return-to-first-frame time of LEVEL.fbx and of the shipped level.
#include "app/Game.h"

#include <GL/glew.h>
#include <SDL.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{
const int DEFAULT_RUNS = 5; // a median of five rides out other work on a shared machine
const char* const SHIPPED_LEVEL = "data/fbx/level.fbx"; // what a player gets without a level file

double nowMs()
{
    return static_cast<double>(SDL_GetPerformanceCounter()) * 1000.0 /
           static_cast<double>(SDL_GetPerformanceFrequency());
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Every stage's times over the runs, in the order the stages first ran.
struct StageTimes
{
    std::vector<std::string> order;
    std::map<std::string, std::vector<double>> ms;

    void add(const std::string& name, double value)
    {
        if (!ms.count(name))
        {
            order.push_back(name);
        }
        ms[name].push_back(value);
    }
};

// One Return-to-first-frame on PATH, written to REPORT as "stage<TAB>ms" lines; false when the
// game could not start or build the level.
bool buildOnce(const char* path, FILE* report, FILE* errors)
{
    Game game(path);
    if (!game.init())
    {
        std::fprintf(errors, "bench_match_build needs an X display with GL 3.2\n");
        return false;
    }
    game.frame(); // the title screen, as the player sees it before pressing Return
    glFinish();

    SDL_Event press{};
    press.type = SDL_KEYDOWN;
    press.key.keysym.scancode = SDL_SCANCODE_RETURN;
    press.key.keysym.sym = SDLK_RETURN;
    const double start = nowMs();
    SDL_PushEvent(&press);
    game.handleEvents(); // draws "loading...", builds the match, enters the playing state
    const double built = nowMs();
    game.frame();
    glFinish(); // count the drawing, not just its submission
    const double shown = nowMs();
    if (!game.getLevel())
    {
        std::fprintf(errors, "bench_match_build: %s did not build a level\n", path);
        return false;
    }

    double stages = 0.0;
    for (const BuildStage& stage : game.getBuildStages())
    {
        std::fprintf(report, "%s\t%f\n", stage.name, stage.ms);
        stages += stage.ms;
    }
    std::fprintf(report, "loading screen\t%f\n", built - start - stages);
    std::fprintf(report, "first frame\t%f\n", shown - built);
    std::fprintf(report, "total\t%f\n", shown - start);
    return true;
}

// One build in a process of its own, as a player starts the game: a second build in the same
// process reuses the memory the first one left behind and skips most of its page faults.
bool timeOneBuild(const char* path, StageTimes& times, FILE* errors)
{
    int channel[2];
    if (pipe(channel) != 0)
    {
        std::perror("bench_match_build");
        return false;
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        close(channel[0]);
        FILE* report = fdopen(channel[1], "w");
        const bool ok = report && buildOnce(path, report, errors);
        std::fflush(nullptr);
        _exit(ok ? 0 : 1); // the game's teardown is of no interest here
    }
    close(channel[1]);
    if (child < 0)
    {
        close(channel[0]);
        std::perror("bench_match_build");
        return false;
    }
    FILE* report = fdopen(channel[0], "r");
    char name[64];
    double ms = 0.0;
    while (report && std::fscanf(report, " %63[^\t]\t%lf", name, &ms) == 2)
    {
        times.add(name, ms);
    }
    if (report)
    {
        std::fclose(report);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Median total in ms, or a negative number when a run failed. The table goes to OUT, what went
// wrong to ERRORS.
double benchLevel(const char* path, int runs, FILE* out, FILE* errors)
{
    StageTimes times;
    for (int run = 0; run < runs; ++run)
    {
        if (!timeOneBuild(path, times, errors))
        {
            return -1.0;
        }
    }
    std::fprintf(out, "%s, %d runs:     median ms  (fastest - slowest)\n", path, runs);
    for (const std::string& name : times.order)
    {
        const std::vector<double>& ms = times.ms[name];
        std::fprintf(out, "  %-16s %9.1f  (%.1f - %.1f)\n", name.c_str(), median(ms),
                     *std::min_element(ms.begin(), ms.end()),
                     *std::max_element(ms.begin(), ms.end()));
    }
    std::fflush(out);
    return median(times.ms["total"]);
}
} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3)
    {
        std::fprintf(stderr, "usage: bench_match_build LEVEL.fbx [RUNS]\n");
        return 2;
    }
    const int runs = argc == 3 ? std::max(1, std::atoi(argv[2])) : DEFAULT_RUNS;
    setenv("SDL_AUDIODRIVER", "no-such-audio-driver", 1); // no music over the benchmark

    // The game prints its import report and its loading messages: the table and the
    // benchmark's own errors go to the real streams, the game's output nowhere.
    std::fflush(stdout);
    std::fflush(stderr);
    FILE* out = fdopen(dup(fileno(stdout)), "w");
    FILE* errors = fdopen(dup(fileno(stderr)), "w");
    if (!out || !errors || !std::freopen("/dev/null", "w", stdout) ||
        !std::freopen("/dev/null", "w", stderr))
    {
        std::perror("bench_match_build");
        return 1;
    }
    const double big = benchLevel(argv[1], runs, out, errors);
    const double shipped = big < 0.0 ? -1.0 : benchLevel(SHIPPED_LEVEL, runs, out, errors);
    if (big < 0.0 || shipped < 0.0)
    {
        return 1;
    }
    std::fprintf(out, "build_ms=%.0f shipped_ms=%.0f\n", big, shipped);
    std::fclose(out);
    return 0;
}
