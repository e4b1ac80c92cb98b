// SPDX-License-Identifier: MIT
#pragma once

#include "core/Singleton.h"

#include "core/Math.h"

// An axis-aligned box given by its eight corners (x, y, z, w each), for visibility tests.
struct Bounds
{
    Vec4 corners[8];

    // The box from MIN to MAX, corners with w = 1.
    static Bounds fromMinMax(const Vec3& min, const Vec3& max);
};

// Decides whether a box can be seen from the current camera. One for the process, refreshed
// every playing frame with the perspective and view matrices.
class Frustum : public Singleton<Frustum>
{
    friend class Singleton<Frustum>;

public:
    void update(const Mat4& projection, const Mat4& view);
    // False only when all eight corners lie beyond one and the same clip plane: a box that
    // straddles planes is reported visible, which is conservative and cheap.
    bool isVisible(const Bounds& bounds) const;

    Mat4 projection = math::identity();
    Mat4 view = math::identity();

private:
    Frustum() = default;
};
