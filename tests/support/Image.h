// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// An 8-bit RGB picture, top row first, for comparing screenshots.
struct Image
{
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb; // width * height * 3

    bool empty() const { return rgb.empty(); }
    const uint8_t* pixel(int x, int y) const
    {
        return &rgb[(static_cast<size_t>(y) * width + x) * 3];
    }
};

// Any image SDL_image reads, converted to RGB; empty when the file cannot be read.
Image loadImage(const std::string& path);
// Stretches to HEIGHT rows (linear between rows), to compare a picture with how it looks
// stretched on screen.
Image stretchedRows(const Image& image, int height);
// Resampled to WIDTH x HEIGHT (linear in both directions), to compare a picture drawn at one
// size with one drawn at another.
Image scaled(const Image& image, int width, int height);
// The rectangle X0..X1, Y0..Y1 (exclusive) of IMAGE.
Image crop(const Image& image, int x0, int y0, int x1, int y1);
// The part of a 1024 x 768 game picture that shows only the world: below the overlay's text
// lines (from this row down) and above its colour disc.
constexpr int WORLD_VIEW_TOP = 76;
Image worldView(const Image& image);
// Mean absolute difference per channel, 0..255; a huge value when the sizes differ.
double meanDifference(const Image& a, const Image& b);
// Mean of one channel (0 = red) over a rectangle.
double meanChannel(const Image& image, int channel, int x0, int y0, int x1, int y1);
// How many pixels differ by more than THRESHOLD in any channel.
int countDifferent(const Image& a, const Image& b, int threshold);
