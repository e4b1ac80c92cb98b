// SPDX-License-Identifier: MIT
#include "core/DataPath.h"

#include <SDL.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace
{
// Set by the build from the install layout, so a relocated install still finds its data.
#ifndef BLOTCH_DATA_FROM_BINDIR
#define BLOTCH_DATA_FROM_BINDIR "../share/blotch/data"
#endif
const char* const INSTALLED_DATA = BLOTCH_DATA_FROM_BINDIR;
const char* const DATA_VARIABLE = "BLOTCH_DATA";
// A tree missing one of these is someone else's folder, not a damaged copy of ours.
const char* const DATA_FOLDERS[] = {"fbx", "shader", "textures", "fonts", "sound"};

// The one process-wide answer of locateData(); read by every loader through dataFile().
std::string& dataRoot()
{
    static std::string root = "data";
    return root;
}
// PLACE in full, as the messages name it; as given when the working directory is unknown.
std::string absolutePath(const std::string& place)
{
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(place, error);
    return error ? place : full.lexically_normal().string();
}
} // namespace

std::vector<std::string> dataSearchOrder(const char* environment, const std::string& exeDir)
{
    std::vector<std::string> places;
    if (environment && *environment)
    {
        places.emplace_back(environment);
    }
    if (!exeDir.empty())
    {
        places.push_back(exeDir + "data");
        const std::filesystem::path installed =
            (std::filesystem::path(exeDir) / INSTALLED_DATA).lexically_normal();
        places.push_back(installed.string());
    }
    places.emplace_back("data");
    return places;
}

bool holdsData(const std::string& dir)
{
    std::error_code error;
    for (const char* folder : DATA_FOLDERS)
    {
        if (!std::filesystem::is_directory(std::filesystem::path(dir) / folder, error))
        {
            return false;
        }
    }
    return true;
}

bool locateData()
{
    std::string exeDir;
    if (char* base = SDL_GetBasePath())
    {
        exeDir = base;
        SDL_free(base);
    }
    const char* environment = std::getenv(DATA_VARIABLE);
    const std::vector<std::string> places = dataSearchOrder(environment, exeDir);
    // A variable that points nowhere useful is a mistake worth a line, not a reason to stop;
    // when nothing holds the data, the one error line below names it among the others.
    const bool ignored = environment && *environment && !holdsData(environment);
    for (const std::string& place : places)
    {
        if (holdsData(place))
        {
            if (ignored)
            {
                std::fprintf(stderr,
                             "[WARNING] %s is %s, which holds no game data (folders fbx, shader,"
                             " textures, fonts, sound); using %s instead\n",
                             DATA_VARIABLE, absolutePath(environment).c_str(),
                             absolutePath(place).c_str());
            }
            dataRoot() = place;
            return true;
        }
    }
    // One line: where we looked, in full, and how to point the game at the tree.
    std::string tried;
    for (const std::string& place : places)
    {
        tried += (tried.empty() ? "" : ", ") + absolutePath(place);
    }
    std::fprintf(stderr,
                 "[ERROR] Found no game data (folders fbx, shader, textures, fonts, sound) in: %s;"
                 " set %s to the data folder\n",
                 tried.c_str(), DATA_VARIABLE);
    return false;
}

std::string dataFile(const std::string& relative)
{
    return dataRoot() + "/" + relative;
}
