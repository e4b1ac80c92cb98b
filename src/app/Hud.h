// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

#include <memory>
#include <string>

class Sphere;

// The overlay drawn over the playing view: a disc in the current paint colour at the bottom
// centre, the frame rate and game time while "framerate" is on, and one row with the state of the
// rendering switches while "help" is on. Draws in the screen space x -512..512, y -384..384 with
// the shader registry's "ortho" matrix, so the caller sets that first and turns depth testing and
// depth writes off. Needs the shader, texture and font registries and a GL context.
class Hud
{
public:
    // Loads the overlay's font. POSITION is kept for the caller; the drawing does not use it.
    explicit Hud(Vec3 position);
    ~Hud();
    Hud(const Hud&) = delete;
    Hud& operator=(const Hud&) = delete;

    void setFps(int framesPerSecond);
    void setTime(int seconds);
    // How much of the level the paint has revealed, SHARE 0..1: "revealed 37%" under the time.
    void setRevealed(float share);
    // Four floats, r g b a, copied into the disc.
    void setColour(const float* rgba);
    const Vec4& getColour() const;
    // While paused, "paused" stands in the middle of the screen.
    void setPaused(bool paused) { this->paused = paused; }

    void draw();

    Vec3 position;

private:
    void drawHelp();

    std::unique_ptr<Sphere> swatch;
    std::string fpsText;  // empty until the first setFps
    std::string timeText; // empty until the first setTime
    std::string revealedText; // empty until the first setRevealed: nothing is drawn
    bool paused = false;
};
