// SPDX-License-Identifier: MIT
#include "app/Screenshot.h"

#include "core/SettingsFile.h"

#include <GL/glew.h>
#include <SDL.h>
#include <SDL_image.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

namespace
{
const char* const PICTURES_KEY = "XDG_PICTURES_DIR=";
const char* const GAME_FOLDER = "Blotch";
} // namespace

std::string picturesFolderFrom(std::string_view text, const std::string& home)
{
    std::string found;
    while (!text.empty())
    {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (line.substr(0, std::strlen(PICTURES_KEY)) != PICTURES_KEY)
        {
            continue;
        }
        line.remove_prefix(std::strlen(PICTURES_KEY));
        // The value is quoted: "$HOME/Pictures" or "/an/absolute/path".
        if (line.size() < 2 || line.front() != '"' || line.find('"', 1) == std::string_view::npos)
        {
            continue;
        }
        std::string_view value = line.substr(1, line.find('"', 1) - 1);
        if (value.substr(0, 5) == "$HOME")
        {
            found = home + std::string(value.substr(5));
        }
        else if (!value.empty() && value.front() == '/')
        {
            found = value;
        }
    }
    return found; // the last one, as the shell that reads this file would have it
}

std::string screenshotFolder()
{
    const std::string home = settingsfile::homeFolder();
    std::string pictures;
    if (const std::string config = settingsfile::configFolder(); !config.empty())
    {
        std::ifstream in(config + "/user-dirs.dirs");
        const std::string text((std::istreambuf_iterator<char>(in)), {});
        pictures = picturesFolderFrom(text, home);
    }
    if (pictures.empty())
    {
        if (home.empty())
        {
            return {};
        }
        pictures = home + "/Pictures";
    }
    return pictures + "/" + GAME_FOLDER;
}

std::string screenshotPath(const std::string& folder, long long now)
{
    const std::time_t when = static_cast<std::time_t>(now);
    std::tm local{};
    localtime_r(&when, &local);
    char stamp[64];
    std::strftime(stamp, sizeof(stamp), "blotch-%Y-%m-%d-%H%M%S", &local);
    std::string path = folder + "/" + stamp + ".png";
    std::error_code error;
    for (int n = 2; fs::exists(path, error); ++n)
    {
        path = folder + "/" + stamp + "-" + std::to_string(n) + ".png";
    }
    return path;
}

std::string saveScreenshot(int width, int height, const std::string& folder)
{
    std::vector<unsigned char> pixels(static_cast<size_t>(width) * height * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width, height, GL_RGB, GL_UNSIGNED_BYTE, pixels.data());
    // GL's rows run bottom to top, a picture's top to bottom.
    const size_t row = static_cast<size_t>(width) * 3;
    for (int y = 0; y < height / 2; ++y)
    {
        std::swap_ranges(pixels.begin() + y * row, pixels.begin() + (y + 1) * row,
                         pixels.begin() + (height - 1 - y) * row);
    }

    std::string why;
    std::string path;
    std::error_code error;
    if (folder.empty())
    {
        why = "there is no home folder";
    }
    else if (fs::create_directories(folder, error); error)
    {
        why = error.message();
    }
    else
    {
        path = screenshotPath(folder, static_cast<long long>(std::time(nullptr)));
        SDL_Surface* surface = SDL_CreateRGBSurfaceWithFormatFrom(
            pixels.data(), width, height, 24, static_cast<int>(row), SDL_PIXELFORMAT_RGB24);
        if (!surface || IMG_SavePNG(surface, path.c_str()) != 0)
        {
            why = SDL_GetError();
        }
        SDL_FreeSurface(surface);
    }
    if (!why.empty())
    {
        std::fprintf(stderr, "[ERROR] Could not save a screenshot in %s: %s\n", folder.c_str(),
                     why.c_str());
        std::error_code ignored;
        if (!path.empty())
        {
            fs::remove(path, ignored); // a half-written picture is worth nothing
        }
        return {};
    }
    std::fprintf(stderr, "Screenshot saved to %s\n", path.c_str());
    return path;
}
