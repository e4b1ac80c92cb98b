// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

// Screenshots (F12): the picture on screen saved as a PNG into the player's pictures folder.

// The pictures folder that user-dirs.dirs TEXT names (XDG_PICTURES_DIR, "$HOME/..." or an
// absolute path), with HOME put in; empty when it names none.
std::string picturesFolderFrom(std::string_view text, const std::string& home);
// Where screenshots go: "Blotch" in the pictures folder of user-dirs.dirs in the config folder,
// else ~/Pictures/Blotch. Empty when not even the home folder is known.
std::string screenshotFolder();
// A new file name in FOLDER for a screenshot taken at local time NOW (seconds since the epoch):
// "blotch-YYYY-MM-DD-HHMMSS.png", with "-2", "-3", ... when that is taken.
std::string screenshotPath(const std::string& folder, long long now);

// Reads the WIDTH x HEIGHT picture in GL's current read buffer and saves it into FOLDER
// (created as needed). Prints the file's path, or one line saying why it could not be saved.
// Returns the path, empty on failure. Needs a current GL context.
std::string saveScreenshot(int width, int height, const std::string& folder);
