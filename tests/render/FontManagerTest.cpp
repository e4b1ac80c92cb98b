// SPDX-License-Identifier: MIT
#include "render/FontManager.h"
#include "support/Fixtures.h"

#include <random>
#include <regex>
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

std::string shipped(const std::string& name)
{
    return readFile(sourceFile("data/fonts/" + name + ".fnt"));
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

float width(const Font& font, const std::string& text)
{
    float advance = -1.0f;
    layoutText(font, text, &advance);
    return advance;
}
} // namespace

TEST(Font, ReadsFieldsTheWayTheGameAlwaysHas)
{
    // lineHeight lands in scaleH, and the page height listed after it wins.
    const Font c = parse("common lineHeight=32 base=26 scaleW=256 scaleH=128 pages=1\n");
    EXPECT_EQ((std::vector<int>{c.scaleH, c.scaleW, c.base, c.pages, c.lineHeight}),
              (std::vector<int>{128, 256, 26, 1, 0}));

    // 16-bit stream reads: negatives wrap, too large gives the maximum, text gives 0.
    const Glyph a = parse("char id=65 x=-1 xoffset=-2 yoffset=70000 width=abc\n"
                          "kerning first=65 second=-1 amount=40000\n")
                        .glyphs[65];
    EXPECT_EQ(a.x, 65535);
    EXPECT_EQ(a.xoffset, 65534);
    EXPECT_EQ(a.yoffset, 65535);
    EXPECT_EQ(a.width, 0);
    EXPECT_EQ(a.kerning, (std::vector<KerningPair>{{65535, 32767}}));

    // A char line replaces its whole slot, so kerning listed before it is lost.
    const Font late = parse("kerning first=65 second=86 amount=-3\nchar id=65 xadvance=10\n"
                            "char id=86 xadvance=9\nkerning first=86 second=65 amount=-2\n");
    EXPECT_TRUE(late.glyphs[65].kerning.empty());
    EXPECT_EQ(late.glyphs[86].kerning, (std::vector<KerningPair>{{65, -2}}));

    // Read as char or kerning lines, the count lines would fill slot 0; 300 and -1 would wrap.
    EXPECT_TRUE(
        parse("info face=\"x\" size=16\npage id=0 file=\"x_0.tga\"\nchars count=95\n"
              "kernings count=203\n\nchar id=300 xadvance=5\nChar id=1 xadvance=5\n"
              "kerning first=256 second=1 amount=1\nkerning first=-1 second=1 amount=1\n") ==
        Font{});
}

TEST(Font, CrLfAndUnterminatedFilesReadLikeLfFiles)
{
    const std::string lf = shipped("bankgothic-black-small");
    EXPECT_TRUE(parse(lf) == parse(std::regex_replace(lf, std::regex("\n"), "\r\n")));
    EXPECT_TRUE(parse(lf) == parse(lf.substr(0, lf.size() - 1)));
}

TEST(Font, DamagedDescriptorsNeverBreakTheReader)
{
    std::mt19937 random(20240611);
    for (const char* name : {"bankgothic-black", "bankgothic-black-small"})
    {
        const std::string good = shipped(name);
        for (int round = 0; round < 400; ++round)
        {
            // Even rounds cut the file short, odd ones scribble over it.
            std::string bad = good.substr(0, round % 2 ? good.size() : round * 41 % good.size());
            for (int flip = 0; round % 2 && flip < 8; ++flip)
            {
                bad[random() % bad.size()] = static_cast<char>(random());
            }
            const Font font = parse(bad);
            layoutText(font, bad.substr(0, 64), nullptr);
        }
    }
}

TEST(Font, KerningMovesTheRestAndHighBytesAreSkipped)
{
    const Font font = testFont();
    const auto plain = layoutText(font, "BVB", nullptr);
    const auto kerned = layoutText(font, "AVB", nullptr);
    // A advances 2 more than B, and the pair A-V takes 3 back, for V and the B after it.
    EXPECT_EQ(kerned[1].positions[0], plain[1].positions[0] - 1.0f);
    EXPECT_EQ(kerned[2].positions[0], plain[2].positions[0] - 1.0f);
    EXPECT_EQ(width(font, "AVB"), width(font, "BVB") - 1.0f);
    EXPECT_EQ(width(font, "VA"), 19.0f); // the pair only counts in its own order

    EXPECT_TRUE(layoutText(font, "", nullptr).empty());
    EXPECT_EQ(width(font, ""), 0.0f);
    // Bytes from 128 up are left out as if they were not there, kerning included.
    const std::string high = "\xc3\xa9"
                             "A\x80\xffV";
    EXPECT_EQ(layoutText(font, high, nullptr).size(), 2u);
    EXPECT_EQ(width(font, high), width(font, "AV"));
}
