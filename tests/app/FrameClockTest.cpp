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

// A pause freezes the game time; it runs on from the same value, so a frame after the pause is
// an ordinary frame, not a stall nor a jump.
TEST(GameTime, APauseFreezesTheTimeAndItRunsOnFromWhereItStopped)
{
    GameTime time;
    EXPECT_EQ(time.at(5000.0), 5000.0);
    time.pause(6000.0);
    time.pause(6500.0); // already paused: the first pause holds
    EXPECT_TRUE(time.paused());
    EXPECT_EQ(time.at(9000.0), 6000.0);
    time.resume(16000.0);
    time.resume(17000.0); // already running: nothing
    EXPECT_FALSE(time.paused());
    EXPECT_EQ(time.at(16000.0), 6000.0);
    EXPECT_EQ(time.at(17016.0), 7016.0);

    // The last frame before the pause and the first after it are 16 ms of game time apart.
    GameTime played;
    FrameClock clock;
    clock.reset(played.at(5990.0));
    played.pause(6000.0);
    played.resume(16000.0);
    EXPECT_NEAR(clock.tick(played.at(16006.0)), 0.016f, 1e-6f);
}
