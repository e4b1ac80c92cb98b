// The committed data files in the shapes the loaders expect: the texture upload passes FreeImage's
// bits straight to GL with a fixed pixel format, and the font reader trusts its descriptor, so a
// file of the wrong depth or a glyph pointing off its page shows up only as garbage on screen.

#include "render/FontManager.h"

#include <FreeImage.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace
{
const std::string dataDir = std::string(BLOTCH_SOURCE_DIR) + "/data/";

using Bitmap = std::unique_ptr<FIBITMAP, decltype(&FreeImage_Unload)>;

// The picture at PATH, checked to be of FORMAT and BPP bits per pixel; null when it is not.
Bitmap load(const std::string& path, FREE_IMAGE_FORMAT format, unsigned bpp)
{
    EXPECT_EQ(FreeImage_GetFileType(path.c_str(), 0), format) << path;
    Bitmap bitmap(FreeImage_Load(format, path.c_str(), 0), FreeImage_Unload);
    if (bitmap && FreeImage_GetBPP(bitmap.get()) == bpp)
        return bitmap;
    ADD_FAILURE() << path << " is not a " << bpp << "-bit picture";
    return Bitmap(nullptr, FreeImage_Unload);
}

// Alpha of pixel (x, y) counted from the top row of a 32-bit bitmap.
int alphaAt(FIBITMAP* bitmap, unsigned x, unsigned y)
{
    const BYTE* row = FreeImage_GetScanLine(bitmap, FreeImage_GetHeight(bitmap) - 1 - y);
    return row[x * 4 + FI_RGBA_ALPHA];
}
} // namespace

TEST(AssetFormatTest, MenuPicturesAre24BitAtWindowSize)
{
    for (const char* name : {"menu01", "menu02"})
    {
        // The menu uploads these as GL_BGR: any other depth would be read with the wrong stride.
        const Bitmap bitmap = load(dataDir + "textures/" + name + ".png", FIF_PNG, 24);
        ASSERT_TRUE(bitmap);
        EXPECT_EQ(FreeImage_GetWidth(bitmap.get()), 1024u) << name;
        EXPECT_EQ(FreeImage_GetHeight(bitmap.get()), 768u) << name;
    }
}

TEST(AssetFormatTest, PaintTexturesAreWhiteSplatsInsideAnEmptyBorder)
{
    std::set<std::vector<int>> shapes;
    for (int i = 1; i <= 5; ++i)
    {
        const std::string name = "paint0" + std::to_string(i);
        SCOPED_TRACE(name);
        const Bitmap bitmap = load(dataDir + "textures/" + name + ".png", FIF_PNG, 32);
        ASSERT_TRUE(bitmap);
        FIBITMAP* b = bitmap.get();
        const unsigned w = FreeImage_GetWidth(b), h = FreeImage_GetHeight(b);
        // With repeat wrapping, paint on any edge would bleed in from the opposite side; the decal
        // tints the texture, so any colour in it would change the paint colour.
        std::vector<int> alpha;
        unsigned opaque = 0, tinted = 0, border = 0;
        for (unsigned y = 0; y < h; ++y)
        {
            for (unsigned x = 0; x < w; ++x)
            {
                const BYTE* p = FreeImage_GetScanLine(b, y) + x * 4;
                alpha.push_back(p[FI_RGBA_ALPHA]);
                opaque += p[FI_RGBA_ALPHA] == 255;
                border += p[FI_RGBA_ALPHA] > 0 && (x == 0 || y == 0 || x == w - 1 || y == h - 1);
                tinted += p[FI_RGBA_ALPHA] > 0 &&
                          (p[FI_RGBA_RED] & p[FI_RGBA_GREEN] & p[FI_RGBA_BLUE]) != 255;
            }
        }
        EXPECT_EQ(border, 0u);
        EXPECT_EQ(tinted, 0u);
        EXPECT_EQ(alphaAt(b, w / 2, h / 2), 255) << "the hit point itself is not painted";
        EXPECT_TRUE(opaque > w * h / 20 && opaque < w * h / 2) << "not a splat: " << opaque;
        shapes.insert(alpha);
    }
    EXPECT_EQ(shapes.size(), 5u) << "some paint textures are the same shape";
}

TEST(AssetFormatTest, FontDescriptorsMatchTheirPages)
{
    for (const char* name : {"bankgothic-black", "bankgothic-black-small"})
    {
        SCOPED_TRACE(name);
        const Bitmap page = load(dataDir + "fonts/" + name + "_0.tga", FIF_TARGA, 32);
        ASSERT_TRUE(page);
        std::ifstream in(dataDir + "fonts/" + name + ".fnt");
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        std::istringstream stream(text);
        Font font;
        ASSERT_TRUE(readFont(stream, font));
        // The text renderer turns pixel rectangles into texture coordinates with these.
        EXPECT_EQ(font.scaleW, FreeImage_GetWidth(page.get()));
        EXPECT_EQ(font.scaleH, FreeImage_GetHeight(page.get()));

        // Kerning listed before its glyph's char line is lost, and every pair joins two glyphs.
        size_t pairs = 0, lines = 0;
        for (int c = 32; c <= 126; ++c)
        {
            const Glyph& g = font.glyphs[c];
            EXPECT_EQ(g.id, c) << "no glyph";
            ASSERT_TRUE(g.x + g.width <= font.scaleW && g.y + g.height <= font.scaleH) << c;
            // Read as unsigned 16-bit numbers, a negative offset flings the glyph off screen.
            EXPECT_TRUE(g.xoffset < 100 && g.yoffset < 100 && g.xadvance < 100) << c;
            int ink = 0;
            for (int y = g.y; y < g.y + g.height; ++y)
                for (int x = g.x; x < g.x + g.width; ++x)
                    ink = std::max(ink, alphaAt(page.get(), x, y));
            EXPECT_EQ(g.width * g.height == 0, ink == 0) << "rectangle misses glyph " << c;
            pairs += g.kerning.size();
            for (const KerningPair& pair : g.kerning)
                EXPECT_EQ(font.glyphs[pair.second & 255].id, pair.second) << c;
        }
        for (size_t at = text.find("\nkerning "); at != std::string::npos;
             at = text.find("\nkerning ", at + 1))
            ++lines;
        EXPECT_GT(pairs, 20u);
        EXPECT_EQ(pairs, lines);
    }
}

TEST(AssetFormatTest, SoundsAreMp3Streams)
{
    for (const char* name : {"Serendipity", "shot1", "shot2", "splash"})
    {
        std::ifstream in(dataDir + "sound/" + name + ".mp3", std::ios::binary);
        unsigned char head[3] = {};
        in.read(reinterpret_cast<char*>(head), 3);
        const bool id3 = head[0] == 'I' && head[1] == 'D' && head[2] == '3';
        const bool frameSync = head[0] == 0xFF && (head[1] & 0xE0) == 0xE0;
        EXPECT_TRUE(id3 || frameSync) << name;
        in.seekg(0, std::ios::end);
        EXPECT_GT(in.tellg(), 2000) << name << " is too short to hold any sound";
    }
}
