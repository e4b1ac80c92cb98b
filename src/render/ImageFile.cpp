// SPDX-License-Identifier: MIT
#include "render/ImageFile.h"

#include <SDL.h>
#include <SDL_image.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace
{
// Far beyond any picture of ours; a file claiming more is damaged or hostile. Decoders allocate
// the whole picture before they read a pixel, so the claim is checked first.
const int MAX_SIDE = 8192;
const size_t TGA_HEADER = 18;
// Image types 1-3 are uncompressed (colour-mapped, true colour, grey), 9-11 the same run-length
// encoded.
const int TGA_RUN_LENGTH_FIRST = 9;
const int TGA_RUN_LENGTH_LAST = 11;

uint32_t bigEndian(const uint8_t* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// Walks a PNG's chunks by their lengths: each must end inside the file, and the last must be
// IEND. The PNG decoder takes a read past the end for data and can go round a damaged chunk
// list for ever, so nothing that fails this reaches it. Empty when the chunks are whole.
std::string checkChunks(std::FILE* f, long size)
{
    long at = 8;
    while (at + 12 <= size)
    {
        uint8_t head[8];
        if (std::fseek(f, at, SEEK_SET) != 0 || std::fread(head, 1, 8, f) != 8)
        {
            break;
        }
        const uint32_t length = bigEndian(head);
        const std::string type(reinterpret_cast<const char*>(head + 4), 4);
        if (length > 0x7fffffffu || at + 12 + long(length) > size)
        {
            return "the file ends inside a chunk";
        }
        if (type == "IEND")
        {
            return {};
        }
        at += 12 + long(length);
    }
    return "the file ends before its IEND chunk";
}

// What the header of a PNG, or of a file named .tga, says of the picture's size, before anything
// is decoded. Empty when the header is not one of those or says something impossible.
std::string checkHeader(const std::string& path)
{
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f)
    {
        return {};
    }
    uint8_t head[32] = {};
    const size_t got = std::fread(head, 1, sizeof(head), f);
    std::fseek(f, 0, SEEK_END);
    const long size = std::ftell(f);
    static const uint8_t PNG_SIGNATURE[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    const std::string chunks =
        got >= 8 && std::memcmp(head, PNG_SIGNATURE, 8) == 0 ? checkChunks(f, size) : "";
    std::fclose(f);
    if (!chunks.empty())
    {
        return chunks;
    }
    long width = -1, height = -1;
    const bool tga = path.size() > 4 && path.compare(path.size() - 4, 4, ".tga") == 0;
    if (got >= 24 && std::memcmp(head, PNG_SIGNATURE, 8) == 0)
    {
        width = bigEndian(head + 16);
        height = bigEndian(head + 20);
    }
    else if (tga && got >= TGA_HEADER)
    {
        width = head[12] | head[13] << 8;
        height = head[14] | head[15] << 8;
        // Uncompressed pixels must all be in the file; run-length packets hold at most 128
        // pixels each, so even the best-packed picture needs a packet per 128 pixels. A few bytes
        // claiming millions of pixels would otherwise have the decoder fill them all.
        const long pixels = width * height;
        const long pixelBytes = (head[16] + 7) / 8;
        const long colourMap = head[1] ? (head[5] | head[6] << 8) * ((head[7] + 7) / 8) : 0;
        const int type = head[2];
        long least = 0;
        if (type >= 1 && type <= 3)
        {
            least = pixels * pixelBytes;
        }
        else if (type >= TGA_RUN_LENGTH_FIRST && type <= TGA_RUN_LENGTH_LAST)
        {
            least = (pixels + 127) / 128 * (1 + pixelBytes);
        }
        if (size < long(TGA_HEADER) + head[0] + colourMap + least)
        {
            return "the file ends before its pixels do";
        }
    }
    else
    {
        return {};
    }
    if (width <= 0 || height <= 0 || width > MAX_SIDE || height > MAX_SIDE)
    {
        return "a picture of " + std::to_string(width) + "x" + std::to_string(height) + " pixels";
    }
    return {};
}

struct SurfaceFree
{
    void operator()(SDL_Surface* surface) const { SDL_FreeSurface(surface); }
};
using Surface = std::unique_ptr<SDL_Surface, SurfaceFree>;
} // namespace

bool readImage(const std::string& path, ImageBits& image, std::string& why)
{
    image = {};
    why = checkHeader(path);
    if (!why.empty())
    {
        return false;
    }
    // Our pictures are PNG and TGA. Their own decoders are called by name: the general loader
    // would hand the bytes to whichever decoder (SVG, XCF, ...) they claim to be for.
    const bool tga = path.size() > 4 && path.compare(path.size() - 4, 4, ".tga") == 0;
    SDL_RWops* file = SDL_RWFromFile(path.c_str(), "rb");
    if (!file)
    {
        why = SDL_GetError();
        return false;
    }
    Surface loaded(tga ? IMG_LoadTGA_RW(file) : IMG_LoadPNG_RW(file));
    SDL_RWclose(file);
    if (!loaded)
    {
        why = IMG_GetError();
        return false;
    }
    if (loaded->w <= 0 || loaded->h <= 0 || loaded->w > MAX_SIDE || loaded->h > MAX_SIDE)
    {
        why = "a picture of " + std::to_string(loaded->w) + "x" + std::to_string(loaded->h) +
              " pixels";
        return false;
    }
    image.width = loaded->w;
    image.height = loaded->h;
    image.bitsPerPixel = loaded->format->BitsPerPixel;
    const bool alpha = image.bitsPerPixel == 32;
    if (image.bitsPerPixel != 24 && !alpha)
    {
        return true; // the caller says what it wanted
    }
    Surface converted(SDL_ConvertSurfaceFormat(
        loaded.get(), alpha ? SDL_PIXELFORMAT_BGRA32 : SDL_PIXELFORMAT_BGR24, 0));
    if (!converted)
    {
        why = SDL_GetError();
        return false;
    }
    const size_t pixelBytes = alpha ? 4 : 3;
    const size_t rowBytes = (static_cast<size_t>(image.width) * pixelBytes + 3) / 4 * 4;
    image.bytes.assign(rowBytes * static_cast<size_t>(image.height), 0);
    const auto* pixels = static_cast<const uint8_t*>(converted->pixels);
    for (int y = 0; y < image.height; ++y)
    {
        std::memcpy(&image.bytes[rowBytes * static_cast<size_t>(image.height - 1 - y)],
                    pixels + static_cast<size_t>(converted->pitch) * static_cast<size_t>(y),
                    static_cast<size_t>(image.width) * pixelBytes);
    }
    return true;
}
