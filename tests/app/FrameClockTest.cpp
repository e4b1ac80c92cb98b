// SPDX-License-Identifier: MIT
#include "app/FrameClock.h"

#include <gtest/gtest.h>

TEST(FrameClock, StalledFramesCountAsNoTime)
{
    FrameClock clock;
    clock.reset(1000.0);
    EXPECT_FLOAT_EQ(clock.tick(1016.0), 0.016f);
    EXPECT_EQ(clock.tick(1116.0), 0.0f); // exactly 100 ms
    EXPECT_EQ(clock.tick(1500.0), 0.0f);
    EXPECT_NEAR(clock.tick(1599.0), 0.099f, 1e-6f);
    EXPECT_EQ(clock.frameCount, 2); // only frames with time count
}

TEST(FrameClock, FpsClosesOnlyAfterMoreThanASecondOfFrameTime)
{
    FrameClock clock;
    clock.reset(0.0);
    double now = 0.0;
    for (int i = 0; i < 50; ++i)
    {
        clock.tick(now += 20.0);
    }
    EXPECT_EQ(clock.fps, 0.0f); // exactly one second: the window is still open
    clock.tick(now += 20.0);
    EXPECT_NEAR(clock.fps, 51.0f / 1.02f, 1e-3f);
    EXPECT_EQ(clock.frameCount, 0);
    EXPECT_EQ(clock.fpsTime, 0.0f);

    // A long stall in the middle of a window adds nothing to it.
    clock.tick(now += 5000.0);
    EXPECT_EQ(clock.frameCount, 0);
}
