// SPDX-License-Identifier: MIT
#pragma once

// What the end-to-end tests share: the real game on the X display (skipped without one), its
// screenshots, the menu pictures as they look on screen, and a small level.
#include "FbxTestSupport.h"
#include "support/GameProcess.h"
#include "support/Image.h"

#include <gtest/gtest.h>

#include <string>

class E2eTest : public ::testing::Test
{
protected:
    void SetUp() override;
};

// Takes a screenshot of GAME into its working directory as NAME.png; returns its path.
std::string shot(GameProcess& game, const std::string& name);
// What the window shows for a menu picture: the quad reaches two units past the top and bottom
// screen edges, so the picture is stretched to 772 rows and its middle 768 are visible.
Image expectedMenu(const std::string& picture);
// A 10 x 20 m floor at y = 3 around the start (2, 3): its far edge is 10 m ahead.
fbxtest::AsciiMesh smallFloor();
