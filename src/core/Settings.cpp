// SPDX-License-Identifier: MIT
#include "core/Settings.h"

#include <cstdio>

void Settings::defineDefaults()
{
    defineBool("help", false);
    defineBool("framerate", true);
    defineBool("wireframe", false);
    defineBool("vbo", true);
    defineBool("motionblur", false);
    defineBool("frustum", true);
    defineBool("transparency", true);
    defineInt("texture-quality", 2, 0); // nearest neighbour, linear
    defineInt("texture-mipmap", 3, 0);  // off, nearest neighbour, linear
    defineInt("gamestate", 3, 0);       // menu, playing, finished
    defineInt("menu-pos", 2, 0);
}

void Settings::defineBool(std::string key, bool value)
{
    bools.try_emplace(std::move(key), value);
}

void Settings::defineInt(std::string key, int count, int value)
{
    ints.try_emplace(std::move(key), Cycle{count, value});
}

bool Settings::getBool(std::string key)
{
    return bools[std::move(key)];
}

int Settings::getInt(std::string key)
{
    return ints[std::move(key)].value;
}

int Settings::getCount(const std::string& key) const
{
    const auto it = ints.find(key);
    return it == ints.end() ? 0 : it->second.count;
}

void Settings::setBool(std::string key, bool value)
{
    bools[std::move(key)] = value;
}

void Settings::setInt(std::string key, int value)
{
    Cycle& c = ints[std::move(key)];
    if (value >= 0 && value < c.count)
    {
        c.value = value;
    }
}

void Settings::toggle(std::string key)
{
    std::fprintf(stderr, "Switching %s...\n", key.c_str());
    bool& value = bools[std::move(key)];
    value = !value;
}

void Settings::cycle(std::string key)
{
    Cycle& c = ints[std::move(key)];
    if (c.count != 0) // a key created by a read has no values to cycle through
    {
        c.value = (c.value + 1) % c.count;
    }
}

void Settings::step(std::string key, int delta)
{
    Cycle& c = ints[std::move(key)];
    if (c.count != 0)
    {
        c.value = (delta < 1 ? c.value - 1 : c.value + 1) % c.count;
    }
}
