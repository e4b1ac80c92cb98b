// SPDX-License-Identifier: MIT
#pragma once

#include "core/Singleton.h"

#include <map>
#include <string>

// The process-wide store of named switches: rendering options, texture filters, the game state
// and the menu cursor. Keys are never removed; an unknown key is created with a zero value on its
// first read. Lives from the first instance() until destroy() at shutdown.
class Settings : public Singleton<Settings>
{
    friend class Singleton<Settings>;

public:
    struct Cycle
    {
        int count = 0; // number of values
        int value = 0; // current value
    };

    // Registers every switch the game has with its default value, in the game's order.
    void defineDefaults();
    // Define only stores when the key is absent: an existing value is never overwritten.
    void defineBool(std::string key, bool value);
    void defineInt(std::string key, int count, int value);

    bool getBool(std::string key);
    int getInt(std::string key);
    // Number of values of a cycling setting; 0 for one never defined.
    int getCount(const std::string& key) const;
    // Sets a remembered value. An integer outside 0..count-1 is not stored.
    void setBool(std::string key, bool value);
    void setInt(std::string key, int value);

    // Prints "Switching KEY...\n" to standard error, then flips the value.
    void toggle(std::string key);
    // value = (value + 1) mod count
    void cycle(std::string key);
    // Moves down when delta < 1, else up, then wraps with a truncating remainder: stepping 0 down
    // with two values gives -1 (outside the range) and stepping -1 down gives 0 again. Intended.
    void step(std::string key, int delta);

private:
    Settings() = default;

    std::map<std::string, bool> bools;
    std::map<std::string, Cycle> ints;
};
