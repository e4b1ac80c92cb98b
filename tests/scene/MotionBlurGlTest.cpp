// SPDX-License-Identifier: MIT
// The motion-blur frame on a real game: its render targets, the motion it records and the
// picture it composes, read back from GL.
#include "app/Game.h"
#include "core/Math.h"
#include "core/Settings.h"
#include "physics/Player.h"
#include "render/TextureManager.h"
#include "scene/Level.h"
#include "scene/MotionBlur.h"
#include "support/Fixtures.h"
#include "support/Image.h"

#include <GL/glew.h>
#include <SDL.h>

#include <cstdint>
#include <vector>

namespace
{
using Pixels = std::vector<uint8_t>; // RGBA rows
const int PIXELS = MotionBlur::WIDTH * MotionBlur::HEIGHT;

Pixels readTexture(const char* name)
{
    Pixels pixels(size_t(PIXELS) * 4);
    glBindTexture(GL_TEXTURE_2D, TextureManager::instance().get(name));
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    glBindTexture(GL_TEXTURE_2D, 0);
    return pixels;
}

// Grey pixels between black and white: the ramps a smeared edge makes.
int greys(const Image& image)
{
    int n = 0;
    for (size_t i = 0; i < image.rgb.size(); i += 3)
    {
        const uint8_t* p = &image.rgb[i];
        n += p[0] > 24 && p[0] < 232 && p[0] == p[1] && p[0] == p[2];
    }
    return n;
}

// A match on the shipped level, past its lit start, so the plain frame is drawn flat like the
// blur's colour pass.
class PlayingGame : public GlTest
{
protected:
    void SetUp() override
    {
        GlTest::SetUp();
        if (IsSkipped())
        {
            return;
        }
        game = std::make_unique<Game>();
        ASSERT_TRUE(game->init());
        game->handleEvents();
        ASSERT_TRUE(game->loadMatch());
        Settings::instance().cycle("gamestate");
        SDL_Delay(3100);
        for (int i = 0; i < 3; ++i)
        {
            game->frame();
        }
    }
    void TearDown() override
    {
        game.reset();
        GlTest::TearDown();
    }

    ScratchDirectory scratch;
    std::unique_ptr<Game> game;
};
} // namespace

TEST_ON(PlayingGame, MotionBlur, RecordsTheCamerasMotionAndSmearsOnlyWhenItMoves)
{
    ASSERT_TRUE(game->getMotionBlur() && game->getMotionBlur()->ready());
    // A splat on the level: drawing paint switches programs, and what comes after must not care.
    Level* level = game->getLevel();
    game->getPlayer()->throwBall(game->getCamera()->viewDirection());
    for (int i = 0; i < 300 && level->splatCount() == 0; ++i)
    {
        SDL_Delay(10);
        game->frame();
    }
    ASSERT_GT(level->splatCount(), 0u);

    // Still, then as if a frame ago the eye stood a little to the left: everything has since
    // moved left on screen.
    FrameView& seen = game->getFrameView();
    const Mat4 view = viewMatrix(*game->getCamera());
    seen.view = view;
    for (const float shift : {0.0f, 0.3f})
    {
        SCOPED_TRACE(shift);
        seen.previousView = math::multiply(math::translate(math::identity(), {shift, 0, 0}), view);
        game->render();
        const Image plain = readFramebuffer();
        game->renderMotionBlurFrame();
        const Image blurred = readFramebuffer();

        // Covered pixels have blue above 128 and their motion in red and green, 128 for none.
        const Pixels motion = readTexture("motionblur1");
        int covered = 0, still = 0, leftwards = 0, vertical = 0;
        for (size_t i = 0; i < motion.size(); i += 4)
        {
            if (motion[i + 2] > 128)
            {
                ++covered;
                still += motion[i] == 128 && motion[i + 1] == 128;
                leftwards += motion[i] < 128;
                vertical += motion[i + 1] != 128;
            }
        }
        EXPECT_GT(covered, PIXELS / 4);
        if (shift == 0.0f)
        {
            EXPECT_EQ(still, covered);
            EXPECT_LT(countDifferent(plain, blurred, 8), PIXELS / 500);
        }
        else
        {
            EXPECT_GT(leftwards, covered * 9 / 10);
            EXPECT_LT(vertical, covered / 100);
            // Edges between the white level and the black background turn into grey ramps.
            EXPECT_GT(greys(blurred), greys(plain) + 2000);
        }
    }
}

TEST_ON(PlayingGame, MotionBlur, AnIncompleteFramebufferIsReportedAndLaterFramesAreDrawnPlainly)
{
    // An empty texture cannot take the colour of the motion pass.
    TextureManager::instance().create("motionblur1", 0, 0);
    testing::internal::CaptureStdout();
    game->renderMotionBlurFrame();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("error with framebuffer\nerror with ", 0), 0u) << out;
    EXPECT_FALSE(game->getMotionBlur()->ready());
    const size_t registered = TextureManager::instance().size();
    TextureManager::instance().get("motionblur2");
    EXPECT_EQ(TextureManager::instance().size(), registered + 1)
        << "the deleted target is still listed";

    // The switch stays on; the game shows the ordinary frame from now on.
    testing::internal::CaptureStdout();
    game->frame();
    game->frame();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    // Mesa's software renderer keeps the back buffer's pixels over a swap.
    glFinish();
    const Image shown = readFramebuffer();
    int bright = 0;
    for (size_t i = 0; i < shown.rgb.size(); i += 3)
    {
        bright += shown.rgb[i] > 250;
    }
    EXPECT_GT(bright, PIXELS / 4);
}

TEST_ON(PlayingGame, MotionBlur, TheTargetsAndTheViewFollowTheWindowsSize)
{
    SDL_SetWindowSize(game->getDisplay().window, 1600, 900);
    for (int i = 0; i < 200 && game->getDisplay().width != 1600; ++i)
    {
        SDL_Delay(10);
        game->handleEvents();
    }
    ASSERT_EQ(game->getDisplay().width, 1600);
    ASSERT_EQ(game->getDisplay().height, 900);
    // The vertical field of view stays; the view widens with the window.
    const Mat4& perspective = game->getPerspective();
    EXPECT_NEAR(perspective[5] / perspective[0], 1600.0f / 900.0f, 1e-4f);

    const MotionBlur& blur = *game->getMotionBlur();
    EXPECT_EQ(blur.getWidth(), 1600);
    EXPECT_EQ(blur.getHeight(), 900);
    for (const char* name : {"motionblur1", "motionblur2"})
    {
        GLint width = 0, height = 0;
        glBindTexture(GL_TEXTURE_2D, TextureManager::instance().get(name));
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
        glBindTexture(GL_TEXTURE_2D, 0);
        EXPECT_EQ(width, 1600) << name;
        EXPECT_EQ(height, 900) << name;
    }
    // The blurred frame is still drawn: the targets are complete at their new size.
    testing::internal::CaptureStdout();
    game->renderMotionBlurFrame();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(game->getMotionBlur()->ready());
}
