#include "render/FontManager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

namespace
{
Font parse(const std::string& text)
{
    std::istringstream in(text);
    Font font;
    EXPECT_TRUE(readFont(in, font));
    return font;
}

std::string shipped(const char* name)
{
    std::ifstream in(std::string(BLOTCH_SOURCE_DIR) + "/data/fonts/" + name + ".fnt",
                     std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// 'A' and 'V' with the pair A-V pulled 3 together; 'B' has no pairs.
Font testFont()
{
    return parse("common lineHeight=20 base=16 scaleW=256 scaleH=128 pages=1\n"
                 "char id=65 x=10 y=20 width=8 height=12 xoffset=1 yoffset=2 xadvance=10\n"
                 "char id=86 x=30 y=40 width=9 height=11 xoffset=0 yoffset=3 xadvance=9\n"
                 "char id=66 x=50 y=0 width=7 height=12 xoffset=2 yoffset=2 xadvance=8\n"
                 "kerning first=65 second=86 amount=-3\n");
}

float penAfter(const Font& font, const std::string& text)
{
    float advance = -1.0f;
    layoutText(font, text, &advance);
    return advance;
}
} // namespace

TEST(FontReaderTest, ReadsTheShippedFonts)
{
    for (const char* name : {"bankgothic-black", "bankgothic-black-small"})
    {
        const std::string text = shipped(name);
        const Font font = parse(text);
        EXPECT_EQ(font.pages, 1) << name;
        for (int c = 33; c < 127; ++c) // every printable character, inside the page
        {
            const Glyph& glyph = font.glyphs[c];
            EXPECT_EQ(glyph.id, c) << name;
            EXPECT_GT(glyph.xadvance, 0) << name << " " << c;
            EXPECT_LE(glyph.x + glyph.width, font.scaleW) << name << " " << c;
            EXPECT_LE(glyph.y + glyph.height, font.scaleH) << name << " " << c;
        }
        size_t pairs = 0, lines = 0;
        for (const Glyph& glyph : font.glyphs)
        {
            pairs += glyph.kerning.size();
        }
        for (size_t at = text.find("\nkerning "); at != std::string::npos;
             at = text.find("\nkerning ", at + 1))
        {
            ++lines;
        }
        EXPECT_EQ(pairs, lines) << name;
    }
}

TEST(FontReaderTest, CommonLineKeepsThePageHeightInPlaceOfTheLineHeight)
{
    const Font font =
        parse("common lineHeight=32 base=26 scaleW=256 scaleH=128 pages=1 packed=0\n");
    EXPECT_EQ(font.scaleH, 128);
    EXPECT_EQ(font.scaleW, 256);
    EXPECT_EQ(font.base, 26);
    EXPECT_EQ(font.pages, 1);
    EXPECT_EQ(font.lineHeight, 0);
    EXPECT_EQ(parse("common scaleH=128 lineHeight=32\n").scaleH, 32);
}

TEST(FontReaderTest, NumbersFollowTheStreamRulesOf16BitFields)
{
    const Font font = parse("char id=65 x=-1 xoffset=-2 yoffset=70000 width=abc height=7z\n"
                            "kerning first=65 second=-1 amount=-4\n"
                            "kerning first=65 second=66 amount=40000\n");
    const Glyph& a = font.glyphs[65];
    EXPECT_EQ(a.x, 65535);
    EXPECT_EQ(a.xoffset, 65534);
    EXPECT_EQ(a.yoffset, 65535); // too large: the field's maximum
    EXPECT_EQ(a.width, 0);
    EXPECT_EQ(a.height, 7);
    const std::vector<KerningPair> expected = {{65535, -4}, {66, 32767}};
    EXPECT_EQ(a.kerning, expected);
}

TEST(FontReaderTest, KerningOnlySurvivesAfterItsCharLine)
{
    const Font font = parse("kerning first=65 second=86 amount=-3\n"
                            "char id=65 xadvance=10\n"
                            "char id=86 xadvance=9\n"
                            "kerning first=86 second=65 amount=-2\n"
                            "kerning first=86 second=66 amount=1\n");
    EXPECT_TRUE(font.glyphs[65].kerning.empty());
    const std::vector<KerningPair> expected = {{65, -2}, {66, 1}};
    EXPECT_EQ(font.glyphs[86].kerning, expected);
}

TEST(FontReaderTest, SkipsCountLinesOtherTypesAndOutOfRangeSlots)
{
    // Read as glyph or kerning lines, the count lines would fill slot 0; 300 and -1 would wrap.
    EXPECT_TRUE(
        parse("info face=\"x\" size=16\npage id=0 file=\"x_0.tga\"\n"
              "chars count=95\nkernings count=203\n\n"
              "char id=300 xadvance=5\nChar id=1 xadvance=5\n"
              "kerning first=256 second=1 amount=1\nkerning first=-1 second=1 amount=1\n") ==
        Font{});
}

TEST(FontReaderTest, CrLfAndUnterminatedFilesReadLikeLfFiles)
{
    const std::string lf = shipped("bankgothic-black-small");
    std::string crlf;
    for (const char c : lf)
    {
        crlf += c == '\n' ? "\r\n" : std::string(1, c);
    }
    EXPECT_TRUE(parse(lf) == parse(crlf));
    EXPECT_TRUE(parse(lf) == parse(lf.substr(0, lf.size() - 1)));
}

TEST(FontReaderTest, UnreadableStreamsFailInsteadOfLooping)
{
    Font font;
    std::ifstream missing("no/such/font.fnt");
    EXPECT_FALSE(readFont(missing, font));

    // A directory opens, but every read fails.
    const auto dir = std::filesystem::temp_directory_path() / "blotch-font-dir.fnt";
    std::filesystem::create_directories(dir);
    std::ifstream directory(dir);
    EXPECT_FALSE(readFont(directory, font));
    std::filesystem::remove(dir);
}

TEST(FontReaderTest, DamagedDescriptorsNeverBreakTheReader)
{
    std::mt19937 random(20240611);
    auto survives = [](const std::string& text)
    {
        std::istringstream in(text);
        Font font;
        const bool read = readFont(in, font);
        layoutText(font, text.substr(0, 64), nullptr);
        return read;
    };
    for (const char* name : {"bankgothic-black", "bankgothic-black-small"})
    {
        const std::string good = shipped(name);
        for (size_t cut = 0; cut < good.size(); cut += 41)
        {
            ASSERT_TRUE(survives(good.substr(0, cut))) << "cut at " << cut;
        }
        for (int round = 0; round < 200; ++round)
        {
            std::string bad = good;
            for (int flip = 0; flip < 8; ++flip)
            {
                bad[random() % bad.size()] = static_cast<char>(random());
            }
            ASSERT_TRUE(survives(bad)) << "round " << round;
        }
    }
    std::string noise(4096, '\0');
    for (char& c : noise)
    {
        c = static_cast<char>(random());
    }
    EXPECT_TRUE(survives(noise));
}

TEST(TextLayoutTest, QuadsFollowThePenWithPageCoordinatesFromTheTop)
{
    const Font font = testFont();
    float advance = 0.0f;
    const std::vector<GlyphQuad> quads = layoutText(font, "BA", &advance);
    ASSERT_EQ(quads.size(), 2u);
    EXPECT_EQ(advance, 18.0f);
    // 'A' after B's advance of 8, moved by its offsets (1, 2); corners clockwise from top-left.
    const float corners[16] = {9, 2, 0, 1, 17, 2, 0, 1, 17, 14, 0, 1, 9, 14, 0, 1};
    const float top = 1 - 20.0f / 128, bottom = 1 - 32.0f / 128;
    const float uv[8] = {10.0f / 256, top,    18.0f / 256, top,
                         18.0f / 256, bottom, 10.0f / 256, bottom};
    for (int i = 0; i < 16; ++i)
    {
        EXPECT_EQ(quads[1].positions[i], corners[i]) << i;
    }
    for (int i = 0; i < 8; ++i)
    {
        EXPECT_FLOAT_EQ(quads[1].texcoords[i], uv[i]) << i;
    }
}

TEST(TextLayoutTest, KerningMovesTheRightGlyphAndEverythingAfterIt)
{
    const Font font = testFont();
    const auto plain = layoutText(font, "BVB", nullptr);
    const auto kerned = layoutText(font, "AVB", nullptr);
    // A advances 2 more than B, and the pair A-V takes 3 back, for V and the B after it.
    EXPECT_EQ(kerned[1].positions[0], plain[1].positions[0] - 1.0f);
    EXPECT_EQ(kerned[2].positions[0], plain[2].positions[0] - 1.0f);
    EXPECT_EQ(penAfter(font, "AVB"), penAfter(font, "BVB") - 1.0f);
    EXPECT_EQ(penAfter(font, "VA"), 19.0f); // the pair only counts in its own order
}

TEST(TextLayoutTest, EmptyHighAndUnknownBytes)
{
    const Font font = testFont();
    EXPECT_TRUE(layoutText(font, "", nullptr).empty());
    EXPECT_EQ(penAfter(font, ""), 0.0f);

    // Bytes from 128 up are left out as if they were not there, kerning included.
    EXPECT_EQ(layoutText(font,
                         "\xc3\xa9"
                         "A\x80\xffV",
                         nullptr)
                  .size(),
              2u);
    EXPECT_EQ(penAfter(font, "\xc3\xa9"
                             "A\x80\xffV"),
              penAfter(font, "AV"));

    // An empty slot (a line feed too: there is no line breaking) gives an empty quad in place.
    const auto quads = layoutText(font, "A\nB", nullptr);
    ASSERT_EQ(quads.size(), 3u);
    EXPECT_EQ(quads[1].positions[0], 10.0f);
    EXPECT_EQ(quads[1].positions[4], 10.0f);
    EXPECT_EQ(penAfter(font, "A\nB"), 18.0f);
}
