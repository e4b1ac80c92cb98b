// SPDX-License-Identifier: MIT
#pragma once

struct SDL_Window;

// The game's one window and its GL context.
struct Display
{
    int width = 0;           // drawable pixels (more than the window's size on a high-DPI screen)
    int height = 0;          // drawable pixels
    bool fullscreen = false; // desktop fullscreen
    SDL_Window* window = nullptr;
    void* context = nullptr; // the SDL GL context
};

// Opens the resizable "Blotch" window, WIDTH x HEIGHT (1024 x 768 unless the player chose
// another size) or desktop fullscreen, with a GL 3.2 compatibility context; loads GL's entry
// points, sets the game's GL state and grabs the mouse. False when there is no usable display or
// context; what was made is left in DISPLAY for closeWindow().
bool openWindow(Display& display, int width = 1024, int height = 768, bool fullscreen = false);
// Switches between the window and desktop fullscreen; the size change arrives as a window event.
void setFullscreen(Display& display, bool fullscreen);
// Takes the drawable size from SDL into DISPLAY (at least 1 x 1).
void readDrawableSize(Display& display);
// Closes what openWindow() made.
void closeWindow(Display& display);
