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
const int WIDTH = 1024;
const int HEIGHT = 768;
const int TEXT_ROWS = 120; // the overlay's two text lines sit in the top rows

struct Column
{
    float x;
    const char* label;
    const char* value; // null: no value drawn
};

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

        Settings& settings = Settings::instance();
        settings.defineBool("framerate", false); // before the defaults: the tests switch it on
        settings.defineDefaults();

        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        ShaderManager::instance().setMatrices(
            math::identity(), math::identity(),
            math::orthographic(-512.0f, 512.0f, -384.0f, 384.0f, -1000.0f, 1000.0f));
        hud = std::make_unique<Hud>(Vec3{-412.0f, 284.0f, 0.0f});
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
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

    void begin()
    {
        glClearColor(1.0f, 1.0f, 1.0f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        glDisable(GL_DEPTH_TEST);
        glDepthMask(GL_FALSE);
    }
    // RGBA, rows from the top of the screen.
    std::vector<uint8_t> finish()
    {
        glDepthMask(GL_TRUE);
        std::vector<uint8_t> bottomUp(WIDTH * HEIGHT * 4);
        glReadPixels(0, 0, WIDTH, HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE, bottomUp.data());
        std::vector<uint8_t> pixels(bottomUp.size());
        for (int row = 0; row < HEIGHT; ++row)
        {
            std::copy_n(&bottomUp[(HEIGHT - 1 - row) * WIDTH * 4], WIDTH * 4,
                        &pixels[row * WIDTH * 4]);
        }
        return pixels;
    }
    std::vector<uint8_t> drawHud()
    {
        begin();
        hud->draw();
        return finish();
    }
    // What the overlay's text should look like, drawn string by string.
    std::vector<uint8_t> drawTexts(const std::vector<Column>& columns, int align)
    {
        begin();
        for (const Column& column : columns)
        {
            FontManager::instance().draw("bankgothic-black-small", column.x, -365.0f, column.label,
                                         align);
            if (column.value)
            {
                FontManager::instance().draw("bankgothic-black-small", column.x, -349.0f,
                                             column.value, align);
            }
        }
        return finish();
    }

    GlContext gl;
    std::unique_ptr<OffscreenTarget> target;
    std::unique_ptr<Hud> hud;
};

const uint8_t* at(const std::vector<uint8_t>& pixels, int x, int row)
{
    return &pixels[(static_cast<size_t>(row) * WIDTH + x) * 4];
}

// Pixels darker than mid-grey in the top rows between screen x X0 and X1.
int inkIn(const std::vector<uint8_t>& pixels, int x0, int x1, int row0 = 0, int row1 = TEXT_ROWS)
{
    int count = 0;
    for (int row = row0; row < row1; ++row)
    {
        for (int x = x0 + 512; x < x1 + 512; ++x)
        {
            count += at(pixels, x, row)[0] < 128;
        }
    }
    return count;
}

bool sameTopRows(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b)
{
    return std::equal(a.begin(), a.begin() + TEXT_ROWS * WIDTH * 4, b.begin());
}
} // namespace

TEST_F(HudGlTest, SwatchShowsThePaintColourAtTheBottomCentre)
{
    const float paint[4] = {0.2f, 0.6f, 1.0f, 1.0f};
    hud->setColour(paint);
    EXPECT_EQ(hud->getColour().y, 0.6f);
    const std::vector<uint8_t> pixels = drawHud();

    const uint8_t* bottom = at(pixels, 512, HEIGHT - 1);
    EXPECT_NEAR(bottom[0], 51, 2);
    EXPECT_NEAR(bottom[1], 153, 2);
    EXPECT_NEAR(bottom[2], 255, 2);
    // The disc of radius 200 around (0, -500) rises to 84 pixels above the bottom edge.
    EXPECT_NEAR(at(pixels, 512, HEIGHT - 80)[0], 51, 2);
    EXPECT_EQ(at(pixels, 512, HEIGHT - 88)[0], 255);
    EXPECT_EQ(at(pixels, 20, HEIGHT - 1)[0], 255); // bottom corners stay clear
    EXPECT_EQ(at(pixels, WIDTH - 20, HEIGHT - 1)[0], 255);
}

TEST_F(HudGlTest, FramerateAndGameTimeOnlyWhileSwitchedOn)
{
    hud->setFps(60);
    hud->setTime(12);
    // Both switches off: only the disc, nothing anywhere above it.
    const std::vector<uint8_t> quiet = drawHud();
    EXPECT_EQ(inkIn(quiet, -512, 512, 0, HEIGHT - 90), 0);

    testing::internal::CaptureStderr();
    Settings::instance().toggle("framerate");
    testing::internal::GetCapturedStderr();
    const std::vector<uint8_t> shown = drawHud();
    const std::vector<uint8_t> expected =
        drawTexts({{-500.0f, "framerate: 60 fps", "game time: 12 sec"}}, FontManager::ALIGN_LEFT);
    EXPECT_GT(inkIn(expected, -500, -300), 200);
    EXPECT_TRUE(sameTopRows(shown, expected));
}

TEST_F(HudGlTest, HelpRowShowsEverySwitchInItsColumn)
{
    Settings& settings = Settings::instance();
    testing::internal::CaptureStderr();
    settings.toggle("help");
    testing::internal::GetCapturedStderr();
    const std::vector<uint8_t> defaults = drawHud();
    const std::vector<Column> defaultColumns = {
        {-280.0f, "texture quality", "nearest neighbour"},
        {-110.0f, "mipmap filter", "off"},
        {30.0f, "vbo", "on"},
        {150.0f, "motion blur", "off"},
        {300.0f, "view frustum culling", "on"},
        {450.0f, "transparency", "on"},
    };
    const std::vector<uint8_t> expected = drawTexts(defaultColumns, FontManager::ALIGN_CENTRE);
    for (const Column& column : defaultColumns)
    {
        const int x = static_cast<int>(column.x);
        EXPECT_GT(inkIn(expected, x - 12, x + 12), 20) << column.label;
    }
    EXPECT_TRUE(sameTopRows(defaults, expected));

    testing::internal::CaptureStderr();
    settings.cycle("texture-quality");
    settings.cycle("texture-mipmap");
    for (const char* key : {"vbo", "motionblur", "frustum", "transparency"})
    {
        settings.toggle(key);
    }
    testing::internal::GetCapturedStderr();
    std::vector<Column> changedColumns = {
        {-280.0f, "texture quality", "linear"},
        {-110.0f, "mipmap filter", "nearest neigbour"},
        {30.0f, "vbo", "off"},
        {150.0f, "motion blur", "on"},
        {300.0f, "view frustum culling", "off"},
        {450.0f, "transparency", "off"},
    };
    EXPECT_TRUE(sameTopRows(drawHud(), drawTexts(changedColumns, FontManager::ALIGN_CENTRE)));

    // A value outside the listed ones shows the label alone.
    settings.step("texture-quality", -1); // 1 -> 0
    settings.step("texture-quality", -1); // 0 -> -1
    changedColumns[0].value = nullptr;
    EXPECT_TRUE(sameTopRows(drawHud(), drawTexts(changedColumns, FontManager::ALIGN_CENTRE)));
}
