// SPDX-License-Identifier: MIT
#pragma once

// The full-screen picture shown outside a match: "menu01" on the start screen (state 0) and
// "menu02" once the player has fallen (state 2). Drawn in the orthographic screen space
// x -512..512, y -384..384. Needs a current GL context for its whole life.
class Menu
{
public:
    Menu();
    ~Menu();
    Menu(const Menu&) = delete;
    Menu& operator=(const Menu&) = delete;

    void draw();

private:
    unsigned int startTexture = 0;
    unsigned int endTexture = 0;
    unsigned int indexBuffer = 0;
    unsigned int vertexBuffer = 0;
    unsigned int texCoordBuffer = 0;

    // CPU copies for drawing with "vbo" off. The quad reaches 386, two units past the screen's
    // top and bottom edge at 384, as the pictures were laid out for it.
    static constexpr float VERTICES[16] = {-512.0f, -386.0f, 0.0f,   1.0f,   512.0f, -386.0f,
                                           0.0f,    1.0f,    512.0f, 386.0f, 0.0f,   1.0f,
                                           -512.0f, 386.0f,  0.0f,   1.0f};
    static constexpr float TEXCOORDS[8] = {0.0f, 0.0f, 1.0f, 0.0f, 1.0f, 1.0f, 0.0f, 1.0f};
    static constexpr unsigned int INDICES[6] = {0, 1, 2, 0, 2, 3};
};
