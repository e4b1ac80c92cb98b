#include "app/Hud.h"
#include "app/Settings.h"
#include "render/FontManager.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

namespace
{
const int WIDTH = OffscreenTarget::WIDTH;
const int HEIGHT = OffscreenTarget::HEIGHT;
const int TEXT_ROWS = 120; // the overlay's two text lines sit in the top rows
const char* const FONT = "bankgothic-black-small";

// The overlay as the game draws it: a 1024 x 768 target, the screen's orthographic matrix, and
// depth testing and writes off.
class HudGlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!gl.ok())
        {
            GTEST_SKIP() << "no GL 3.2 context: " << gl.error();
        }
        target = std::make_unique<OffscreenTarget>();
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        glEnable(GL_CULL_FACE);
        quietly(
            [this]
            {
                Settings::instance().defineBool("framerate", false); // before the defaults
                Settings::instance().defineDefaults();
                ShaderManager::instance().setMatrices(
                    math::identity(), math::identity(),
                    math::orthographic(-512.0f, 512.0f, -384.0f, 384.0f, -1000.0f, 1000.0f));
                hud = std::make_unique<Hud>(Vec3{-412.0f, 284.0f, 0.0f});
            });
    }
    void TearDown() override
    {
        hud.reset();
        FontManager::destroy();
        ShaderManager::destroy();
        TextureManager::destroy();
        Settings::destroy();
        target.reset();
    }

    template <typename Run> static void quietly(Run run)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        run();
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
    }
    // RGBA of what DRAW leaves on a white screen, rows from the bottom.
    template <typename Draw> static std::vector<uint8_t> drawn(Draw draw)
    {
        glClearColor(1.0f, 1.0f, 1.0f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        glDisable(GL_DEPTH_TEST);
        glDepthMask(GL_FALSE);
        draw();
        glDepthMask(GL_TRUE);
        std::vector<uint8_t> pixels(WIDTH * HEIGHT * 4);
        glReadPixels(0, 0, WIDTH, HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        return pixels;
    }
    // The help row's top rows look like its labels and VALUES (null: none) drawn one by one.
    void expectHelp(const std::vector<const char*>& values)
    {
        const float x[6] = {-280.0f, -110.0f, 30.0f, 150.0f, 300.0f, 450.0f};
        const char* const labels[6] = {"texture quality", "mipmap filter",        "vbo",
                                       "motion blur",     "view frustum culling", "transparency"};
        const std::vector<uint8_t> expected = drawn(
            [&]
            {
                FontManager& fonts = FontManager::instance();
                for (int c = 0; c < 6; ++c)
                {
                    fonts.draw(FONT, x[c], -365.0f, labels[c], FontManager::ALIGN_CENTRE);
                    if (values[c])
                        fonts.draw(FONT, x[c], -349.0f, values[c], FontManager::ALIGN_CENTRE);
                }
            });
        EXPECT_GT(inkInTop(expected, TEXT_ROWS), 1000);
        const std::vector<uint8_t> shown = drawn([this] { hud->draw(); });
        const size_t top = TEXT_ROWS * WIDTH * 4;
        EXPECT_TRUE(std::equal(shown.end() - top, shown.end(), expected.end() - top));
    }
    // Pixels darker than mid-grey in the top ROWS rows.
    static int inkInTop(const std::vector<uint8_t>& pixels, int rows)
    {
        int count = 0;
        for (size_t i = pixels.size() - rows * WIDTH * 4; i < pixels.size(); i += 4)
            count += pixels[i] < 128;
        return count;
    }
    static const uint8_t* at(const std::vector<uint8_t>& pixels, int x, int row)
    {
        return &pixels[((HEIGHT - 1 - row) * WIDTH + x) * 4];
    }

    GlContext gl;
    std::unique_ptr<OffscreenTarget> target;
    std::unique_ptr<Hud> hud;
};
} // namespace

TEST_F(HudGlTest, SwitchedOffShowsOnlyTheSwatchInThePaintColour)
{
    const float paint[4] = {0.2f, 0.6f, 1.0f, 1.0f};
    hud->setColour(paint);
    const std::vector<uint8_t> pixels = drawn([this] { hud->draw(); });

    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(at(pixels, 512, HEIGHT - 1)[c], paint[c] * 255, 2) << c;
    // The disc of radius 200 around (0, -500) rises to 84 pixels above the bottom edge.
    EXPECT_NEAR(at(pixels, 512, HEIGHT - 80)[0], 51, 2);
    EXPECT_EQ(at(pixels, 512, HEIGHT - 88)[0], 255);
    EXPECT_EQ(at(pixels, 20, HEIGHT - 1)[0], 255); // bottom corners stay clear
    EXPECT_EQ(at(pixels, WIDTH - 20, HEIGHT - 1)[0], 255);
    EXPECT_EQ(inkInTop(pixels, HEIGHT - 90), 0); // and nothing above it
}

TEST_F(HudGlTest, HelpRowShowsEverySwitchInItsColumn)
{
    Settings& settings = Settings::instance();
    quietly([&] { settings.toggle("help"); });
    // Two spellings: the quality column has always said "neighbour", the mipmap one "neigbour".
    expectHelp({"nearest neighbour", "off", "on", "off", "on", "on"});
    quietly(
        [&]
        {
            settings.cycle("texture-quality");
            settings.cycle("texture-mipmap");
            for (const char* key : {"vbo", "motionblur", "frustum", "transparency"})
                settings.toggle(key);
        });
    expectHelp({"linear", "nearest neigbour", "off", "on", "off", "off"});
    // A value outside the listed ones shows the label alone.
    quietly([&] { settings.step("texture-quality", -1), settings.step("texture-quality", -1); });
    expectHelp({nullptr, "nearest neigbour", "off", "on", "off", "off"});
}
