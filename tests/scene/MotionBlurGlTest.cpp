// The motion-blur frame on a real game: its render targets, the motion it records and the
// picture it composes, read back from GL.
#include "app/Game.h"
#include "core/Math.h"
#include "core/Settings.h"
#include "physics/Player.h"
#include "render/TextureManager.h"
#include "scene/Level.h"
#include "scene/MotionBlur.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <SDL.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace
{
using Pixels = std::vector<uint8_t>; // RGBA rows, bottom row first

Pixels readTexture(const char* name)
{
    Pixels pixels(size_t(MotionBlur::WIDTH) * MotionBlur::HEIGHT * 4);
    glBindTexture(GL_TEXTURE_2D, TextureManager::instance().get(name));
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    glBindTexture(GL_TEXTURE_2D, 0);
    return pixels;
}

Pixels readWindow()
{
    Pixels pixels(size_t(MotionBlur::WIDTH) * MotionBlur::HEIGHT * 4);
    glReadBuffer(GL_BACK);
    glReadPixels(0, 0, MotionBlur::WIDTH, MotionBlur::HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE,
                 pixels.data());
    return pixels;
}

// Pixels whose colours differ by more than TOLERANCE in some channel.
int countDifferent(const Pixels& a, const Pixels& b, int tolerance)
{
    int count = 0;
    for (size_t i = 0; i < a.size(); i += 4)
    {
        for (size_t c = 0; c < 3; ++c)
        {
            if (std::abs(int(a[i + c]) - int(b[i + c])) > tolerance)
            {
                ++count;
                break;
            }
        }
    }
    return count;
}

class MotionBlurGlTest : public ::testing::Test
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
        game.handleEvents();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        ASSERT_TRUE(game.loadMatch());
        testing::internal::GetCapturedStderr();
        testing::internal::GetCapturedStdout();
        Settings::instance().cycle("gamestate");
        // Past the lit start, so the plain frame is drawn flat like the blur's colour pass.
        SDL_Delay(3100);
        for (int i = 0; i < 3; ++i)
        {
            game.frame();
        }
    }

    ScratchDirectory scratch;
    Game game;
};
} // namespace

TEST_F(MotionBlurGlTest, AStillCameraRecordsNoMotionAndGivesThePlainPictureWithItsPaint)
{
    ASSERT_NE(game.getMotionBlur(), nullptr);
    ASSERT_TRUE(game.getMotionBlur()->ready());
    // A splat on the level: drawing paint switches programs, and what comes after must not care.
    Level* level = game.getLevel();
    game.getPlayer()->throwBall(game.getCamera()->viewDirection());
    for (int i = 0; i < 300 && level->decalCount() == 0; ++i)
    {
        SDL_Delay(10);
        game.frame();
    }
    ASSERT_GT(level->decalCount(), 0u);

    Camera& camera = *game.getCamera();
    camera.previousView = viewMatrix(camera);
    game.render();
    const Pixels plain = readWindow();
    Settings::instance().toggle("motionblur");
    game.renderMotionBlurFrame();
    const Pixels blurred = readWindow();

    // Covered pixels say "no motion" (128, 128), the background says nothing (blue 0).
    const Pixels motion = readTexture("motionblur1");
    int covered = 0;
    for (size_t i = 0; i < motion.size(); i += 4)
    {
        if (motion[i + 2] > 128)
        {
            ++covered;
            ASSERT_EQ(motion[i], 128) << "pixel " << i / 4;
            ASSERT_EQ(motion[i + 1], 128) << "pixel " << i / 4;
        }
    }
    EXPECT_GT(covered, MotionBlur::WIDTH * MotionBlur::HEIGHT / 4);
    EXPECT_LT(countDifferent(plain, blurred, 8), MotionBlur::WIDTH * MotionBlur::HEIGHT / 500);
}

TEST_F(MotionBlurGlTest, AMovingCameraRecordsItsMotionAndSmearsTheEdges)
{
    // A frame ago the eye stood a little to the left: everything has since moved left on screen.
    Camera& camera = *game.getCamera();
    const Mat4 view = viewMatrix(camera);
    const Mat4 shift = math::translate(math::identity(), Vec3{0.3f, 0.0f, 0.0f});
    camera.previousView = math::multiply(shift, view);
    game.render();
    const Pixels plain = readWindow();
    game.renderMotionBlurFrame();
    const Pixels blurred = readWindow();

    const Pixels motion = readTexture("motionblur1");
    int covered = 0, leftwards = 0, vertical = 0;
    for (size_t i = 0; i < motion.size(); i += 4)
    {
        if (motion[i + 2] > 128)
        {
            ++covered;
            leftwards += motion[i] < 128;
            vertical += motion[i + 1] != 128;
        }
    }
    ASSERT_GT(covered, 0);
    EXPECT_GT(leftwards, covered * 9 / 10);
    EXPECT_LT(vertical, covered / 100);

    // Edges between the white level and the black background turn into grey ramps.
    auto greys = [](const Pixels& p)
    {
        int n = 0;
        for (size_t i = 0; i < p.size(); i += 4)
        {
            n += p[i] > 24 && p[i] < 232 && p[i] == p[i + 1] && p[i] == p[i + 2];
        }
        return n;
    };
    EXPECT_GT(greys(blurred), greys(plain) + 2000);
    EXPECT_GT(countDifferent(plain, blurred, 8), 2000);
}

TEST_F(MotionBlurGlTest, AnIncompleteFramebufferIsReportedAndLaterFramesAreDrawnPlainly)
{
    // An empty texture cannot take the colour of the motion pass.
    TextureManager::instance().create("motionblur1", 0, 0);
    testing::internal::CaptureStdout();
    game.renderMotionBlurFrame();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("error with framebuffer\nerror with ", 0), 0u) << out;
    EXPECT_FALSE(game.getMotionBlur()->ready());
    const size_t registered = TextureManager::instance().size();
    TextureManager::instance().get("motionblur2");
    EXPECT_EQ(TextureManager::instance().size(), registered + 1)
        << "the deleted target is still listed";

    // The switch stays on; the game shows the ordinary frame from now on.
    testing::internal::CaptureStdout();
    game.frame();
    game.frame();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    // Mesa's software renderer keeps the back buffer's pixels over a swap.
    glFinish();
    const Pixels shown = readWindow();
    int bright = 0;
    for (size_t i = 0; i < shown.size(); i += 4)
    {
        bright += shown[i] > 250;
    }
    EXPECT_GT(bright, MotionBlur::WIDTH * MotionBlur::HEIGHT / 4);
}
