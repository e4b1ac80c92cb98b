// SPDX-License-Identifier: MIT
// End-to-end: the real binary on the X display, driven by real key events.
#include "E2eTest.h"

#include <csignal>

namespace
{
const char* const STARTED = "[SUCCESS] - Successfully started Main Loop\n";
const char* const FAILED = "Could not initialize Blotch - MAJOR PROBLEM";

std::string shotPath(const GameProcess& game, const std::string& name)
{
    return game.workDir() + "/" + name + ".png";
}

// Waits until the window shows something close to EXPECTED (the first frames may be black).
bool waitForPicture(GameProcess& game, const Image& expected, const std::string& path,
                    double maxDifference, double* difference)
{
    for (int attempt = 0; attempt < 40; ++attempt)
    {
        if (game.screenshot(path))
        {
            *difference = meanDifference(loadImage(path), expected);
            if (*difference < maxDifference)
            {
                return true;
            }
        }
        game.waitExit(0.25);
    }
    return false;
}

using E2eStartup = E2eTest;
} // namespace

TEST_F(E2eStartup, ShowsTheMenuAndAnswersEveryFunctionKey)
{
    GameProcess game;
    ASSERT_TRUE(game.start());
    ASSERT_TRUE(game.waitForError(STARTED, GameProcess::START_SECONDS)) << game.errorText();
    const std::string startup = game.errorText();
    for (const char* name :
         {"unicolor-hud", "hud", "minimal", "unicolor", "decal", "menu", "level"})
    {
        EXPECT_NE(startup.find(std::string("[SUCCESS] Shader '") + name + "' ("), std::string::npos)
            << name;
    }
    EXPECT_EQ(startup.find("[ERROR]"), std::string::npos) << startup;
    EXPECT_NE(game.outputText().find("Loaded Texture: menu01 (1024x768)\n"), std::string::npos);
    EXPECT_NE(game.outputText().find("Loaded Texture: menu02 (1024x768)\n"), std::string::npos);

    const Image menu = expectedMenu("menu01");
    double difference = 0.0;
    ASSERT_TRUE(waitForPicture(game, menu, shotPath(game, "menu"), 6.0, &difference))
        << "mean difference " << difference;
    // The end picture must not be what shows on the start screen.
    EXPECT_GT(meanDifference(loadImage(shotPath(game, "menu")), expectedMenu("menu02")), 10.0);

    const size_t before = game.errorText().size();
    for (const char* key : {"F1", "F2", "F3", "F4", "F5", "F6", "F7", "F8", "F9"})
    {
        game.key(key);
    }
    ASSERT_TRUE(game.waitForError("Switching transparency...\n", 10.0));
    EXPECT_EQ(game.errorText().substr(before),
              "Switching help...\nSwitching framerate...\nSwitching wireframe...\n"
              "Switching vbo...\nSwitching motionblur...\nSwitching frustum...\n"
              "Switching transparency...\n");

    // "vbo" is now off: the menu draws from client memory and must look the same.
    ASSERT_TRUE(waitForPicture(game, menu, shotPath(game, "menu-novbo"), 6.0, &difference))
        << "mean difference " << difference;
    EXPECT_LT(countDifferent(loadImage(shotPath(game, "menu")),
                             loadImage(shotPath(game, "menu-novbo")), 8),
              1024 * 768 / 100);

    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2eStartup, ClosingTheWindowQuitsCleanly)
{
    GameProcess game;
    ASSERT_TRUE(game.start());
    ASSERT_TRUE(game.waitForError(STARTED, GameProcess::START_SECONDS));
    ASSERT_NE(game.window(), 0ul);
    ASSERT_TRUE(game.closeWindow());
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2eStartup, ACrashSaysWhereItHappenedAndEndsAsTheSignalWould)
{
#ifdef BLOTCH_SANITIZED
    GTEST_SKIP() << "the sanitizers report crashes themselves";
#endif
    for (int signal : {SIGSEGV, SIGABRT})
    {
        SCOPED_TRACE(signal);
        GameProcess game;
        ASSERT_TRUE(game.launch());
        game.sendSignal(signal);
        EXPECT_EQ(game.waitExit(10.0), 128 + signal);
        const std::string err = game.errorText();
        const std::string said = std::string("[CRASH] blotch stopped on ") +
                                 (signal == SIGSEGV ? "SIGSEGV" : "SIGABRT") + ", called from:\n";
        const size_t at = err.find(said);
        ASSERT_NE(at, std::string::npos) << err;
        // One line a frame, each with its address; the handler itself is the first.
        const std::string stack = err.substr(at + said.size());
        EXPECT_NE(stack.find("[0x"), std::string::npos) << stack;
        EXPECT_NE(stack.find("blotch("), std::string::npos) << stack;
    }
}

TEST_F(E2eStartup, WithoutADisplayItSaysSoAndExitsWithZero)
{
    GameProcess game;
    ASSERT_TRUE(game.start({"DISPLAY=:4711"}));
    EXPECT_EQ(game.waitExit(GameProcess::START_SECONDS), 0);
    const std::string err = game.errorText();
    EXPECT_EQ(err.substr(err.size() - std::string(FAILED).size()), FAILED) << err;
    EXPECT_EQ(err.find(STARTED), std::string::npos);
    // The one line that tells what to fix, and not a GL error that follows from it.
    EXPECT_NE(err.find("[ERROR] No display could be opened (DISPLAY=:4711)"), std::string::npos)
        << err;
    EXPECT_EQ(err.find("GLEW"), std::string::npos) << err;
}

TEST_F(E2eStartup, WithoutAGl32ContextItSaysSoAndExitsWithZero)
{
    GameProcess game;
    // Mesa then offers nothing newer than 3.1, so the 3.2 context cannot be made.
    ASSERT_TRUE(game.start({"MESA_GL_VERSION_OVERRIDE=3.1"}));
    EXPECT_EQ(game.waitExit(GameProcess::START_SECONDS), 0);
    const std::string err = game.errorText();
    EXPECT_NE(err.find(FAILED), std::string::npos) << err;
    EXPECT_EQ(err.find(STARTED), std::string::npos);
}

TEST_F(E2eStartup, BrokenShadersAndAMissingMenuPictureDoNotStopTheGame)
{
    GameProcess game(GameProcess::Data::Copy);
    game.removeData("shader/hud.frag");
    game.writeData("shader/level.vert", "this is not GLSL\n");
    game.removeData("textures/menu01.png");
    ASSERT_TRUE(game.start());
    ASSERT_TRUE(game.waitForError(STARTED, GameProcess::START_SECONDS)) << game.errorText();
    const std::string err = game.errorText();
    EXPECT_NE(err.find("[ERROR] There is a problem with the 'hud' shader program: \n"),
              std::string::npos);
    EXPECT_NE(err.find("[ERROR] There is a problem with the 'level' shader program: \n"),
              std::string::npos);
    EXPECT_NE(err.find("[SUCCESS] Shader 'menu'"), std::string::npos);
    // A missing picture is quiet: the start screen samples texture 0, which is black.
    EXPECT_EQ(err.find("menu01"), std::string::npos);
    EXPECT_EQ(game.outputText().find("menu01"), std::string::npos);
    game.waitExit(1.0);
    ASSERT_TRUE(game.screenshot(shotPath(game, "black")));
    const Image shot = loadImage(shotPath(game, "black"));
    EXPECT_LT(meanChannel(shot, 0, 0, 0, shot.width, shot.height) +
                  meanChannel(shot, 1, 0, 0, shot.width, shot.height),
              4.0);
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}
