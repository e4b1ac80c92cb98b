// SPDX-License-Identifier: MIT
#include "scene/Frustum.h"
#include "support/Fixtures.h"

TEST_ON(RegistryTest, Frustum, IdentityMatricesSeeTheUnitCube)
{
    const Frustum& f = Frustum::instance();
    EXPECT_TRUE(f.isVisible(Bounds::fromMinMax({-0.5f, -0.5f, -0.5f}, {0.5f, 0.5f, 0.5f})));
    EXPECT_FALSE(f.isVisible(Bounds::fromMinMax({4.5f, -0.5f, -0.5f}, {5.5f, 0.5f, 0.5f})));
    // Corners exactly on a plane are not beyond it.
    EXPECT_TRUE(f.isVisible(Bounds::fromMinMax({1.0f, -0.5f, -0.5f}, {1.0f, 0.5f, 0.5f})));
}

TEST_ON(RegistryTest, Frustum, BoxesBehindOrBesideTheCameraAreCulled)
{
    // The game's camera: 45 degrees, 4:3, looking down -z from the origin.
    Frustum& f = Frustum::instance();
    f.update(math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f), math::identity());
    EXPECT_TRUE(f.isVisible(Bounds::fromMinMax({-1, -1, -11}, {1, 1, -9})));
    EXPECT_FALSE(f.isVisible(Bounds::fromMinMax({-1, -1, 9}, {1, 1, 11}))) << "behind";
    EXPECT_FALSE(f.isVisible(Bounds::fromMinMax({40, -1, -11}, {42, 1, -9}))) << "far right";
    EXPECT_FALSE(f.isVisible(Bounds::fromMinMax({-1, -1, -260}, {1, 1, -250}))) << "past far";
    // Straddling: four corners left of the view and four right of it, none inside.
    EXPECT_TRUE(f.isVisible(Bounds::fromMinMax({-40, -1, -11}, {40, 1, -9})));
    // Wholly above the view and spread left to right: every corner is above the top plane,
    // so it is culled although no single side plane has all eight.
    EXPECT_FALSE(f.isVisible(Bounds::fromMinMax({-40, 30, -11}, {40, 60, -9})));

    // Turning the camera round brings the box behind it into view.
    const Mat4 turned =
        math::toMat4(math::toMat3(math::axisAngle({0, 1, 0}, 180.0f / math::DEG_TO_RAD)));
    f.update(f.projection, turned);
    EXPECT_TRUE(f.isVisible(Bounds::fromMinMax({-1, -1, 9}, {1, 1, 11})));
    EXPECT_FALSE(f.isVisible(Bounds::fromMinMax({-1, -1, -11}, {1, 1, -9})));
}
