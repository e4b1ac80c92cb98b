#include "app/Settings.h"
#include "render/FontManager.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>

namespace
{
const char* const BIG = "bankgothic-black";

const int WIDTH = 1024; // one pixel per screen unit, as in the game's window
const int HEIGHT = 768;

// Where ink is, in text screen units (x -512..512, y -384 at the top).
struct Ink
{
    int count = 0;
    int minX = WIDTH, maxX = -WIDTH, minY = HEIGHT, maxY = -HEIGHT;
    int darkest = 255;
};

class FontManagerGlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!gl.ok())
        {
            GTEST_SKIP() << "no GL 3.2 context: " << gl.error();
        }
        target = std::make_unique<OffscreenTarget>();
        // The game's drawing state.
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        glEnable(GL_CULL_FACE);
        glEnable(GL_DEPTH_TEST);
        Settings::instance().defineBool("wireframe", false);
        testing::internal::CaptureStderr();
        FontManager::instance();
        testing::internal::GetCapturedStderr();
    }
    void TearDown() override
    {
        FontManager::destroy();
        ShaderManager::destroy();
        TextureManager::destroy();
        Settings::destroy();
        target.reset();
    }

    // The red channel, rows from the top of the screen.
    static std::vector<uint8_t> redRows()
    {
        std::vector<uint8_t> rgba(WIDTH * HEIGHT * 4), red(WIDTH * HEIGHT);
        glReadPixels(0, 0, WIDTH, HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        for (int i = 0; i < WIDTH * HEIGHT; ++i)
        {
            red[(HEIGHT - 1 - i / WIDTH) * WIDTH + i % WIDTH] = rgba[i * 4];
        }
        return red;
    }
    static Ink findInk(const std::vector<uint8_t>& red, bool darkOnLight)
    {
        Ink ink;
        for (int i = 0; i < WIDTH * HEIGHT; ++i)
        {
            ink.darkest = std::min<int>(ink.darkest, red[i]);
            if (darkOnLight == (red[i] < 128))
            {
                ++ink.count;
                ink.minX = std::min(ink.minX, i % WIDTH - 512);
                ink.maxX = std::max(ink.maxX, i % WIDTH - 512);
                ink.minY = std::min(ink.minY, i / WIDTH - 384);
                ink.maxY = std::max(ink.maxY, i / WIDTH - 384);
            }
        }
        return ink;
    }
    // Draws TEXT on a fresh background and returns the ink.
    static Ink drawn(const std::string& font, float x, float y, const std::string& text, int align,
                     bool darkOnLight = true)
    {
        const float grey = darkOnLight ? 1.0f : 0.0f;
        glClearColor(grey, grey, grey, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        FontManager::instance().draw(font, x, y, text, align);
        return findInk(redRows(), darkOnLight);
    }

    static void loadQuietly(const char* name)
    {
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        ASSERT_TRUE(FontManager::instance().load(name));
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
    }

    GlContext gl;
    std::unique_ptr<OffscreenTarget> target;
};
} // namespace

TEST_F(FontManagerGlTest, DrawsBlackGlyphsWhereTheLayoutPutsThem)
{
    loadQuietly(BIG);
    const Font& font = *FontManager::instance().find(BIG);
    const std::vector<GlyphQuad> quads = layoutText(font, "HUD", nullptr);
    ASSERT_EQ(quads.size(), 3u);

    const Ink ink = drawn(BIG, -100.0f, 50.0f, "HUD", FontManager::ALIGN_LEFT);
    EXPECT_LT(ink.darkest, 10);
    // The ink fills the quads' outline: "H" starts, and "D" ends, at its quad's edge.
    EXPECT_NEAR(ink.minX, -100 + quads[0].positions[0], 1.5);
    EXPECT_NEAR(ink.maxX + 1, -100 + quads[2].positions[4], 1.5);
    EXPECT_NEAR(ink.minY, 50 + quads[0].positions[1], 1.5); // y grows downwards
    EXPECT_NEAR(ink.maxY + 1, 50 + quads[0].positions[9], 1.5);

    // The right glyph the right way up: a "U" is open at the top and closed at the bottom.
    const Ink u = drawn(BIG, 0.0f, 0.0f, "U", FontManager::ALIGN_LEFT);
    const std::vector<uint8_t> red = redRows();
    ASSERT_GT(u.count, 100);
    const int middle = 512 + (u.minX + u.maxX) / 2;
    EXPECT_GT(red[(384 + u.minY + 2) * WIDTH + middle], 200);
    EXPECT_LT(red[(384 + u.maxY - 2) * WIDTH + middle], 50);
}

TEST_F(FontManagerGlTest, AlignmentUsesTheAdvanceWidthWithKerning)
{
    loadQuietly(BIG);
    const Font& font = *FontManager::instance().find(BIG);
    for (const std::string text : {"HUD", "AVATAR"}) // A-V, V-A and T-A are kerned
    {
        float advance = 0.0f;
        layoutText(font, text, &advance);
        const Ink left = drawn(BIG, 0.0f, 0.0f, text, FontManager::ALIGN_LEFT);
        const Ink right = drawn(BIG, 0.0f, 0.0f, text, FontManager::ALIGN_RIGHT);
        const Ink centre = drawn(BIG, 0.0f, 0.0f, text, FontManager::ALIGN_CENTRE);
        ASSERT_GT(left.count, 100) << text;
        EXPECT_EQ(right.minX, left.minX - advance) << text;
        EXPECT_EQ(right.maxX, left.maxX - advance) << text;
        EXPECT_NEAR(centre.minX, left.minX - advance / 2, 1.0) << text;
        EXPECT_NEAR(centre.maxX, left.maxX - advance / 2, 1.0) << text;
        EXPECT_EQ(right.minY, left.minY) << text;
        EXPECT_LT(right.maxX, 0) << text; // no ink past the end of the last advance
    }
}

TEST_F(FontManagerGlTest, WireframeDrawsWhiteFilledTextAndRestoresLines)
{
    loadQuietly(BIG);
    const Ink black = drawn(BIG, -300.0f, 0.0f, "Wireframe 42", FontManager::ALIGN_LEFT);
    GLint mode[2] = {};
    glGetIntegerv(GL_POLYGON_MODE, mode);
    EXPECT_EQ(mode[0], GL_FILL);
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST));

    testing::internal::CaptureStderr();
    Settings::instance().toggle("wireframe");
    testing::internal::GetCapturedStderr();
    glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
    const Ink white = drawn(BIG, -300.0f, 0.0f, "Wireframe 42", FontManager::ALIGN_LEFT, false);
    // As much ink as the filled black text: outlined quads would show almost none.
    EXPECT_NEAR(white.count, black.count, black.count / 50);
    EXPECT_EQ(white.minX, black.minX);
    glGetIntegerv(GL_POLYGON_MODE, mode);
    EXPECT_EQ(mode[0], GL_LINE);
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
}

TEST_F(FontManagerGlTest, LoadingTwiceReadsTheFilesOnce)
{
    FontManager& fonts = FontManager::instance();
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_TRUE(fonts.load(BIG));
    EXPECT_TRUE(fonts.load(BIG));
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Loaded Font: bankgothic-black");
    EXPECT_EQ(out, "Loaded Texture: bankgothic-black (512x256)\n");

    const Font* font = fonts.find(BIG);
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(font->scaleW, 512);
    EXPECT_EQ(font->texture, TextureManager::instance().get(BIG));
    EXPECT_NE(font->texture, 0u);
    EXPECT_EQ(font->textureUnit, TextureManager::instance().unit(BIG));
}

TEST_F(FontManagerGlTest, UnreadableDescriptorsReportAndRegisterNothing)
{
    ScratchDirectory scratch(false);
    FontManager& fonts = FontManager::instance();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(fonts.load(BIG));
    std::filesystem::create_directories("data/fonts/folder.fnt");
    EXPECT_FALSE(fonts.load("folder"));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "[ERROR] Could not read font 'bankgothic-black' from "
                   "data/fonts/bankgothic-black.fnt\n"
                   "[ERROR] Could not read font 'folder' from data/fonts/folder.fnt\n");
    EXPECT_FALSE(fonts.has(BIG));
    EXPECT_FALSE(fonts.has("folder"));

    // Garbage is read as far as it makes sense and drawn without harm.
    std::ofstream("data/fonts/noise.fnt", std::ios::binary)
        << "char id=72 width=65535 height=9 xoffset=-1 xadvance=65535\n\x01\xff\x02zz\n"
           "kerning first=72 second=72 amount=-32768\n";
    testing::internal::CaptureStderr();
    EXPECT_TRUE(fonts.load("noise"));
    testing::internal::GetCapturedStderr();
    drawn("noise", 0.0f, 0.0f, "HHH", FontManager::ALIGN_CENTRE);
    // An unknown name draws nothing.
    EXPECT_EQ(drawn("never-loaded", 0.0f, 0.0f, "HUD", FontManager::ALIGN_LEFT).count, 0);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}
