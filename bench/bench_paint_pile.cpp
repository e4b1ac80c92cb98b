// SPDX-License-Identifier: MIT
// Frame time of the playing state when the paint is heaped where the player looks, as an hour of
// throwing from one walk leaves it: 0 to 12,000 splats, all at points of the level in view within
// a few metres of the start position, so most of them are drawn every frame and overlap deeply.
// Runs the real game in a window: needs an X display. Prints the median and 90th percentile per
// frame for each count; the last line is "pile3000_ms=A pile12000_ms=B fps12000=C".
#include "app/Game.h"
#include "core/Settings.h"
#include "scene/Frustum.h"
#include "scene/Level.h"

#include <GL/glew.h>
#include <SDL.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

namespace
{
const int FRAMES = 60;
const float REACH = 12.0f; // how far from the eye the splats land, level units

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

Vec3 eyeOf(const Mat4& view)
{
    const float* m = view.data();
    const Vec3 t{m[12], m[13], m[14]};
    return {-(m[0] * t.x + m[1] * t.y + m[2] * t.z), -(m[4] * t.x + m[5] * t.y + m[6] * t.z),
            -(m[8] * t.x + m[9] * t.y + m[10] * t.z)};
}

// The level's triangles that face the eye, lie in view and come within REACH of it.
std::vector<int> trianglesInView(const Level& level)
{
    const Frustum& frustum = Frustum::instance();
    const Vec3 eye = eyeOf(frustum.view);
    const float* v = level.getVertices();
    std::vector<int> near;
    for (int i = 0; i < level.getVertexCount() / 3; ++i)
    {
        const float* t = v + static_cast<size_t>(i) * 12;
        const Vec3 c{(t[0] + t[4] + t[8]) / 3, (t[1] + t[5] + t[9]) / 3,
                     (t[2] + t[6] + t[10]) / 3};
        const Vec3 n = math::cross({t[4] - t[0], t[5] - t[1], t[6] - t[2]},
                                   {t[8] - t[0], t[9] - t[1], t[10] - t[2]});
        const Vec3 toEye{eye.x - c.x, eye.y - c.y, eye.z - c.z};
        const float d = std::sqrt(toEye.x * toEye.x + toEye.y * toEye.y + toEye.z * toEye.z);
        const float margin = 0.05f;
        if (d < REACH && n.x * toEye.x + n.y * toEye.y + n.z * toEye.z > 0.0f &&
            frustum.isVisible(Bounds::fromMinMax({c.x - margin, c.y - margin, c.z - margin},
                                                 {c.x + margin, c.y + margin, c.z + margin})))
        {
            near.push_back(i);
        }
    }
    return near;
}

void paintUpTo(Level& level, const std::vector<int>& triangles, size_t count, std::mt19937& random)
{
    const float* v = level.getVertices();
    std::uniform_int_distribution<size_t> pick(0, triangles.size() - 1);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const Vec4 colours[4] = {
        {1, 0.617f, 0, 1}, {0.604f, 1, 0, 1}, {0.988f, 0, 1, 1}, {0, 0.918f, 1, 1}};
    while (level.splatCount() < count)
    {
        const float* t = v + static_cast<size_t>(triangles[pick(random)]) * 12;
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
}
} // namespace

int main()
{
    setenv("SDL_AUDIODRIVER", "no-such-audio-driver", 1); // thousands of splashes at once
    Game game;
    if (!game.init())
    {
        std::fprintf(stderr, "bench_paint_pile needs an X display with GL 3.2\n");
        return 1;
    }
    game.loadMatch();
    Settings::instance().cycle("gamestate");
    if (!game.getLevel())
    {
        std::fprintf(stderr,
                     "bench_paint_pile: the level did not load (run it from the repository)\n");
        return 1;
    }
    for (int i = 0; i < 10; ++i)
    {
        game.frame();
    }
    SDL_Delay(3100); // past the lit start: the flat pass is what a match mostly draws

    const std::vector<int> triangles = trianglesInView(*game.getLevel());
    if (triangles.empty())
    {
        std::fprintf(stderr, "bench_paint_pile: nothing of the level in view\n");
        return 1;
    }
    std::mt19937 random(7);
    std::printf("%zu level triangles in reach\ndecals  median / p90 ms\n", triangles.size());
    double pile3000 = 0.0, pile12000 = 0.0;
    for (size_t decals : {size_t(0), size_t(1000), size_t(3000), size_t(6000), size_t(12000)})
    {
        paintUpTo(*game.getLevel(), triangles, decals, random);
        const Timing t = timeFrames(game);
        std::printf("%6zu  %8.2f / %6.2f\n", game.getLevel()->splatCount(), t.median, t.p90);
        std::fflush(stdout);
        if (decals == 3000)
        {
            pile3000 = t.median;
        }
        else if (decals == 12000)
        {
            pile12000 = t.median;
        }
    }
    std::printf("pile3000_ms=%.2f pile12000_ms=%.2f fps12000=%.1f\n", pile3000, pile12000,
                1000.0 / pile12000);
    return 0;
}
