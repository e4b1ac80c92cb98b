// SPDX-License-Identifier: MIT
// Frame time of the playing state on the shipped level with 0 to 100,000 paint splats, from the
// start position (the splats lie all over the level). Runs the real game in a window: needs an X
// display. Prints the median and 90th percentile per frame, and the same with frustum culling
// off, the paint map's memory, what a splat costs from the hit to its stamp in the paint map, and
// how long stamping all the paint again takes when "transparency" is switched; then the frame
// with motion blur on. The last line is
// "frame0_ms=A frame10000_ms=B frame100000_ms=C paint_mb=D stamp_us=E": the median frames with
// culling on, the paint map's memory at 100,000 splats in MiB, and the mean microseconds from a
// hit to its stamp over the last 90,000 splats.
#include "app/Game.h"
#include "core/Settings.h"
#include "paint/PaintMap.h"
#include "scene/Level.h"

#include <GL/glew.h>
#include <SDL.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sys/resource.h>
#include <vector>

namespace
{
const int FRAMES = 120;

struct Timing
{
    double median = 0.0;
    double p90 = 0.0;
    double cpu = 0.0; // median processor time of all the process's threads (the renderer's too)
};

double cpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (double(usage.ru_utime.tv_sec) + double(usage.ru_stime.tv_sec)) * 1000.0 +
           (double(usage.ru_utime.tv_usec) + double(usage.ru_stime.tv_usec)) / 1000.0;
}

Timing timeFrames(Game& game)
{
    std::vector<double> ms, cpu;
    for (int i = 0; i < FRAMES; ++i)
    {
        const auto start = std::chrono::steady_clock::now();
        const double cpuStart = cpuMs();
        game.frame();
        glFinish(); // count the rendering, not just the submission
        ms.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count());
        cpu.push_back(cpuMs() - cpuStart);
    }
    std::sort(ms.begin(), ms.end());
    std::sort(cpu.begin(), cpu.end());
    return {ms[ms.size() / 2], ms[ms.size() * 9 / 10], cpu[cpu.size() / 2]};
}

// Paints the level at random points of random triangles until it holds COUNT splats and every
// one is stamped into the paint map; returns the microseconds that took.
double paintUpTo(Level& level, size_t count, std::mt19937& random)
{
    const auto start = std::chrono::steady_clock::now();
    const float* v = level.getVertices();
    std::uniform_int_distribution<int> pick(0, level.getVertexCount() / 3 - 1);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const Vec4 colours[4] = {
        {1, 0.617f, 0, 1}, {0.604f, 1, 0, 1}, {0.988f, 0, 1, 1}, {0, 0.918f, 1, 1}};
    while (level.splatCount() < count)
    {
        const float* t = v + static_cast<size_t>(pick(random)) * 12;
        float a = unit(random), b = unit(random);
        if (a + b > 1.0f)
        {
            a = 1.0f - a;
            b = 1.0f - b;
        }
        const Vec3 p{t[0] + a * (t[4] - t[0]) + b * (t[8] - t[0]),
                     t[1] + a * (t[5] - t[1]) + b * (t[9] - t[1]),
                     t[2] + a * (t[6] - t[2]) + b * (t[10] - t[2])};
        const Vec3 n = math::cross({t[4] - t[0], t[5] - t[1], t[6] - t[2]},
                                   {t[8] - t[0], t[9] - t[1], t[10] - t[2]});
        level.paintHit(p, n, colours[level.splatCount() % 4]);
    }
    while (level.stampedCount() < level.splatCount())
    {
        level.updatePaint();
    }
    glFinish();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
        .count();
}

// Switches "transparency" and stamps everything again, frame by frame as the game does;
// returns the milliseconds until the last splat is back, and the frames that took.
double recomposite(Game& game, int& frames)
{
    Settings::instance().toggle("transparency");
    const auto start = std::chrono::steady_clock::now();
    frames = 0;
    do
    {
        game.frame();
        ++frames;
    } while (game.getLevel()->stampedCount() < game.getLevel()->splatCount());
    glFinish();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}
} // namespace

int main(int argc, char** argv)
{
    // A smaller last step for a quick look: bench_frame_time 10000.
    const size_t most = argc > 1 ? size_t(std::strtoul(argv[1], nullptr, 10)) : 100000;
    setenv("SDL_AUDIODRIVER", "no-such-audio-driver", 1); // thousands of splashes at once
    Game game;
    if (!game.init())
    {
        std::fprintf(stderr, "bench_frame_time needs an X display with GL 3.2\n");
        return 1;
    }
    game.loadMatch();
    Settings::instance().cycle("gamestate");
    if (!game.getLevel())
    {
        std::fprintf(stderr,
                     "bench_frame_time: the level did not load (run it from the repository)\n");
        return 1;
    }
    for (int i = 0; i < 10; ++i)
    {
        game.frame();
    }
    SDL_Delay(3100); // past the lit start: the flat pass is what a match mostly draws

    std::mt19937 random(11);
    std::printf("splats  culled: median / p90 ms (cpu)   not culled: median / p90 ms   paint map MiB\n");
    double frame0 = 0.0, frame10000 = 0.0, frame100000 = 0.0, stampUs = 0.0, paintMb = 0.0;
    for (size_t splats : {size_t(0), size_t(1000), size_t(10000), size_t(100000)})
    {
        if (splats > most)
        {
            break;
        }
        const size_t before = game.getLevel()->splatCount();
        const double us = paintUpTo(*game.getLevel(), splats, random);
        if (splats == 100000)
        {
            stampUs = us / double(splats - before);
        }
        const Timing culled = timeFrames(game);
        Settings::instance().toggle("frustum");
        const Timing all = timeFrames(game);
        Settings::instance().toggle("frustum");
        const PaintMap* map = game.getLevel()->getPaintMap();
        const double mb = map ? double(map->bytes()) / (1024.0 * 1024.0) : 0.0;
        std::printf("%6zu  %8.2f / %6.2f (%6.2f)       %8.2f / %6.2f               %7.1f (%zu of "
                    "%zu pages)\n",
                    game.getLevel()->splatCount(), culled.median, culled.p90, culled.cpu,
                    all.median, all.p90, mb, map ? map->pageCount() : 0,
                    map ? map->pageLimit() : 0);
        if (splats > before)
        {
            std::printf("        %.0f us a splat from the hit to its stamp\n",
                        us / double(splats - before));
        }
        std::fflush(stdout);
        if (splats == 0)
        {
            frame0 = culled.median;
        }
        else if (splats == 10000)
        {
            frame10000 = culled.median;
            int frames = 0;
            const double ms = recomposite(game, frames);
            std::printf("        transparency switched: all 10,000 stamped again in %.0f ms over "
                        "%d frames\n",
                        ms, frames);
            recomposite(game, frames); // and back
        }
        else if (splats == 100000)
        {
            frame100000 = culled.median;
            paintMb = mb;
        }
    }
    // The same view through the motion-blur passes (culling on, all the splats above).
    Settings::instance().toggle("motionblur");
    const Timing blurred = timeFrames(game);
    Settings::instance().toggle("motionblur");
    std::printf("motion blur on, %zu splats: %.2f / %.2f ms\n", game.getLevel()->splatCount(),
                blurred.median, blurred.p90);
    std::printf("frame0_ms=%.2f frame10000_ms=%.2f frame100000_ms=%.2f paint_mb=%.1f "
                "stamp_us=%.0f\n",
                frame0, frame10000, frame100000, paintMb, stampUs);
    return 0;
}
