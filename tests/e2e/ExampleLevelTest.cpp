// SPDX-License-Identifier: MIT
// End-to-end: the example level of the level guide (tools/level/example_level.py, written by
// Blender and committed in tests/data) plays, and a ball thrown straight ahead paints its wall.
#include "E2eTest.h"

#include <algorithm>
#include <regex>

namespace
{
const char* const EXAMPLE_LEVEL = BLOTCH_SOURCE_DIR "/tests/data/example_level.fbx";

// Where the wall ahead shows in the world view (the screen below the overlay's top rows): its
// front face is 14.5 m ahead (z -11.5, the player at z 3), from y 3 to 9, and the eye rests at
// 3 + 3.725. With the 45 degree vertical field of view its top is at screen row
// 384 - 384 * (2.275 / 14.5) / tan(22.5) = 239 and its foot at 384 + 384 * (3.725 / 14.5) /
// tan(22.5) = 622; paint on the floor in front of it shows below that.
const int VIEW_TOP = WORLD_VIEW_TOP;
const int WALL_TOP_ROW = 239 - VIEW_TOP;
const int WALL_FOOT_ROW = 622 - VIEW_TOP;
const int MARGIN = 12; // rows: a splat's soft edge
// A 3 m splat 14.5 m away is some 190 pixels square; the ball in flight is 40 across.
const int SPLAT_MIN_ROWS = 80;

// Paint is saturated colour; the level is white, grey or black.
bool isPaint(const uint8_t* p)
{
    const int hi = std::max({p[0], p[1], p[2]});
    const int lo = std::min({p[0], p[1], p[2]});
    return hi - lo > 100;
}

struct Painted
{
    int count = 0;
    int top = 1 << 20, bottom = -1, left = 1 << 20, right = -1;
};

Painted painted(const Image& image)
{
    Painted p;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            if (isPaint(image.pixel(x, y)))
            {
                ++p.count;
                p.top = std::min(p.top, y);
                p.bottom = std::max(p.bottom, y);
                p.left = std::min(p.left, x);
                p.right = std::max(p.right, x);
            }
    return p;
}

using E2eExampleLevel = E2eTest;
} // namespace

TEST_F(E2eExampleLevel, AThrowStraightAheadPaintsItsWall)
{
    GameProcess game;
    game.setCommand(BLOTCH_BINARY, {EXAMPLE_LEVEL});
    ASSERT_TRUE(game.launch()) << game.errorText();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS)) << game.errorText();
    EXPECT_NE(game.outputText().find("\n180\n"), std::string::npos) << "not its 60 triangles";
    game.waitExit(3.5); // past the lit start: only paint has colour now
    ASSERT_EQ(painted(worldView(loadImage(shot(game, "before")))).count, 0);

    const size_t before = game.errorText().size();
    game.click(1);
    ASSERT_TRUE(game.waitForError(")\n", 5.0)) << "no throw";
    EXPECT_TRUE(std::regex_search(game.errorText().substr(before),
                                  std::regex(R"(\(-?0\.00, 0\.25, -1\.00\)\n)")))
        << "not thrown straight ahead: " << game.errorText().substr(before);

    // The ball takes a moment to land; a splat, unlike the ball, stays where it is.
    Painted splat, previous;
    for (int i = 0; i < 30; ++i)
    {
        game.waitExit(0.25);
        splat = painted(worldView(loadImage(shot(game, "splat"))));
        if (splat.bottom - splat.top >= SPLAT_MIN_ROWS && splat.top == previous.top &&
            splat.bottom == previous.bottom && splat.left == previous.left)
            break;
        previous = splat;
    }
    ASSERT_GE(splat.bottom - splat.top, SPLAT_MIN_ROWS) << "no splat to be seen after the throw";
    EXPECT_GT(splat.top, WALL_TOP_ROW - MARGIN) << "paint above the wall";
    EXPECT_LT(splat.bottom, WALL_FOOT_ROW) << "paint on the floor, short of the wall";
    EXPECT_LT(std::abs((splat.left + splat.right) / 2 - 512), 40) << "not straight ahead";
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}
