// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A picture as the texture manager uploads it: the bottom row first, blue before red in every
// pixel, each row padded to a multiple of 4 bytes.
struct ImageBits
{
    int width = 0;             // pixels
    int height = 0;            // pixels
    unsigned bitsPerPixel = 0; // 24 (blue, green, red) or 32 (blue, green, red, alpha)
    std::vector<uint8_t> bytes;
};

// Reads PATH: a TGA when its name ends in ".tga", else a PNG. Pictures of 24 and 32 bits per pixel
// come out as they are; other depths (palettes, grey) report their depth in bitsPerPixel with no
// bytes, so the caller can refuse them by name. False, with WHY, when the file cannot be read, is
// damaged or absurdly large.
bool readImage(const std::string& path, ImageBits& image, std::string& why);
