// SPDX-License-Identifier: MIT
#pragma once

struct SDL_Window;

// The game's one window and its GL context.
struct Display
{
    int width = 0;  // pixels
    int height = 0; // pixels
    SDL_Window* window = nullptr;
    void* context = nullptr; // the SDL GL context
};

// Opens the 1024 x 768 "Blotch" window with a GL 3.2 compatibility context, loads GL's entry
// points, sets the game's GL state and grabs the mouse. False when there is no usable display or
// context; what was made is left in DISPLAY for closeWindow().
bool openWindow(Display& display);
// Closes what openWindow() made.
void closeWindow(Display& display);
