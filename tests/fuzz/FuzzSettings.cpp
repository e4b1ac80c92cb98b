// SPDX-License-Identifier: MIT
// The settings file reader on arbitrary text: it reads a file whole or refuses it whole, and
// whatever it accepts it can write and read back the same.
#include "core/Settings.h"
#include "core/SettingsFile.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Settings::destroy();
    Settings& settings = Settings::instance();
    settings.defineDefaults();
    Preferences preferences;
    const std::string before = settingsfile::format(settings, preferences);
    std::string problem;
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (!settingsfile::parse(text, settings, preferences, problem))
    {
        if (problem.empty() || settingsfile::format(settings, preferences) != before)
        {
            std::abort(); // refused, yet unexplained or half applied
        }
        return 0;
    }
    const std::string written = settingsfile::format(settings, preferences);
    Settings::destroy();
    Settings& again = Settings::instance();
    again.defineDefaults();
    Preferences reread;
    if (!settingsfile::parse(written, again, reread, problem) ||
        settingsfile::format(again, reread) != written)
    {
        std::abort(); // what the game writes it must read back the same
    }
    return 0;
}
