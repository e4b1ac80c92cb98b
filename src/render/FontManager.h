// SPDX-License-Identifier: MIT
#pragma once

#include "core/Singleton.h"

#include <array>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

// One kerning pair, stored with its left-hand glyph.
struct KerningPair
{
    uint16_t second = 0; // right-hand character code
    int16_t amount = 0;  // pixels added to the pen between the two

    bool operator==(const KerningPair&) const = default;
};

// One character slot of a bitmap font. An unfilled slot is all zeros with no kerning.
struct Glyph
{
    uint16_t id = 0;
    uint16_t x = 0;        // pixels from the page's left edge
    uint16_t y = 0;        // pixels from the page's top edge
    uint16_t width = 0;    // pixels
    uint16_t height = 0;   // pixels
    uint16_t xoffset = 0;  // pixels from the pen to the glyph's left edge
    uint16_t yoffset = 0;  // pixels from the line's top to the glyph's top edge
    uint16_t xadvance = 0; // pixels the pen moves after this glyph
    uint16_t page = 0;
    std::vector<KerningPair> kerning; // pairs in which this glyph is on the left, in file order

    bool operator==(const Glyph&) const = default;
};

// A bitmap font: 256 glyph slots indexed by character code and one page texture.
struct Font
{
    uint16_t lineHeight = 0;
    uint16_t base = 0;
    uint16_t scaleW = 0; // page width, pixels
    uint16_t scaleH = 0; // page height, pixels
    uint16_t pages = 0;
    unsigned int texture = 0; // page 0, owned by the texture registry
    int textureUnit = 0;
    std::array<Glyph, 256> glyphs;

    bool operator==(const Font&) const = default;
};

// One character's quad in text space (pixels, y downwards, pen starting at 0).
struct GlyphQuad
{
    // Corners 0 top-left, 1 top-right, 2 bottom-right, 3 bottom-left, each (x, y, 0, 1).
    float positions[16] = {};
    // The same corners' page coordinates (u, v), v counted from the page's bottom row.
    float texcoords[8] = {};
};

// Reads the text form of a BMFont descriptor into FONT (the texture fields are left alone).
// False when the stream stops before its end (unreadable file); FONT may be partly filled then.
// Any text is accepted: lines it does not understand are skipped.
bool readFont(std::istream& in, Font& font);

// Lays TEXT out with FONT from a pen at 0: one quad per byte below 128 (bytes 128..255 are
// skipped as if absent). ADVANCE, when given, receives the pen's end, kerning included: the
// width that alignment uses.
std::vector<GlyphQuad> layoutText(const Font& font, const std::string& text, float* advance);

// The process-wide registry of bitmap fonts by name, and the drawing of one line of text with
// them. Created on the first instance() (which builds the "font" program, so the shader registry
// and a GL context must exist), destroyed by destroy() before the shader and texture registries.
class FontManager : public Singleton<FontManager>
{
    friend class Singleton<FontManager>;

public:
    static constexpr int ALIGN_LEFT = 0;   // x is the text's left end
    static constexpr int ALIGN_RIGHT = 1;  // x is the end of the last advance
    static constexpr int ALIGN_CENTRE = 2; // x is the middle of the advance width

    // Loads data/fonts/NAME.fnt and its page data/fonts/NAME_0.tga and registers the font under
    // NAME; a name already registered is left alone without reading anything. False, with an
    // error on standard error and nothing registered, when the descriptor cannot be read.
    bool load(const std::string& name);
    bool has(const std::string& name) const { return fonts.count(name) != 0; }
    // The font under NAME; null when there is none.
    const Font* find(const std::string& name) const;

    // Draws TEXT on one line in the 1024 x 768 screen space centred on the origin, y downwards,
    // in black (white while "wireframe" is on). ALIGN is one of the ALIGN_ codes; y is the top of
    // the line. Leaves the "font" program bound and depth testing on. An unknown FONTNAME
    // registers an empty font that draws nothing, so load fonts before drawing with them.
    void draw(const std::string& fontName, float x, float y, const std::string& text, int align);

private:
    FontManager();
    ~FontManager();

    std::map<std::string, Font> fonts;
};
