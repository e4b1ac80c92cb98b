// SPDX-License-Identifier: MIT
#pragma once

// Frame timing from the millisecond tick count. There is no fixed step and no catch-up: a frame
// that took 100 ms or longer counts as no time at all, so a stall (loading, a dragged window)
// never throws the world forward.
struct FrameClock
{
    double lastTicks = 0.0; // ms, tick count of the previous frame
    int frameCount = 0;     // frames in the current fps window
    float fps = 0.0f;       // last computed frames per second; 0 until a window has closed
    float fpsTime = 0.0f;   // seconds accumulated in the current fps window

    void reset(double nowTicks);
    // Advances to NOWTICKS and returns the frame time in seconds (0 for a stalled frame).
    float tick(double nowTicks);
};
