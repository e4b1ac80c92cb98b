// SPDX-License-Identifier: MIT
#include "render/ScreenBox.h"

#include <GL/glew.h>

namespace
{
const int SCREEN_WIDTH = 1024; // the screen space the 2D layout was made for
const int SCREEN_HEIGHT = 768;
} // namespace

Viewport screenBox(int width, int height)
{
    Viewport box;
    // Compare in whole numbers, so a drawable of exactly 4:3 gets exactly all of it.
    if (static_cast<long long>(width) * SCREEN_HEIGHT >
        static_cast<long long>(height) * SCREEN_WIDTH)
    {
        box.height = height;
        box.width = static_cast<int>(static_cast<long long>(height) * SCREEN_WIDTH / SCREEN_HEIGHT);
    }
    else
    {
        box.width = width;
        box.height = static_cast<int>(static_cast<long long>(width) * SCREEN_HEIGHT / SCREEN_WIDTH);
    }
    box.width = box.width > 0 ? box.width : 1;
    box.height = box.height > 0 ? box.height : 1;
    box.x = (width - box.width) / 2;
    box.y = (height - box.height) / 2;
    return box;
}

ScreenBoxScope::ScreenBoxScope()
{
    glGetIntegerv(GL_VIEWPORT, saved);
    const Viewport box = screenBox(saved[2], saved[3]);
    glViewport(saved[0] + box.x, saved[1] + box.y, box.width, box.height);
}

ScreenBoxScope::~ScreenBoxScope()
{
    glViewport(saved[0], saved[1], saved[2], saved[3]);
}
