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

// The game's own time: the millisecond tick count less the time spent paused, so a match picks
// up where it stopped, with no jump.
class GameTime
{
public:
    bool paused() const { return pausedAt >= 0.0; }
    // Freezes the time at NOWTICKS; does nothing while paused.
    void pause(double nowTicks);
    // Lets it run on from where it stopped; does nothing while running.
    void resume(double nowTicks);
    // The game time (ms) at tick count NOWTICKS.
    double at(double nowTicks) const;

private:
    double pausedTotal = 0.0; // ms spent paused before the current pause
    double pausedAt = -1.0;   // tick count the current pause began; negative while running
};
