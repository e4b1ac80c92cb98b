// SPDX-License-Identifier: MIT
#include "app/FrameClock.h"

namespace
{
const double STALL_MS = 100.0;   // a frame this long or longer counts as no time
const float FPS_WINDOW_S = 1.0f; // fps is recomputed once more than this has accumulated
} // namespace

void FrameClock::reset(double nowTicks)
{
    lastTicks = nowTicks;
    frameCount = 0;
    fps = 0.0f;
    fpsTime = 0.0f;
}

float FrameClock::tick(double nowTicks)
{
    const double diff = nowTicks - lastTicks;
    const float dt = diff < STALL_MS ? static_cast<float>(diff / 1000.0) : 0.0f;
    lastTicks = nowTicks;
    if (dt > 0.0f)
    {
        ++frameCount;
        fpsTime += dt;
    }
    if (fpsTime > FPS_WINDOW_S)
    {
        fps = static_cast<float>(frameCount) / fpsTime;
        frameCount = 0;
        fpsTime = 0.0f;
    }
    return dt;
}

void GameTime::pause(double nowTicks)
{
    if (!paused())
    {
        pausedAt = nowTicks;
    }
}

void GameTime::resume(double nowTicks)
{
    if (paused())
    {
        pausedTotal += nowTicks - pausedAt;
        pausedAt = -1.0;
    }
}

double GameTime::at(double nowTicks) const
{
    return (paused() ? pausedAt : nowTicks) - pausedTotal;
}
