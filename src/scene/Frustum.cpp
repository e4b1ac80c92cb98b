// SPDX-License-Identifier: MIT
#include "scene/Frustum.h"

Bounds Bounds::fromMinMax(const Vec3& min, const Vec3& max)
{
    Bounds b;
    for (int i = 0; i < 8; ++i)
    {
        b.corners[i] = {(i & 1) ? max.x : min.x, (i & 2) ? max.y : min.y, (i & 4) ? max.z : min.z,
                        1.0f};
    }
    return b;
}

void Frustum::update(const Mat4& newProjection, const Mat4& newView)
{
    projection = newProjection;
    view = newView;
}

bool Frustum::isVisible(const Bounds& bounds) const
{
    const Mat4 clip = math::multiply(projection, view);
    int outside[6] = {}; // right, left, top, bottom, far, near
    for (const Vec4& corner : bounds.corners)
    {
        const Vec4 c = math::transform(clip, corner);
        outside[0] += c.x > c.w;
        outside[1] += c.x < -c.w;
        outside[2] += c.y > c.w;
        outside[3] += c.y < -c.w;
        outside[4] += c.z > c.w;
        outside[5] += c.z < -c.w;
    }
    for (int count : outside)
    {
        if (count == 8)
        {
            return false;
        }
    }
    return true;
}
