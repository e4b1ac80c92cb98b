#include "core/Settings.h"
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
#include <iterator>
#include <string>
#include <vector>

namespace
{
const char* const BIG = "bankgothic-black";
const int WIDTH = OffscreenTarget::WIDTH; // one pixel per text screen unit
const int HEIGHT = OffscreenTarget::HEIGHT;

// What one draw left on the screen, and the bounds of its ink in text screen units (x -512..512,
// y -384 at the top).
struct Ink
{
    std::vector<uint8_t> rgba = std::vector<uint8_t>(WIDTH * HEIGHT * 4);
    int count = 0;
    int minX = WIDTH, maxX = -WIDTH, minY = HEIGHT, maxY = -HEIGHT;
    int redAt(int x, int y) const { return rgba[((383 - y) * WIDTH + x + 512) * 4]; }
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
        quietly([] { FontManager::instance(); }); // builds every shader
        firstLoad = quietly([] { FontManager::instance().load(BIG); });
        ASSERT_TRUE(FontManager::instance().has(BIG));
    }
    void TearDown() override
    {
        FontManager::destroy();
        ShaderManager::destroy();
        TextureManager::destroy();
        Settings::destroy();
        target.reset();
    }
    // Standard output and error while RUN runs.
    template <typename Run> static std::pair<std::string, std::string> quietly(Run run)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        run();
        std::string out = testing::internal::GetCapturedStdout();
        return {out, testing::internal::GetCapturedStderr()};
    }

    // Draws TEXT on a fresh white background (black without DARKONLIGHT) and finds the ink.
    static Ink drawn(const std::string& font, float x, float y, const std::string& text, int align,
                     bool darkOnLight = true)
    {
        glClearColor(darkOnLight, darkOnLight, darkOnLight, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        FontManager::instance().draw(font, x, y, text, align);
        Ink ink;
        glReadPixels(0, 0, WIDTH, HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE, ink.rgba.data());
        for (int y = -384; y < 384; ++y)
        {
            for (int x = -512; x < 512; ++x)
            {
                if (darkOnLight == (ink.redAt(x, y) < 128))
                {
                    ++ink.count;
                    ink.minX = std::min(ink.minX, x), ink.maxX = std::max(ink.maxX, x);
                    ink.minY = std::min(ink.minY, y), ink.maxY = std::max(ink.maxY, y);
                }
            }
        }
        return ink;
    }

    GlContext gl;
    std::unique_ptr<OffscreenTarget> target;
    std::pair<std::string, std::string> firstLoad;
};
} // namespace

TEST_F(FontManagerGlTest, LoadsEachFontOnceAndReportsUnreadableOnes)
{
    FontManager& fonts = FontManager::instance();
    EXPECT_EQ(firstLoad, std::make_pair(std::string("Loaded Texture: bankgothic-black (512x256)\n"),
                                        std::string("Loaded Font: bankgothic-black")));
    EXPECT_EQ(quietly([&] { EXPECT_TRUE(fonts.load(BIG)); }),
              std::make_pair(std::string(), std::string()));

    // Missing, and a directory: it opens, but every read fails.
    ScratchDirectory scratch(false);
    std::filesystem::create_directories("data/fonts/folder.fnt");
    for (const std::string name : {"missing", "folder"})
    {
        const std::string err = quietly([&] { EXPECT_FALSE(fonts.load(name)); }).second;
        EXPECT_EQ(err,
                  "[ERROR] Could not read font '" + name + "' from data/fonts/" + name + ".fnt\n");
        EXPECT_FALSE(fonts.has(name));
        EXPECT_EQ(drawn(name, 0.0f, 0.0f, "HUD", FontManager::ALIGN_LEFT).count, 0);
    }

    // A good descriptor with a cut or damaged page: the font loads; its page is either refused
    // (texture 0) or decoded, and drawing with it is safe.
    const std::string source = std::string(BLOTCH_SOURCE_DIR) + "/data/fonts/" + BIG;
    std::ifstream descriptorFile(source + ".fnt", std::ios::binary);
    const std::string descriptor{std::istreambuf_iterator<char>(descriptorFile), {}};
    std::ifstream pageFile(source + "_0.tga", std::ios::binary);
    const std::string page{std::istreambuf_iterator<char>(pageFile), {}};
    ASSERT_GT(page.size(), 1000u);
    std::string scrambled = page;
    for (size_t i = 0; i < scrambled.size(); i += 97)
    {
        scrambled[i] = static_cast<char>(scrambled[i] ^ 0x3c);
    }
    const std::string pages[] = {"", page.substr(0, 18), page.substr(0, page.size() / 2),
                                 scrambled};
    for (size_t k = 0; k < std::size(pages); ++k)
    {
        const std::string name = "damaged" + std::to_string(k);
        std::ofstream("data/fonts/" + name + ".fnt", std::ios::binary) << descriptor;
        std::ofstream("data/fonts/" + name + "_0.tga", std::ios::binary) << pages[k];
        quietly([&] { EXPECT_TRUE(fonts.load(name)) << name; });
        EXPECT_TRUE(fonts.has(name));
        quietly([&] { drawn(name, 0.0f, 0.0f, "HUD", FontManager::ALIGN_LEFT); });
    }
    EXPECT_EQ(TextureManager::instance().get("damaged0"), 0u); // an empty page is refused
}
