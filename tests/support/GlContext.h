#pragma once

#include <string>

struct SDL_Window;

// A real hidden window with a GL 3.2 compatibility context, as the game makes it, for tests that
// need GL. Needs an X display (Xvfb in CI). The constructor leaves ok() false when there is none.
class GlContext
{
public:
    GlContext();
    ~GlContext();
    GlContext(const GlContext&) = delete;
    GlContext& operator=(const GlContext&) = delete;

    bool ok() const { return context != nullptr; }
    // Why there is no context.
    const char* error() const { return why.c_str(); }

private:
    std::string why;
    SDL_Window* window = nullptr;
    void* context = nullptr;
};

// A 1024 x 768 RGBA framebuffer with a depth buffer (one pixel per screen unit, like the game's
// window), bound and made the viewport while it lives; for reading back what was drawn.
class OffscreenTarget
{
public:
    static constexpr int WIDTH = 1024;
    static constexpr int HEIGHT = 768;

    OffscreenTarget();
    ~OffscreenTarget();
    OffscreenTarget(const OffscreenTarget&) = delete;
    OffscreenTarget& operator=(const OffscreenTarget&) = delete;

private:
    unsigned int framebuffer = 0;
    unsigned int colour = 0;
    unsigned int depth = 0;
};

// Runs the test body from a fresh temporary directory holding a link to the repository's data/,
// so relative data paths resolve and the test may add files of its own. Restores the old working
// directory and removes the temporary one afterwards.
class ScratchDirectory
{
public:
    explicit ScratchDirectory(bool linkData = true);
    ~ScratchDirectory();
    const char* path() const { return dir; }

private:
    char dir[64] = {};
    char previous[4096] = {};
};
