// SPDX-License-Identifier: MIT
#include "support/Image.h"

#include <SDL.h>
#include <SDL_image.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

Image loadImage(const std::string& path)
{
    Image image;
    SDL_Surface* loaded = IMG_Load(path.c_str());
    if (!loaded)
    {
        return image;
    }
    SDL_Surface* rgb = SDL_ConvertSurfaceFormat(loaded, SDL_PIXELFORMAT_RGB24, 0);
    SDL_FreeSurface(loaded);
    if (!rgb)
    {
        return image;
    }
    image.width = rgb->w;
    image.height = rgb->h;
    image.rgb.resize(static_cast<size_t>(image.width) * image.height * 3);
    for (int y = 0; y < image.height; ++y)
    {
        std::memcpy(&image.rgb[static_cast<size_t>(y) * image.width * 3],
                    static_cast<const uint8_t*>(rgb->pixels) + static_cast<size_t>(y) * rgb->pitch,
                    static_cast<size_t>(image.width) * 3);
    }
    SDL_FreeSurface(rgb);
    return image;
}

Image stretchedRows(const Image& image, int height)
{
    Image out = image;
    out.height = height;
    out.rgb.resize(static_cast<size_t>(image.width) * height * 3);
    for (int y = 0; y < height; ++y)
    {
        const float sy = std::fmax(0.0f, (y + 0.5f) * image.height / height - 0.5f);
        const int y0 = static_cast<int>(sy), y1 = std::min(y0 + 1, image.height - 1);
        const float fy = sy - y0;
        for (int i = 0; i < image.width * 3; ++i)
        {
            const float top = image.rgb[size_t(y0) * image.width * 3 + i];
            const float bottom = image.rgb[size_t(y1) * image.width * 3 + i];
            out.rgb[size_t(y) * image.width * 3 + i] =
                static_cast<uint8_t>(std::lround(top * (1 - fy) + bottom * fy));
        }
    }
    return out;
}

Image scaled(const Image& image, int width, int height)
{
    Image out;
    out.width = width;
    out.height = height;
    out.rgb.resize(static_cast<size_t>(width) * height * 3);
    // Where output pixel I's centre falls among the input's N pixels of an axis of OUT pixels.
    const auto source = [](int i, int n, int out, int& i0, int& i1, float& f)
    {
        const float s = std::fmax(0.0f, (i + 0.5f) * n / out - 0.5f);
        i0 = std::min(static_cast<int>(s), n - 1);
        i1 = std::min(i0 + 1, n - 1);
        f = s - i0;
    };
    for (int y = 0; y < height; ++y)
    {
        int y0, y1;
        float fy;
        source(y, image.height, height, y0, y1, fy);
        for (int x = 0; x < width; ++x)
        {
            int x0, x1;
            float fx;
            source(x, image.width, width, x0, x1, fx);
            for (int c = 0; c < 3; ++c)
            {
                const float top = image.pixel(x0, y0)[c] * (1 - fx) + image.pixel(x1, y0)[c] * fx;
                const float bottom =
                    image.pixel(x0, y1)[c] * (1 - fx) + image.pixel(x1, y1)[c] * fx;
                out.rgb[(size_t(y) * width + x) * 3 + c] =
                    static_cast<uint8_t>(std::lround(top * (1 - fy) + bottom * fy));
            }
        }
    }
    return out;
}

double meanDifference(const Image& a, const Image& b)
{
    if (a.width != b.width || a.height != b.height || a.empty())
    {
        return 1e9;
    }
    double sum = 0.0;
    for (size_t i = 0; i < a.rgb.size(); ++i)
    {
        sum += std::abs(static_cast<int>(a.rgb[i]) - static_cast<int>(b.rgb[i]));
    }
    return sum / static_cast<double>(a.rgb.size());
}

double meanChannel(const Image& image, int channel, int x0, int y0, int x1, int y1)
{
    double sum = 0.0;
    long count = 0;
    for (int y = y0; y < y1; ++y)
    {
        for (int x = x0; x < x1; ++x)
        {
            sum += image.pixel(x, y)[channel];
            ++count;
        }
    }
    return count ? sum / static_cast<double>(count) : 0.0;
}

int countDifferent(const Image& a, const Image& b, int threshold)
{
    if (a.width != b.width || a.height != b.height)
    {
        return a.width * a.height;
    }
    int count = 0;
    for (size_t i = 0; i < a.rgb.size(); i += 3)
    {
        for (int c = 0; c < 3; ++c)
        {
            if (std::abs(static_cast<int>(a.rgb[i + c]) - static_cast<int>(b.rgb[i + c])) >
                threshold)
            {
                ++count;
                break;
            }
        }
    }
    return count;
}

Image crop(const Image& image, int x0, int y0, int x1, int y1)
{
    Image out;
    if (image.empty())
    {
        return out;
    }
    x1 = std::min(x1, image.width);
    y1 = std::min(y1, image.height);
    out.width = std::max(0, x1 - x0);
    out.height = std::max(0, y1 - y0);
    for (int y = y0; y < y1; ++y)
    {
        const uint8_t* row = image.pixel(x0, y);
        out.rgb.insert(out.rgb.end(), row, row + out.width * 3);
    }
    return out;
}

Image worldView(const Image& image)
{
    return crop(image, 0, WORLD_VIEW_TOP, image.width, 656);
}
