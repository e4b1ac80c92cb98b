#include "render/TextureManager.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace
{
class TextureManagerGlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!gl.ok())
        {
            GTEST_SKIP() << "no GL 3.2 context: " << gl.error();
        }
    }
    void TearDown() override { TextureManager::destroy(); }

    GlContext gl;
};

std::string readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
} // namespace

TEST_F(TextureManagerGlTest, UnitsFollowNameOrderFromOne)
{
    TextureManager& textures = TextureManager::instance();
    textures.create("c", 4, 4);
    textures.create("a", 4, 4);
    textures.create("b", 4, 4);
    EXPECT_EQ(textures.unit("a"), 1);
    EXPECT_EQ(textures.unit("b"), 2);
    EXPECT_EQ(textures.unit("c"), 3);
    // Two names for the same texture share the first one's unit: here two unknown names, both
    // texture 0.
    EXPECT_EQ(textures.unit("x-unknown"), 4);
    EXPECT_EQ(textures.unit("y-unknown"), 4);
}

TEST_F(TextureManagerGlTest, UnknownAndBadFilesGiveTextureZeroQuietly)
{
    TextureManager& textures = TextureManager::instance();
    EXPECT_EQ(textures.get("never-loaded"), 0u);
    EXPECT_EQ(textures.size(), 1u); // the name is recorded

    ScratchDirectory scratch(false);
    std::filesystem::create_directories("data/textures");
    const std::string good =
        readBytes(std::string(BLOTCH_SOURCE_DIR) + "/data/textures/menu02.png");
    ASSERT_GT(good.size(), 1000u);

    testing::internal::CaptureStdout();
    textures.load("missing", GL_BGR, "png");
    // Every cut of a real picture, and a few damaged ones, must be refused or loaded, never crash.
    for (size_t cut : {size_t(0), size_t(8), size_t(33), good.size() / 3, good.size() - 12})
    {
        std::ofstream("data/textures/cut.png", std::ios::binary) << good.substr(0, cut);
        textures.loadFile("data/textures/cut.png", "cut" + std::to_string(cut), GL_BGR, GL_RGBA, 0,
                          0);
    }
    std::string damaged = good;
    for (size_t i = 40; i < damaged.size(); i += 997)
    {
        damaged[i] = static_cast<char>(damaged[i] ^ 0x5a);
    }
    std::ofstream("data/textures/damaged.png", std::ios::binary) << damaged;
    textures.load("damaged", GL_BGR, "png");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("missing"), std::string::npos);
    EXPECT_EQ(textures.get("missing"), 0u);
    EXPECT_EQ(textures.get("cut0"), 0u);
    EXPECT_EQ(textures.get("cut8"), 0u);
    // A picture header claiming absurd sizes, over a few bytes of pixels: refused, not allocated.
    for (const auto& [width, height] : {std::pair{40000, 40000}, std::pair{0, 10}})
    {
        std::string tga(18, '\0');
        tga[2] = 2; // uncompressed true colour
        tga[12] = char(width & 0xff), tga[13] = char(width >> 8);
        tga[14] = char(height & 0xff), tga[15] = char(height >> 8);
        tga[16] = 32;
        std::ofstream("data/textures/huge.tga", std::ios::binary) << tga << std::string(64, '\x7f');
        testing::internal::CaptureStderr();
        textures.loadFile("data/textures/huge.tga", "huge" + std::to_string(width), GL_RGBA,
                          GL_RGBA, 0, 0);
        EXPECT_NE(testing::internal::GetCapturedStderr().find("cannot be read"), std::string::npos);
        EXPECT_EQ(textures.get("huge" + std::to_string(width)), 0u);
    }

    // A 32-bit picture read as 24-bit would be uploaded from the wrong number of bytes: refused.
    testing::internal::CaptureStderr();
    const bool loaded =
        textures.loadFile(std::string(BLOTCH_SOURCE_DIR) + "/data/textures/paint01.png",
                          "paint-as-bgr", GL_BGR, GL_RGBA, 0, 0);
    EXPECT_FALSE(loaded);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("paint-as-bgr"), std::string::npos);
}
