#include "app/Game.h"
#include "app/Settings.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <SDL.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace
{
// A real game with its window, fed synthetic SDL events. It runs from a scratch directory with
// the repository's data/ so the menu and shaders load.
class GameGlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        testing::internal::CaptureStderr();
        const bool started = game.init();
        testing::internal::GetCapturedStderr();
        if (!started)
        {
            GTEST_SKIP() << "no display or GL 3.2 context";
        }
        game.handleEvents(); // the resize event queued by the window
    }

    static void push(Uint32 type, SDL_Scancode scancode)
    {
        // A poll that found the queue empty leaves SDL's end-of-pass marker behind; events pushed
        // after it would only be seen by the pass after next.
        SDL_FlushEvent(SDL_POLLSENTINEL);
        SDL_Event event{};
        event.type = type;
        event.key.keysym.scancode = scancode;
        event.key.state = type == SDL_KEYDOWN ? SDL_PRESSED : SDL_RELEASED;
        SDL_PushEvent(&event);
    }
    static void press(SDL_Scancode scancode) { push(SDL_KEYDOWN, scancode); }

    // Presses F1..F9 and returns what the handler printed.
    std::string pressFunctionKeys()
    {
        for (int key = SDL_SCANCODE_F1; key <= SDL_SCANCODE_F9; ++key)
        {
            press(static_cast<SDL_Scancode>(key));
        }
        testing::internal::CaptureStderr();
        EXPECT_TRUE(game.handleEvents());
        return testing::internal::GetCapturedStderr();
    }

    Settings& settings() { return Settings::instance(); }

    ScratchDirectory scratch;
    Game game;
};

const char* const SWITCH_LINES =
    "Switching help...\nSwitching framerate...\nSwitching wireframe...\n"
    "Switching vbo...\nSwitching motionblur...\nSwitching frustum...\n"
    "Switching transparency...\n";
} // namespace

TEST_F(GameGlTest, StartsOnTheMenuWithTheDefaults)
{
    EXPECT_EQ(settings().getInt("gamestate"), 0);
    EXPECT_FALSE(settings().getBool("help"));
    EXPECT_TRUE(settings().getBool("framerate"));
    EXPECT_TRUE(settings().getBool("vbo"));
    EXPECT_TRUE(settings().getBool("frustum"));
    EXPECT_TRUE(settings().getBool("transparency"));
    EXPECT_EQ(game.getDisplay().width, 1024);
    EXPECT_EQ(game.getDisplay().height, 768);
    int major = 0, minor = 0, profile = 0;
    SDL_GL_GetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, &major);
    SDL_GL_GetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, &minor);
    SDL_GL_GetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, &profile);
    EXPECT_GE(major * 10 + minor, 32);
    EXPECT_EQ(profile, SDL_GL_CONTEXT_PROFILE_COMPATIBILITY);
    EXPECT_EQ(std::string(SDL_GetWindowTitle(const_cast<SDL_Window*>(game.getDisplay().window))),
              "Blotch");
}

TEST_F(GameGlTest, FunctionKeysWorkInEveryState)
{
    for (int state = 0; state < 3; ++state)
    {
        const int quality = settings().getInt("texture-quality");
        const int mipmap = settings().getInt("texture-mipmap");
        EXPECT_EQ(pressFunctionKeys(), SWITCH_LINES) << "state " << state;
        EXPECT_EQ(settings().getInt("texture-quality"), (quality + 1) % 2);
        EXPECT_EQ(settings().getInt("texture-mipmap"), (mipmap + 1) % 3);
        EXPECT_TRUE(game.isKeyDown(SDL_SCANCODE_F9));
        settings().cycle("gamestate");
    }
}

TEST_F(GameGlTest, ReturnStartsAMatchOnlyFromTheMenuEvenWhenTheLevelIsMissing)
{
    // The scratch data/ has no level: loading fails, the state still moves on.
    std::filesystem::remove("data");
    std::filesystem::create_directories("data/shader");
    testing::internal::CaptureStderr();
    press(SDL_SCANCODE_RETURN);
    EXPECT_TRUE(game.handleEvents());
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(settings().getInt("gamestate"), 1);
    EXPECT_FALSE(game.hasMatch());

    press(SDL_SCANCODE_RETURN); // playing: only recorded
    press(SDL_SCANCODE_DOWN);
    EXPECT_TRUE(game.handleEvents());
    EXPECT_EQ(settings().getInt("gamestate"), 1);
    EXPECT_EQ(settings().getInt("menu-pos"), 0);
    EXPECT_TRUE(game.isKeyDown(SDL_SCANCODE_RETURN));

    settings().cycle("gamestate"); // finished
    press(SDL_SCANCODE_RETURN);
    EXPECT_TRUE(game.handleEvents());
    EXPECT_EQ(settings().getInt("gamestate"), 2);

    // Frames in the playing state without a level draw nothing and report it once.
    testing::internal::CaptureStderr();
    settings().cycle("gamestate");
    settings().cycle("gamestate");
    for (int i = 0; i < 3; ++i)
    {
        game.frame();
    }
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.find("[ERROR]"), err.rfind("[ERROR]")) << err;
}

TEST_F(GameGlTest, ArrowsStepTheMenuCursorInTheMenuOnly)
{
    press(SDL_SCANCODE_UP);
    EXPECT_TRUE(game.handleEvents());
    EXPECT_EQ(settings().getInt("menu-pos"), -1);
    press(SDL_SCANCODE_UP);
    press(SDL_SCANCODE_DOWN);
    EXPECT_TRUE(game.handleEvents());
    EXPECT_EQ(settings().getInt("menu-pos"), 1);

    push(SDL_KEYUP, SDL_SCANCODE_DOWN);
    EXPECT_TRUE(game.handleEvents());
    EXPECT_FALSE(game.isKeyDown(SDL_SCANCODE_DOWN));
}

TEST_F(GameGlTest, EscapeAndQuitStopAtOnceAndLeaveTheRestQueued)
{
    press(SDL_SCANCODE_F1);
    press(SDL_SCANCODE_ESCAPE);
    press(SDL_SCANCODE_F2);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(game.handleEvents());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Switching help...\n");
    EXPECT_TRUE(settings().getBool("framerate"));

    SDL_Event left{};
    ASSERT_TRUE(SDL_PollEvent(&left));
    EXPECT_EQ(left.type, static_cast<Uint32>(SDL_KEYDOWN));
    EXPECT_EQ(left.key.keysym.scancode, SDL_SCANCODE_F2);

    settings().cycle("gamestate"); // Escape quits from any state
    press(SDL_SCANCODE_ESCAPE);
    EXPECT_FALSE(game.handleEvents());

    SDL_Event quit{};
    quit.type = SDL_QUIT;
    SDL_FlushEvent(SDL_POLLSENTINEL);
    EXPECT_EQ(SDL_PushEvent(&quit), 1) << SDL_GetError();
    EXPECT_FALSE(game.handleEvents());
}

TEST_F(GameGlTest, ResizeSetsTheViewportAndNeverAZeroHeight)
{
    SDL_Event resize{};
    resize.type = SDL_WINDOWEVENT;
    resize.window.event = SDL_WINDOWEVENT_SIZE_CHANGED;
    resize.window.data1 = 640;
    resize.window.data2 = 0;
    SDL_PushEvent(&resize);
    EXPECT_TRUE(game.handleEvents());
    GLint viewport[4] = {};
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[2], 640);
    EXPECT_EQ(viewport[3], 1);
}
