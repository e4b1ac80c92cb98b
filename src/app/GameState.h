// SPDX-License-Identifier: MIT
#pragma once

#include "core/Settings.h"

// The value of the "gamestate" setting.
enum class GameState
{
    Menu = 0,
    Playing = 1,
    Finished = 2,
};

inline GameState gameState()
{
    return static_cast<GameState>(Settings::instance().getInt("gamestate"));
}
