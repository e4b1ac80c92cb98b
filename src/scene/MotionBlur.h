// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

class Shader;

// The render targets of the motion-blur frame: one framebuffer with a 24-bit depth buffer and
// two colour textures of the window's drawable size registered with the texture manager,
// "motionblur1" (per-pixel screen motion) and "motionblur2" (the frame's colours), and the
// full-screen quad that blends them into the window. The game drives the passes
// (Game::renderMotionBlurFrame); this class owns the GL objects and the steps that touch them.
class MotionBlur
{
public:
    // The size of the targets unless the game says otherwise: the default window.
    static constexpr int WIDTH = 1024;
    static constexpr int HEIGHT = 768;

    // Takes the framebuffer entry points from the driver and builds WIDTH x HEIGHT targets.
    // Leaves framebuffer 0 bound. Needs a current GL context and the texture manager.
    MotionBlur(int width = WIDTH, int height = HEIGHT);
    // Deletes whatever a framebuffer failure has not already deleted.
    ~MotionBlur();
    MotionBlur(const MotionBlur&) = delete;
    MotionBlur& operator=(const MotionBlur&) = delete;

    // False once a framebuffer failure has torn the targets down.
    bool ready() const { return framebuffer != 0; }
    // Gives the targets a new size (pixels), when the window's drawable size changes.
    void resize(int width, int height);
    int getWidth() const { return width; }
    int getHeight() const { return height; }

    // Binds the framebuffer with the registered texture NAME as its colour attachment. With
    // CHECK, an incomplete framebuffer is reported on standard output, the targets are deleted,
    // framebuffer 0 is bound again and the result is false.
    bool attach(const char* name, bool check);
    // Draws the quad over the whole window with COMPOSITE, which reads "motion" and "frame".
    void composite(Shader* composite);

    // The quad's projection: x and y from -1 to 1, z from -1000 to 1000.
    static Mat4 quadOrtho();

    unsigned int framebuffer = 0;
    unsigned int depthRenderbuffer = 0;

private:
    void release();
    void allocate();

    int width; // pixels, as the window's drawable
    int height;

    unsigned int motionTexture = 0; // "motionblur1" as created
    unsigned int frameTexture = 0;  // "motionblur2" as created
    unsigned int quadVertices = 0;
    unsigned int quadCoordinates = 0;
};

// The report line after "error with framebuffer" for a completeness STATUS; null for a status
// without one of its own.
const char* framebufferStatusText(unsigned int status);
