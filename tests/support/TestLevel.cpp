// SPDX-License-Identifier: MIT
#include "support/TestLevel.h"

#include "import/FbxLoader.h"
#include "scene/Level.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

std::unique_ptr<Level> levelOf(const Triangles& triangles)
{
    const int count = static_cast<int>(triangles.size() / 3);
    auto vertices = std::make_unique<float[]>(count * 4);
    auto normals = std::make_unique<float[]>(count * 3);
    for (int i = 0; i < count; ++i)
    {
        const float* t = &triangles[i / 3 * 9];
        const Vec3 n = math::normalize(math::cross({t[3] - t[0], t[4] - t[1], t[5] - t[2]},
                                                   {t[6] - t[0], t[7] - t[1], t[8] - t[2]}));
        const float normal[3] = {n.x, n.y, n.z};
        std::copy_n(&triangles[i * 3], 3, &vertices[i * 4]);
        vertices[i * 4 + 3] = 1.0f;
        std::copy_n(normal, 3, &normals[i * 3]);
    }
    auto level = std::make_unique<Level>();
    level->setMesh(std::move(vertices), std::move(normals), std::make_unique<float[]>(count * 2),
                   count);
    EXPECT_TRUE(level->buildPhysics());
    return level;
}

std::unique_ptr<Level> shippedLevel()
{
    FbxLoader loader;
    EXPECT_TRUE(loader.load(std::string(BLOTCH_SOURCE_DIR) + "/data/fbx/level.fbx"));
    loader.convertNodes();
    auto level = std::make_unique<Level>();
    level->setMesh(std::move(loader.vertices), std::move(loader.normals), std::move(loader.uvs),
                   loader.vertexCount);
    level->startPhysics();
    EXPECT_TRUE(level->buildPhysics());
    return level;
}

Triangles quad(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d)
{
    return {a.x, a.y, a.z, b.x, b.y, b.z, c.x, c.y, c.z,
            a.x, a.y, a.z, c.x, c.y, c.z, d.x, d.y, d.z};
}

Triangles floorAt(float y, float half)
{
    return quad({-half, y, -half}, {-half, y, half}, {half, y, half}, {half, y, -half});
}

Triangles wallAt(float z)
{
    return quad({-50, 0, z}, {50, 0, z}, {50, 40, z}, {-50, 40, z});
}

Triangles tiles(const Vec3& corner, const Vec3& u, const Vec3& v)
{
    const float nu = std::round(std::sqrt(math::dot(u, u)));
    const float nv = std::round(std::sqrt(math::dot(v, v)));
    const auto at = [&](float s, float t)
    {
        return Vec3{corner.x + s / nu * u.x + t / nv * v.x, corner.y + s / nu * u.y + t / nv * v.y,
                    corner.z + s / nu * u.z + t / nv * v.z};
    };
    Triangles out;
    for (float i = 0; i < nu; ++i)
    {
        for (float j = 0; j < nv; ++j)
        {
            out = std::move(out) + quad(at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j + 1));
        }
    }
    return out;
}

Triangles operator+(Triangles a, const Triangles& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

double areaOf(const DecalPolygon& p, const Vec3& normal)
{
    double sum = 0.0;
    for (size_t i = 1; i + 1 < p.size(); ++i)
    {
        const Vec3 c = math::cross({p[i].x - p[0].x, p[i].y - p[0].y, p[i].z - p[0].z},
                                   {p[i + 1].x - p[0].x, p[i + 1].y - p[0].y, p[i + 1].z - p[0].z});
        sum += 0.5 * math::dot(c, normal);
    }
    return sum;
}
