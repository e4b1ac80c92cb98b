// SPDX-License-Identifier: MIT
#pragma once

// The menu pictures, the HUD and all text are laid out in a 1024 x 768 screen space. In a window
// of another shape that space is shown as large as fits, its aspect kept, centred, with black
// bars beside or above it; the 3D view fills the whole window.
struct Viewport
{
    int x = 0; // pixels from the drawable's left
    int y = 0; // pixels from the drawable's bottom, as GL counts them
    int width = 0;
    int height = 0;
};

// The screen box inside a drawable of WIDTH x HEIGHT pixels.
Viewport screenBox(int width, int height);

// While it lives, GL draws into the screen box of the viewport that was set when it was made;
// that viewport comes back afterwards. Needs a current GL context.
class ScreenBoxScope
{
public:
    ScreenBoxScope();
    ~ScreenBoxScope();
    ScreenBoxScope(const ScreenBoxScope&) = delete;
    ScreenBoxScope& operator=(const ScreenBoxScope&) = delete;

private:
    int saved[4] = {};
};
