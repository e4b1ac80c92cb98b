// The committed data files in the shapes the loaders expect: the texture upload passes FreeImage's
// bits straight to GL with a fixed pixel format, and the font reader trusts its descriptor, so a
// file of the wrong depth or a glyph pointing off its page shows up only as garbage on screen.

#include <FreeImage.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace
{
const std::string dataDir = std::string(BLOTCH_SOURCE_DIR) + "/data/";

using Bitmap = std::unique_ptr<FIBITMAP, decltype(&FreeImage_Unload)>;

Bitmap loadBitmap(const std::string& path, FREE_IMAGE_FORMAT expected)
{
    const FREE_IMAGE_FORMAT format = FreeImage_GetFileType(path.c_str(), 0);
    EXPECT_EQ(format, expected) << path;
    return Bitmap(format == FIF_UNKNOWN ? nullptr : FreeImage_Load(format, path.c_str(), 0),
                  FreeImage_Unload);
}

// Alpha of pixel (x, y) counted from the top row of a 32-bit bitmap.
int alphaAt(FIBITMAP* bitmap, unsigned x, unsigned y)
{
    const BYTE* row = FreeImage_GetScanLine(bitmap, FreeImage_GetHeight(bitmap) - 1 - y);
    return row[x * 4 + FI_RGBA_ALPHA];
}

bool isPowerOfTwo(unsigned n)
{
    return n != 0 && (n & (n - 1)) == 0;
}

// One descriptor line as its type word and key=value pairs; values stay text so that a minus
// sign can be seen.
struct FntLine
{
    std::string type;
    std::map<std::string, std::string> values;
};

std::vector<FntLine> readFnt(const std::string& path)
{
    std::vector<FntLine> lines;
    std::ifstream in(path);
    std::string text;
    while (std::getline(in, text))
    {
        std::istringstream words(text);
        FntLine line;
        words >> line.type;
        for (std::string token; words >> token;)
        {
            const auto eq = token.find('=');
            if (eq != std::string::npos)
            {
                line.values[token.substr(0, eq)] = token.substr(eq + 1);
            }
        }
        lines.push_back(line);
    }
    return lines;
}

int number(const FntLine& line, const std::string& key)
{
    return std::stoi(line.values.at(key));
}
} // namespace

TEST(AssetFormatTest, MenuPicturesAre24BitAtWindowSize)
{
    for (const char* name : {"menu01", "menu02"})
    {
        SCOPED_TRACE(name);
        Bitmap bitmap = loadBitmap(dataDir + "textures/" + name + ".png", FIF_PNG);
        ASSERT_TRUE(bitmap);
        // The menu uploads these as GL_BGR: any other depth would be read with the wrong stride.
        EXPECT_EQ(FreeImage_GetBPP(bitmap.get()), 24u);
        EXPECT_EQ(FreeImage_GetColorType(bitmap.get()), FIC_RGB);
        EXPECT_EQ(FreeImage_GetWidth(bitmap.get()), 1024u);
        EXPECT_EQ(FreeImage_GetHeight(bitmap.get()), 768u);
    }
}

TEST(AssetFormatTest, PaintTexturesAreWhiteSplatsInsideAnEmptyBorder)
{
    std::set<std::vector<int>> shapes;
    for (int i = 1; i <= 5; ++i)
    {
        const std::string name = "paint0" + std::to_string(i);
        SCOPED_TRACE(name);
        Bitmap bitmap = loadBitmap(dataDir + "textures/" + name + ".png", FIF_PNG);
        ASSERT_TRUE(bitmap);
        FIBITMAP* b = bitmap.get();
        ASSERT_EQ(FreeImage_GetBPP(b), 32u);
        const unsigned w = FreeImage_GetWidth(b), h = FreeImage_GetHeight(b);
        EXPECT_TRUE(isPowerOfTwo(w) && isPowerOfTwo(h)) << w << " x " << h;

        // With repeat wrapping, paint on any edge would bleed in from the opposite side.
        int borderAlpha = 0;
        for (unsigned x = 0; x < w; ++x)
        {
            borderAlpha = std::max({borderAlpha, alphaAt(b, x, 0), alphaAt(b, x, h - 1)});
        }
        for (unsigned y = 0; y < h; ++y)
        {
            borderAlpha = std::max({borderAlpha, alphaAt(b, 0, y), alphaAt(b, w - 1, y)});
        }
        EXPECT_EQ(borderAlpha, 0);

        // The decal tints the texture, so any colour in it would change the paint colour.
        std::vector<int> alpha;
        unsigned opaque = 0, tinted = 0;
        for (unsigned y = 0; y < h; ++y)
        {
            const BYTE* row = FreeImage_GetScanLine(b, y);
            for (unsigned x = 0; x < w; ++x)
            {
                const BYTE* p = row + x * 4;
                alpha.push_back(p[FI_RGBA_ALPHA]);
                opaque += p[FI_RGBA_ALPHA] == 255;
                tinted +=
                    p[FI_RGBA_ALPHA] > 0 &&
                    (p[FI_RGBA_RED] != 255 || p[FI_RGBA_GREEN] != 255 || p[FI_RGBA_BLUE] != 255);
            }
        }
        EXPECT_EQ(tinted, 0u);
        EXPECT_EQ(alphaAt(b, w / 2, h / 2), 255) << "the hit point itself is not painted";
        EXPECT_GT(opaque, w * h / 20) << "hardly any solid paint";
        EXPECT_LT(opaque, w * h / 2) << "a square, not a splat";
        shapes.insert(alpha);
    }
    EXPECT_EQ(shapes.size(), 5u) << "some paint textures are the same shape";
}

TEST(AssetFormatTest, FontDescriptorsMatchTheirPages)
{
    for (const char* name : {"bankgothic-black", "bankgothic-black-small"})
    {
        SCOPED_TRACE(name);
        Bitmap page = loadBitmap(dataDir + "fonts/" + name + "_0.tga", FIF_TARGA);
        ASSERT_TRUE(page);
        ASSERT_EQ(FreeImage_GetBPP(page.get()), 32u);
        const unsigned pageW = FreeImage_GetWidth(page.get()),
                       pageH = FreeImage_GetHeight(page.get());
        EXPECT_TRUE(isPowerOfTwo(pageW) && isPowerOfTwo(pageH)) << pageW << " x " << pageH;

        const std::vector<FntLine> lines = readFnt(dataDir + "fonts/" + name + ".fnt");
        std::set<int> glyphs;
        int commonLines = 0, kernings = 0, declaredKernings = -1, charsAfterKernings = 0;
        for (const FntLine& line : lines)
        {
            if (line.type == "common")
            {
                ++commonLines;
                // The text renderer turns pixel rectangles into texture coordinates with these.
                EXPECT_EQ(number(line, "scaleW"), static_cast<int>(pageW));
                EXPECT_EQ(number(line, "scaleH"), static_cast<int>(pageH));
            }
            else if (line.type == "char")
            {
                const int id = number(line, "id");
                SCOPED_TRACE("char " + std::to_string(id));
                charsAfterKernings += kernings > 0;
                glyphs.insert(id);
                const int x = number(line, "x"), y = number(line, "y");
                const int w = number(line, "width"), h = number(line, "height");
                EXPECT_TRUE(x >= 0 && y >= 0 && x + w <= static_cast<int>(pageW) &&
                            y + h <= static_cast<int>(pageH));
                // Read as unsigned 16-bit numbers, a negative offset would fling the glyph off
                // screen.
                for (const char* key : {"xoffset", "yoffset", "xadvance"})
                {
                    EXPECT_GE(number(line, key), 0) << key;
                }
                int ink = 0;
                for (int py = y; py < y + h; ++py)
                {
                    for (int px = x; px < x + w; ++px)
                    {
                        ink = std::max(ink, alphaAt(page.get(), px, py));
                    }
                }
                EXPECT_EQ(w * h == 0, ink == 0) << "rectangle misses the glyph's pixels";
            }
            else if (line.type == "kerning")
            {
                ++kernings;
                EXPECT_EQ(glyphs.count(number(line, "first")), 1u);
                EXPECT_EQ(glyphs.count(number(line, "second")), 1u);
            }
            else if (line.type == "kernings")
            {
                declaredKernings = number(line, "count");
            }
        }
        EXPECT_EQ(commonLines, 1);
        // A kerning line before its glyph's char line is wiped out by that char line.
        EXPECT_EQ(charsAfterKernings, 0);
        for (int c = 32; c <= 126; ++c)
        {
            EXPECT_EQ(glyphs.count(c), 1u) << "no glyph for " << c;
        }
        EXPECT_GT(kernings, 20);
        EXPECT_EQ(kernings, declaredKernings);
    }
}

TEST(AssetFormatTest, SoundsAreMp3Streams)
{
    for (const char* name : {"Serendipity", "shot1", "shot2", "splash"})
    {
        SCOPED_TRACE(name);
        std::ifstream in(dataDir + "sound/" + name + ".mp3", std::ios::binary);
        ASSERT_TRUE(in) << "missing";
        unsigned char head[3] = {};
        in.read(reinterpret_cast<char*>(head), 3);
        const bool id3 = head[0] == 'I' && head[1] == 'D' && head[2] == '3';
        const bool frameSync = head[0] == 0xFF && (head[1] & 0xE0) == 0xE0;
        EXPECT_TRUE(id3 || frameSync);
        in.seekg(0, std::ios::end);
        EXPECT_GT(in.tellg(), 2000) << "too short to hold any sound";
    }
}
