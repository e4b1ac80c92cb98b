// SPDX-License-Identifier: MIT
#include "render/FontManager.h"
#include "render/TextureManager.h"
#include "support/Fixtures.h"
#include "support/Image.h"

#include <GL/glew.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>

namespace
{
const char* const BIG = "bankgothic-black";

// Standard output and error while RUN runs.
template <typename Run> std::pair<std::string, std::string> quietly(Run run)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    run();
    std::string out = testing::internal::GetCapturedStdout();
    return {out, testing::internal::GetCapturedStderr()};
}

// The dark pixels after "HUD" is drawn in FONT on white.
int inkOf(const std::string& font)
{
    glClearColor(1, 1, 1, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    FontManager::instance().draw(font, 0.0f, 0.0f, "HUD", FontManager::ALIGN_LEFT);
    const Image drawn = readFramebuffer();
    int ink = 0;
    for (size_t i = 0; i < drawn.rgb.size(); i += 3)
    {
        ink += drawn.rgb[i] < 128;
    }
    return ink;
}
} // namespace

GL_TEST(FontManager, LoadsEachFontOnceAndReportsUnreadableOnes)
{
    OffscreenTarget target;
    // The game's drawing state.
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_CULL_FACE);
    glEnable(GL_DEPTH_TEST);
    quietly([] { FontManager::instance(); }); // builds every shader
    FontManager& fonts = FontManager::instance();
    EXPECT_EQ(quietly([&] { EXPECT_TRUE(fonts.load(BIG)); }),
              std::make_pair(std::string("Loaded Texture: bankgothic-black (512x256)\n"),
                             std::string("Loaded Font: bankgothic-black")));
    EXPECT_EQ(quietly([&] { EXPECT_TRUE(fonts.load(BIG)); }),
              std::make_pair(std::string(), std::string()));
    EXPECT_GT(inkOf(BIG), 100);

    // Missing; a directory: it opens, but every read fails; files that are no descriptor: empty,
    // and random bytes, which describe no page and no character.
    const std::string descriptor = readFile(sourceFile("data/fonts/bankgothic-black.fnt"));
    ScratchDirectory scratch(false);
    std::filesystem::create_directories("data/fonts/folder.fnt");
    std::ofstream("data/fonts/empty.fnt", std::ios::binary);
    std::string noise(descriptor.size(), '\0');
    std::mt19937 random(7);
    std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random()); });
    std::ofstream("data/fonts/noise.fnt", std::ios::binary) << noise;
    for (const std::string name : {"missing", "folder", "empty", "noise"})
    {
        EXPECT_EQ(quietly([&] { EXPECT_FALSE(fonts.load(name)); }).second,
                  "[ERROR] Could not read font '" + name + "' from data/fonts/" + name + ".fnt\n");
        EXPECT_FALSE(fonts.has(name));
        EXPECT_EQ(inkOf(name), 0);
    }

    // A good descriptor without its page: the font loads, without a page to draw from.
    std::ofstream("data/fonts/pageless.fnt", std::ios::binary) << descriptor;
    quietly([&] { EXPECT_TRUE(fonts.load("pageless")); });
    EXPECT_TRUE(fonts.has("pageless"));
    EXPECT_EQ(TextureManager::instance().get("pageless"), 0u);
    quietly([&] { inkOf("pageless"); });
}
