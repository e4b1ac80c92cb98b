// SPDX-License-Identifier: MIT
#include "render/TextureManager.h"
#include "support/Fixtures.h"

#include <GL/glew.h>

#include <filesystem>
#include <fstream>

GL_TEST(TextureManager, UnknownAndBadFilesGiveTextureZeroQuietly)
{
    TextureManager& textures = TextureManager::instance();
    EXPECT_EQ(textures.get("never-loaded"), 0u);
    EXPECT_EQ(textures.size(), 1u); // the name is recorded

    const std::string good = readFile(sourceFile("data/textures/menu02.png"));
    ASSERT_GT(good.size(), 1000u);
    ScratchDirectory scratch(false);
    std::filesystem::create_directories("data/textures");
    testing::internal::CaptureStdout();
    textures.load("missing", GL_BGR, "png");
    // Cuts of a real picture must be refused or loaded, never crash.
    for (size_t cut : {size_t(0), size_t(8), size_t(33), good.size() / 3, good.size() - 12})
    {
        std::ofstream("data/textures/cut.png", std::ios::binary) << good.substr(0, cut);
        textures.loadFile("data/textures/cut.png", "cut" + std::to_string(cut), GL_BGR, GL_RGBA, 0,
                          0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout().find("missing"), std::string::npos);
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

    // Run-length packets of 128 pixels at most: 20 bytes cannot hold 6168 x 8192 of them, and
    // the decoder would fill them all (found by fuzzing).
    std::string rle(18, '\0');
    rle[2] = 10, rle[12] = 0x18, rle[13] = 0x18, rle[15] = 0x20, rle[16] = 24;
    std::ofstream("data/textures/rle.tga", std::ios::binary) << rle << std::string("\x7f\0", 2);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(textures.loadFile("data/textures/rle.tga", "rle", GL_BGR, GL_RGBA, 0, 0));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("ends before its pixels do"),
              std::string::npos);

    // A PNG chunk that claims more bytes than the file has: the decoder would read past the end
    // for ever (found by fuzzing). Refused before it decodes anything.
    const std::string ihdr("\0\0\0\x0dIHDR\0\0\0\x08\0\0\0\x08\x08\0\0\0\0\xe1\x64\xe1\x57", 25);
    std::ofstream("data/textures/long.png", std::ios::binary)
        << std::string("\x89PNG\r\n\x1a\n", 8) << ihdr
        << std::string("\0\x80\0\0tEXtdate:modify\0x\0\0\0\0", 26);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(textures.loadFile("data/textures/long.png", "long", GL_BGR, GL_RGBA, 0, 0));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("long.png cannot be read: the file ends "
                                                          "inside a chunk"),
              std::string::npos);

    // A 32-bit picture read as 24-bit would be uploaded from the wrong number of bytes: refused.
    testing::internal::CaptureStderr();
    EXPECT_FALSE(textures.loadFile(sourceFile("data/textures/paint01.png"), "paint-as-bgr", GL_BGR,
                                   GL_RGBA, 0, 0));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("paint-as-bgr"), std::string::npos);
}
