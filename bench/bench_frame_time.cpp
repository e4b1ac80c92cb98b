// SPDX-License-Identifier: MIT
// Frame time of the playing state on the shipped level with 0 to 10,000 paint splats, from the
// start position (the splats lie all over the level; those out of view are culled). Runs the
// real game in a window: needs an X display. Prints the median and 90th percentile per frame, and
// the same with frustum culling off, to show where the time goes, then the frame with motion blur
// on. The last line is "frame2000_ms=A frame10000_ms=B kb_per_splat=C": the median frames with
// culling on, and how much resident memory the process grew per splat from 1,000 to 10,000.
#include "app/Game.h"
#include "core/Settings.h"
#include "scene/Level.h"

#include <GL/glew.h>
#include <SDL.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <unistd.h>
#include <vector>

namespace
{
const int FRAMES = 120;

struct Timing
{
    double median = 0.0;
    double p90 = 0.0;
};

Timing timeFrames(Game& game)
{
    std::vector<double> ms;
    for (int i = 0; i < FRAMES; ++i)
    {
        const auto start = std::chrono::steady_clock::now();
        game.frame();
        glFinish(); // count the rendering, not just the submission
        ms.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count());
    }
    std::sort(ms.begin(), ms.end());
    return {ms[ms.size() / 2], ms[ms.size() * 9 / 10]};
}

// The process's resident memory in KiB.
double residentKb()
{
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024.0;
}

// Paints the level at random points of random triangles until it holds COUNT decals; returns
// how many polygons were added.
size_t paintUpTo(Level& level, size_t count, std::mt19937& random)
{
    size_t polygons = 0;
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
        polygons += level.cutSplat(p, n).size();
        level.paintHit(p, n, colours[level.splatCount() % 4]);
    }
    return polygons;
}
} // namespace

int main()
{
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
    std::printf("decals  polygons  culled: median / p90 ms   not culled: median / p90 ms\n");
    size_t polygons = 0;
    double frame2000 = 0.0, frame10000 = 0.0, kb1000 = 0.0, kb10000 = 0.0;
    for (size_t decals : {size_t(0), size_t(500), size_t(1000), size_t(2000), size_t(10000)})
    {
        polygons += paintUpTo(*game.getLevel(), decals, random);
        const Timing culled = timeFrames(game);
        Settings::instance().toggle("frustum");
        const Timing all = timeFrames(game);
        Settings::instance().toggle("frustum");
        std::printf("%6zu  %8zu  %8.2f / %6.2f          %8.2f / %6.2f\n",
                    game.getLevel()->splatCount(), polygons, culled.median, culled.p90, all.median,
                    all.p90);
        std::fflush(stdout);
        // Memory after drawing: the driver may allocate on first use.
        if (decals == 1000)
        {
            kb1000 = residentKb();
        }
        else if (decals == 2000)
        {
            frame2000 = culled.median;
        }
        else if (decals == 10000)
        {
            frame10000 = culled.median;
            kb10000 = residentKb();
        }
    }
    // The same view through the motion-blur passes (culling on, all the decals above).
    Settings::instance().toggle("motionblur");
    const Timing blurred = timeFrames(game);
    Settings::instance().toggle("motionblur");
    std::printf("motion blur on, %zu decals: %.2f / %.2f ms\n", game.getLevel()->splatCount(),
                blurred.median, blurred.p90);
    std::printf("frame2000_ms=%.2f frame10000_ms=%.2f kb_per_splat=%.2f\n", frame2000, frame10000,
                (kb10000 - kb1000) / 9000.0);
    return 0;
}
