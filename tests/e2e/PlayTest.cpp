// SPDX-License-Identifier: MIT
// End-to-end: playing a match on a small hand-made level: standing still, throwing, falling off.
#include "E2eTest.h"

#include <regex>

namespace
{
class E2ePlay : public E2eTest
{
protected:
    E2ePlay() : game(GameProcess::Data::Copy) {}

    void startMatch()
    {
        ASSERT_TRUE(game.launch()) << game.errorText();
        ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    }

    GameProcess game;
};
} // namespace

TEST_F(E2ePlay, StandsStillThrowsAndFallsOffTheEdge)
{
    game.writeData("fbx/level.fbx", fbxtest::asciiFile({smallFloor()}));
    startMatch();
    EXPECT_NE(game.errorText().find("[LOADED] Physics SDK!"), std::string::npos);

    // Past the lit start the picture must not change while nothing is pressed.
    game.waitExit(3.5);
    const Image first = worldView(loadImage(shot(game, "still1")));
    game.waitExit(1.0);
    const Image second = worldView(loadImage(shot(game, "still2")));
    EXPECT_LT(countDifferent(first, second, 8), 50) << "the view drifted with nothing pressed";

    const size_t before = game.errorText().size();
    game.click(1);
    ASSERT_TRUE(game.waitForError(")\n", 5.0));
    const std::string line = game.errorText().substr(before);
    EXPECT_TRUE(std::regex_search(line, std::regex(R"(\(-?0\.00, 0\.25, -1\.00\)\n)"))) << line;

    // Walk forwards off the far edge: the end picture replaces the match.
    runCommand("xdotool keydown w; sleep 3.5; xdotool keyup w");
    const Image end = expectedMenu("menu02");
    double difference = 1e9;
    for (int i = 0; i < 20 && difference > 6.0; ++i)
    {
        difference = meanDifference(loadImage(shot(game, "end")), end);
        game.waitExit(0.25);
    }
    EXPECT_LT(difference, 6.0) << "the end picture did not show after walking off the level";

    game.key("Return"); // does nothing any more
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2ePlay, ACorruptLevelIsReportedAndEscapeStillQuits)
{
    std::string bytes = fbxtest::asciiFile({smallFloor()});
    bytes.resize(bytes.size() / 2);
    game.writeData("fbx/level.fbx", bytes);
    startMatch();
    EXPECT_TRUE(game.waitForError("[ERROR] There is no level to play on: ", 5.0));
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

// Every graphics switch on and off again while paint flies: the game runs with GL errors
// reported (and the harness fails on any), so each drawing path must be a legal one.
TEST_F(E2ePlay, EverySwitchDrawsWithoutAGlError)
{
    game.writeData("fbx/level.fbx", fbxtest::asciiFile({smallFloor()}));
    startMatch();
    game.click(1);
    ASSERT_TRUE(game.waitForError(")\n", 5.0));
    for (int round = 0; round < 2; ++round)
    {
        for (int f = 1; f <= 9; ++f)
        {
            game.key("F" + std::to_string(f));
            game.waitExit(0.3); // a few frames drawn this way
        }
        game.mouseMoveRelative(40, 0); // the blur pass sees motion
        game.click(1);
        game.waitExit(1.0);
    }
    EXPECT_EQ(game.errorText().find("[GL] "), std::string::npos) << game.errorText();
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}
