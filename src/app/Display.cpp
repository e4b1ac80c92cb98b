// SPDX-License-Identifier: MIT
#include "app/Display.h"

#include "render/GlDebug.h"

#include <GL/glew.h>
#include <SDL.h>

#include <cstdio>

namespace
{
// The compatibility resize event of the old SDL interface; the window queues one so the first
// pass of the event handler sets the viewport.
const Uint32 RESIZE_EVENT = SDL_WINDOWEVENT;
// The GL state the game draws in, a first resize so the event handler sets the viewport, and
// the mouse grabbed for looking around.
void startDrawing(const Display& display)
{
    glEnable(GL_CULL_FACE);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glViewport(0, 0, display.width, display.height);
    glClearColor(0.0f, 0.0f, 0.0f, 1.0f);

    SDL_Event resize{};
    resize.type = RESIZE_EVENT;
    resize.window.event = SDL_WINDOWEVENT_SIZE_CHANGED;
    resize.window.windowID = SDL_GetWindowID(display.window);
    resize.window.data1 = display.width;
    resize.window.data2 = display.height;
    SDL_PushEvent(&resize);

    SDL_SetRelativeMouseMode(SDL_TRUE);
}
} // namespace

bool openWindow(Display& display, int width, int height, bool fullscreen)
{
    display.width = width;
    display.height = height;
    display.fullscreen = fullscreen;
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 2);
    // Without a profile Linux hands out a core context, where drawing from client arrays (the
    // "vbo" switch off) is illegal.
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_COMPATIBILITY);
    SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1);
    SDL_GL_SetAttribute(SDL_GL_DEPTH_SIZE, 24);
    // Paint draws in layers through the stencil, newer ones hiding older ones.
    SDL_GL_SetAttribute(SDL_GL_STENCIL_SIZE, 8);
    if (gldebug::requested())
    {
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_FLAGS, SDL_GL_CONTEXT_DEBUG_FLAG);
    }

    Uint32 flags =
        SDL_WINDOW_OPENGL | SDL_WINDOW_SHOWN | SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI;
    if (fullscreen)
    {
        flags |= SDL_WINDOW_FULLSCREEN_DESKTOP;
    }
    display.window = SDL_CreateWindow("Blotch", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                      width, height, flags);
    if (!display.window)
    {
        std::fprintf(stderr, "[ERROR] Could not open the game's window: %s\n", SDL_GetError());
        return false;
    }
    display.context = SDL_GL_CreateContext(display.window);
    if (!display.context)
    {
        std::fprintf(stderr, "[ERROR] Could not create an OpenGL 3.2 context: %s\n",
                     SDL_GetError());
        return false;
    }
    SDL_GL_SetSwapInterval(1);

    glewExperimental = GL_TRUE;
    const GLenum glewResult = glewInit();
    if (glewResult != GLEW_OK)
    {
        std::fprintf(stderr, "[ERROR] Failed to initialize GLEW: '%s'\n",
                     reinterpret_cast<const char*>(glewGetErrorString(glewResult)));
        return false;
    }
    readDrawableSize(display);
    glGetError(); // glewInit may leave an error behind on some drivers
    if (gldebug::requested() && !gldebug::install())
    {
        std::fprintf(stderr, "[ERROR] BLOTCH_GL_DEBUG: the GL driver has no debug output\n");
    }
    startDrawing(display);
    return true;
}

void setFullscreen(Display& display, bool fullscreen)
{
    if (display.window && SDL_SetWindowFullscreen(
                              display.window, fullscreen ? SDL_WINDOW_FULLSCREEN_DESKTOP : 0) == 0)
    {
        display.fullscreen = fullscreen;
    }
}

void readDrawableSize(Display& display)
{
    if (display.window)
    {
        SDL_GL_GetDrawableSize(display.window, &display.width, &display.height);
    }
    display.width = display.width > 0 ? display.width : 1;
    display.height = display.height > 0 ? display.height : 1;
}

void closeWindow(Display& display)
{
    if (display.context)
    {
        SDL_GL_DeleteContext(display.context);
        display.context = nullptr;
    }
    if (display.window)
    {
        SDL_DestroyWindow(display.window);
        display.window = nullptr;
    }
}
