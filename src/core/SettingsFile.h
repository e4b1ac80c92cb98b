// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

class Settings;

// What the game remembers between runs besides the switches of the function keys.
struct Preferences
{
    bool fullscreen = false;
    int windowWidth = 1024; // pixels, the window's size when it is not fullscreen
    int windowHeight = 768;
    float sensitivity = 1.0f; // factor on the mouse's 0.0609 radians per pixel
    bool invertY = false;     // mouse forward looks down
    float musicVolume = 0.5f; // 0..1
    float effectsVolume = 1.0f;

    bool operator==(const Preferences&) const = default;
};

// The remembered settings as an ini file: the function keys' switches (never "gamestate" nor
// "menu-pos"), the window, the mouse and the volumes. A file is read whole or not at all: any
// line that is not understood, any value out of its range, and the defaults stay.
namespace settingsfile
{
// The range of the sensitivity factor, on the command line and in the file.
constexpr float MIN_SENSITIVITY = 0.05f;
constexpr float MAX_SENSITIVITY = 5.0f;

// The user's home folder: $HOME, else the password database's; empty when neither knows.
std::string homeFolder();
// $XDG_CONFIG_HOME, or ~/.config when that is unset or not an absolute path; empty when not
// even the home folder is known.
std::string configFolder();

// $XDG_CONFIG_HOME/blotch/settings.ini, or ~/.config/blotch/settings.ini when that is unset
// or not an absolute path. Empty when not even the home folder is known.
std::string defaultPath();

// Reads TEXT into SETTINGS (which must have its switches defined) and PREFERENCES. Keys the
// text leaves out keep their values. On a damaged text nothing is changed, PROBLEM says what
// was wrong ("line 3: 'wireframe' must be true or false") and the result is false.
[[nodiscard]] bool parse(std::string_view text, Settings& settings, Preferences& preferences,
                         std::string& problem);
// The file's text for the current values.
std::string format(Settings& settings, const Preferences& preferences);

enum class Loaded
{
    Read,    // the file's values are in place
    Missing, // no file: the defaults
    Damaged  // unreadable or damaged: one line on standard error, and the defaults
};
// Reads the file at PATH. A damaged file is left as it is.
Loaded load(const std::string& path, Settings& settings, Preferences& preferences);
// Writes the current values to PATH, creating its folder: a temporary file beside it, renamed
// over the old one, so a crash never leaves half a file. False (with a line on standard error)
// when it cannot be written.
bool save(const std::string& path, Settings& settings, const Preferences& preferences);
} // namespace settingsfile
