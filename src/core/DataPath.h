// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

// Where the game's read-only data tree (fbx/, shader/, textures/, fonts/, sound/) lives, so the
// game runs from its repository, from an install anywhere, or with the tree somewhere else.
//
// Every loader names its files through dataFile(). main() calls locateData() once, before the
// first file is read; until then (and in tests that never call it) files are read from data/ in
// the working directory, as the game always did.

// The places tried, best first: $BLOTCH_DATA (when ENVIRONMENT is set), data/ beside the
// executable, the installed share/blotch/data relative to the executable, and data/ in the
// working directory. EXEDIR ends with a slash, as SDL_GetBasePath gives it; empty when unknown.
std::vector<std::string> dataSearchOrder(const char* environment, const std::string& exeDir);

// True when DIR has every folder the game reads from.
bool holdsData(const std::string& dir);

// Finds the data tree in dataSearchOrder() and makes dataFile() read from it. A BLOTCH_DATA
// that holds no data tree is passed over: when another place holds it, a warning line on
// standard error says so. When no place holds it, prints one line naming every place tried to
// standard error and returns false.
[[nodiscard]] bool locateData();

// The path of RELATIVE ("shader/menu.vert") inside the data tree.
std::string dataFile(const std::string& relative);
