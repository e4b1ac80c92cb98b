// End-to-end: playing a match on a small hand-made level: standing still, throwing, falling off.
#include "FbxTestSupport.h"
#include "support/GameProcess.h"
#include "support/Image.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

namespace
{

// A 10 x 20 m floor at y = 3 around the start (2, 3): its far edge is 10 m ahead.
std::string smallFloor()
{
    fbxtest::AsciiMesh floor;
    floor.name = "floor";
    floor.vertices = {-3, 3, -7, -3, 3, 13, 7, 3, 13, 7, 3, -7};
    floor.polygonVertices = {0, 1, 2, -4};
    return fbxtest::asciiFile({floor});
}

// The start picture stretched as the menu quad shows it.
Image expectedMenu(const std::string& picture)
{
    const Image stretched =
        resized(loadImage(std::string(BLOTCH_SOURCE_DIR) + "/data/textures/" + picture + ".png"),
                1024, 772);
    Image visible;
    visible.width = 1024;
    visible.height = 768;
    visible.rgb.assign(stretched.rgb.begin() + 2 * 1024 * 3,
                       stretched.rgb.begin() + 770 * 1024 * 3);
    return visible;
}

class PlayTest : public ::testing::Test
{
protected:
    PlayTest() : game(GameProcess::Data::Copy) {}

    void SetUp() override
    {
        if (!std::getenv("DISPLAY"))
        {
            GTEST_SKIP() << "no X display";
        }
    }

    void startMatch()
    {
        ASSERT_TRUE(game.launch()) << game.errorText();
        ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    }

    std::string shot(const std::string& name)
    {
        const std::string path = game.workDir() + "/" + name + ".png";
        EXPECT_TRUE(game.screenshot(path));
        return path;
    }

    GameProcess game;
};
} // namespace

TEST_F(PlayTest, StandsStillThrowsAndFallsOffTheEdge)
{
    game.writeData("fbx/level.fbx", smallFloor());
    startMatch();
    EXPECT_NE(game.errorText().find("[LOADED] Physics SDK!"), std::string::npos);

    // Past the lit start the picture must not change while nothing is pressed.
    game.waitExit(3.5);
    const Image first = worldView(loadImage(shot("still1")));
    game.waitExit(1.0);
    const Image second = worldView(loadImage(shot("still2")));
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
        difference = meanDifference(loadImage(shot("end")), end);
        game.waitExit(0.25);
    }
    EXPECT_LT(difference, 6.0) << "the end picture did not show after walking off the level";

    game.key("Return"); // does nothing any more
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(PlayTest, ACorruptLevelIsReportedAndEscapeStillQuits)
{
    std::string bytes = smallFloor();
    bytes.resize(bytes.size() / 2);
    game.writeData("fbx/level.fbx", bytes);
    startMatch();
    EXPECT_TRUE(game.waitForError("[ERROR] There is no level to play on: ", 5.0));
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

// Every graphics switch on and off again while paint flies: the game runs with GL errors
// reported (and the harness fails on any), so each drawing path must be a legal one.
TEST_F(PlayTest, EverySwitchDrawsWithoutAGlError)
{
    game.writeData("fbx/level.fbx", smallFloor());
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
