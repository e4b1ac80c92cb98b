// SPDX-License-Identifier: MIT
// How long cutting one paint splat takes: the level's collision tree finds the triangles near the
// hit, against a scan of every triangle. Terrain levels of 10k, 100k and 1M triangles of about
// 1 m; 1,000 random hits each. Prints the median CPU time per hit; the last line is
// "tri1m_us=A scan1m_us=B" for the 1M-triangle level. An optional argument times the scan on only
// that many of the hits (a scan of 1M triangles takes a good part of a second).
#include "physics/PhysicsWorld.h"
#include "scene/Level.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

namespace
{
const int HITS = 1000;

struct Hit
{
    Vec3 point;
    Vec3 normal;
};

// An N x N grid of 1 m cells, two triangles each, over gently rolling hills.
std::unique_ptr<Level> terrain(int triangles, std::vector<float>& copy)
{
    const int n = static_cast<int>(std::sqrt(triangles / 2.0));
    auto height = [](float x, float z) { return 2.0f * std::sin(x * 0.13f) * std::cos(z * 0.11f); };
    copy.clear();
    copy.reserve(static_cast<size_t>(n) * n * 24);
    for (int i = 0; i < n; ++i)
    {
        for (int j = 0; j < n; ++j)
        {
            const float x0 = i, x1 = i + 1, z0 = j, z1 = j + 1;
            const float corners[4][3] = {{x0, height(x0, z0), z0},
                                         {x0, height(x0, z1), z1},
                                         {x1, height(x1, z1), z1},
                                         {x1, height(x1, z0), z0}};
            for (int k : {0, 1, 2, 0, 2, 3})
            {
                copy.insert(copy.end(), {corners[k][0], corners[k][1], corners[k][2], 1.0f});
            }
        }
    }
    const int count = static_cast<int>(copy.size() / 4);
    auto vertices = std::make_unique<float[]>(copy.size());
    std::copy(copy.begin(), copy.end(), vertices.get());
    auto level = std::make_unique<Level>();
    level->setMesh(std::move(vertices), std::make_unique<float[]>(count * 3),
                   std::make_unique<float[]>(count * 2), count);
    level->buildPhysics();
    return level;
}

std::vector<Hit> randomHits(const std::vector<float>& v, std::mt19937& random)
{
    const int triangles = static_cast<int>(v.size() / 12);
    std::uniform_int_distribution<int> pick(0, triangles - 1);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::vector<Hit> hits;
    for (int i = 0; i < HITS; ++i)
    {
        const float* t = v.data() + static_cast<size_t>(pick(random)) * 12;
        float a = unit(random), b = unit(random);
        if (a + b > 1.0f)
        {
            a = 1.0f - a;
            b = 1.0f - b;
        }
        const Vec3 p{t[0] + a * (t[4] - t[0]) + b * (t[8] - t[0]),
                     t[1] + a * (t[5] - t[1]) + b * (t[9] - t[1]),
                     t[2] + a * (t[6] - t[2]) + b * (t[10] - t[2])};
        hits.push_back({p, math::cross({t[4] - t[0], t[5] - t[1], t[6] - t[2]},
                                       {t[8] - t[0], t[9] - t[1], t[10] - t[2]})});
    }
    return hits;
}

// This thread's CPU time in microseconds: other work on a shared machine does not count.
double cpuMicroseconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_nsec) / 1e3;
}

// Median microseconds (CPU) per hit; POLYGONS counts what was cut, so the work cannot be skipped.
double medianMicroseconds(const Level& level, const std::vector<Hit>& hits, size_t count, bool tree,
                          size_t& polygons)
{
    std::vector<double> times;
    for (size_t i = 0; i < std::min(count, hits.size()); ++i)
    {
        const Hit& hit = hits[i];
        const double start = cpuMicroseconds();
        polygons += level.cutSplat(hit.point, hit.normal, tree).size();
        times.push_back(cpuMicroseconds() - start);
    }
    std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
    return times[times.size() / 2];
}
} // namespace

int main(int argc, char** argv)
{
    const size_t scanHits = argc > 1 ? static_cast<size_t>(std::max(1, std::atoi(argv[1]))) : HITS;
    std::mt19937 random(7);
    double tree1m = 0.0, scan1m = 0.0;
    for (int triangles : {10000, 100000, 1000000})
    {
        std::vector<float> copy;
        std::unique_ptr<Level> level = terrain(triangles, copy);
        const std::vector<Hit> hits = randomHits(copy, random);
        // The same hits both ways must cut the same pieces.
        size_t treePolygons = 0, scanPolygons = 0, allPolygons = 0;
        medianMicroseconds(*level, hits, scanHits, true, treePolygons);
        const double scan = medianMicroseconds(*level, hits, scanHits, false, scanPolygons);
        const double tree = medianMicroseconds(*level, hits, hits.size(), true, allPolygons);
        std::printf("%d triangles: tree %.2f us (%zu hits), scan %.1f us (%zu hits): %.0fx\n",
                    level->getVertexCount() / 3, tree, hits.size(), scan,
                    std::min(scanHits, hits.size()), scan / tree);
        if (treePolygons != scanPolygons)
        {
            std::printf("MISMATCH: the tree and the scan cut different splats\n");
            return 1;
        }
        if (triangles == 1000000)
        {
            tree1m = tree;
            scan1m = scan;
        }
        level.reset();
        PhysicsWorld::destroy();
    }
    std::printf("tri1m_us=%.2f scan1m_us=%.1f\n", tree1m, scan1m);
    return 0;
}
