// SPDX-License-Identifier: MIT
#include "render/FontManager.h"

#include "core/DataPath.h"
#include "core/Math.h"
#include "core/Settings.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"

#include <GL/glew.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <utility>

namespace
{
const int GLYPH_SLOTS = 256; // one per byte value; only 0..127 can be drawn

// Two triangles per glyph quad, both counter-clockwise on screen.
const GLuint QUAD_INDICES[6] = {0, 2, 1, 0, 3, 2};

const Vec4 TEXT_COLOUR{0.0f, 0.0f, 0.0f, 1.0f};
const Vec4 WIREFRAME_TEXT_COLOUR{1.0f, 1.0f, 1.0f, 1.0f}; // black would vanish on wireframe's black

// "lineHeight" lands in scaleH and is overwritten by the page height listed after it, so
// lineHeight keeps no value from the file. Intended: that is how this game reads its fonts.
const std::pair<const char*, uint16_t Font::*> COMMON_FIELDS[] = {
    {"lineHeight", &Font::scaleH}, {"base", &Font::base},   {"scaleW", &Font::scaleW},
    {"scaleH", &Font::scaleH},     {"pages", &Font::pages},
};

const std::pair<const char*, uint16_t Glyph::*> GLYPH_FIELDS[] = {
    {"id", &Glyph::id},
    {"x", &Glyph::x},
    {"y", &Glyph::y},
    {"width", &Glyph::width},
    {"height", &Glyph::height},
    {"xoffset", &Glyph::xoffset},
    {"yoffset", &Glyph::yoffset},
    {"xadvance", &Glyph::xadvance},
    {"page", &Glyph::page},
};

// Plain stream extraction on purpose: an unsigned field written as "-1" wraps to 65535, text that
// is not a number gives 0 and a number too large for the field gives its maximum.
template <typename T> T toNumber(const std::string& text)
{
    std::istringstream in(text);
    T value = 0;
    in >> value;
    return value;
}

// Calls USE(key, value) for every KEY=VALUE token left in WORDS. A token without "=" is all key
// (and its value the whole token), so it matches no field.
template <typename Use> void forEachPair(std::istringstream& words, Use use)
{
    std::string token;
    while (words.good())
    {
        // At trailing blanks (the CR of a CR-LF line) the extraction fails and TOKEN still holds
        // the line's last token, which is then applied a second time. Harmless, and intended.
        words >> token;
        const size_t equals = token.find('=');
        const std::string key = token.substr(0, equals);
        const std::string value = equals == std::string::npos ? token : token.substr(equals + 1);
        use(key, value);
    }
}

void readCommon(std::istringstream& words, Font& font)
{
    forEachPair(words,
                [&font](const std::string& key, const std::string& value)
                {
                    for (const auto& [name, field] : COMMON_FIELDS)
                    {
                        if (key == name)
                        {
                            font.*field = toNumber<uint16_t>(value);
                        }
                    }
                });
}

void readChar(std::istringstream& words, Font& font)
{
    Glyph glyph;
    forEachPair(words,
                [&glyph](const std::string& key, const std::string& value)
                {
                    for (const auto& [name, field] : GLYPH_FIELDS)
                    {
                        if (key == name)
                        {
                            glyph.*field = toNumber<uint16_t>(value);
                        }
                    }
                });
    if (glyph.id < GLYPH_SLOTS)
    {
        // The whole slot is replaced, kerning included: a kerning line listed before its char
        // line is lost. Intended.
        font.glyphs[glyph.id] = std::move(glyph);
    }
}

void readKerning(std::istringstream& words, Font& font)
{
    int16_t first = 0;
    KerningPair pair;
    forEachPair(words,
                [&](const std::string& key, const std::string& value)
                {
                    if (key == "first")
                    {
                        first = toNumber<int16_t>(value);
                    }
                    else if (key == "second")
                    {
                        pair.second = toNumber<uint16_t>(value);
                    }
                    else if (key == "amount")
                    {
                        pair.amount = toNumber<int16_t>(value);
                    }
                });
    if (first >= 0 && first < GLYPH_SLOTS)
    {
        font.glyphs[first].kerning.push_back(pair);
    }
}

// Only these exact type words count: "chars" and "kernings" (the count lines), "info", "page"
// and blank lines are skipped.
void readLine(const std::string& line, Font& font)
{
    std::istringstream words(line);
    std::string type;
    words >> type;
    if (type == "common")
    {
        readCommon(words, font);
    }
    else if (type == "char")
    {
        readChar(words, font);
    }
    else if (type == "kerning")
    {
        readKerning(words, font);
    }
}

bool describesText(const Font& font)
{
    return font.scaleW > 0 && font.scaleH > 0 &&
           std::any_of(font.glyphs.begin(), font.glyphs.end(),
                       [](const Glyph& glyph) { return glyph.xadvance > 0 || glyph.width > 0; });
}

float ratio(float part, uint16_t whole)
{
    return whole ? part / static_cast<float>(whole) : 0.0f;
}

// Maps x -512..512 and y -384 (top)..384 (bottom) onto the viewport.
Mat4 textOrtho()
{
    Mat4 m = math::identity();
    m[0] = 1.0f / 512.0f;
    m[5] = -1.0f / 384.0f;
    m[10] = 0.001f;
    return m;
}
} // namespace

bool readFont(std::istream& in, Font& font)
{
    std::string line;
    while (!in.eof())
    {
        std::getline(in, line);
        // A stream that was never opened, or fails in mid-read, never reaches its end.
        if (in.bad() || (in.fail() && !in.eof()))
        {
            return false;
        }
        readLine(line, font);
    }
    return true;
}

std::vector<GlyphQuad> layoutText(const Font& font, const std::string& text, float* advance)
{
    std::vector<GlyphQuad> quads;
    quads.reserve(text.size());
    float penX = 0.0f;
    const Glyph* previous = nullptr;
    for (const char byte : text)
    {
        const auto code = static_cast<unsigned char>(byte);
        if (code >= 128)
        {
            continue;
        }
        const Glyph& glyph = font.glyphs[code];
        if (previous)
        {
            for (const KerningPair& pair : previous->kerning)
            {
                if (pair.second == glyph.id)
                {
                    penX += pair.amount;
                    break;
                }
            }
        }

        const float x0 = penX + glyph.xoffset;
        const float x1 = x0 + glyph.width;
        const float y0 = glyph.yoffset;
        const float y1 = y0 + glyph.height;
        const float u0 = ratio(glyph.x, font.scaleW);
        const float u1 = ratio(glyph.x + glyph.width, font.scaleW);
        // The page is stored bottom row first.
        const float v0 = 1.0f - ratio(glyph.y, font.scaleH);
        const float v1 = 1.0f - ratio(glyph.y + glyph.height, font.scaleH);
        quads.push_back(
            {{x0, y0, 0.0f, 1.0f, x1, y0, 0.0f, 1.0f, x1, y1, 0.0f, 1.0f, x0, y1, 0.0f, 1.0f},
             {u0, v0, u1, v0, u1, v1, u0, v1}});

        penX += glyph.xadvance;
        previous = &glyph;
    }
    if (advance)
    {
        *advance = penX;
    }
    return quads;
}

FontManager::FontManager()
{
    ShaderManager::instance().load("font");
}

FontManager::~FontManager() = default;

bool FontManager::load(const std::string& name)
{
    if (fonts.count(name))
    {
        return true;
    }
    TextureManager& textures = TextureManager::instance();
    textures.loadFontPage(name, GL_RGBA);

    const std::string path = dataFile("fonts/" + name + ".fnt");
    std::ifstream in(path);
    Font font;
    // Any text reads; one without a page size or a single character is not a descriptor.
    if (!readFont(in, font) || !describesText(font))
    {
        std::fprintf(stderr, "[ERROR] Could not read font '%s' from %s\n", name.c_str(),
                     path.c_str());
        return false;
    }
    font.texture = textures.get(name);
    font.textureUnit = textures.unit(name);
    fonts[name] = std::move(font);
    std::fprintf(stderr, "Loaded Font: %s", name.c_str()); // no line break, as it always was
    return true;
}

const Font* FontManager::find(const std::string& name) const
{
    const auto it = fonts.find(name);
    return it == fonts.end() ? nullptr : &it->second;
}

void FontManager::draw(const std::string& fontName, float x, float y, const std::string& text,
                       int align)
{
    // An unknown name registers an empty font (texture 0, no glyphs), which draws nothing.
    const Font& font = fonts[fontName];
    float advance = 0.0f;
    const std::vector<GlyphQuad> quads = layoutText(font, text, &advance);

    Shader* shader = ShaderManager::instance().use("font");
    if (!shader)
    {
        return;
    }
    const bool wireframe = Settings::instance().getBool("wireframe");
    glDisable(GL_DEPTH_TEST);
    glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(font.textureUnit));
    glBindTexture(GL_TEXTURE_2D, font.texture);
    shader->setInt("tex", font.textureUnit);

    // The advance width, not the ink, decides where aligned text sits.
    if (align == ALIGN_RIGHT)
    {
        x -= advance;
    }
    else if (align == ALIGN_CENTRE)
    {
        x -= advance * 0.5f;
    }
    const Vec4& colour = wireframe ? WIREFRAME_TEXT_COLOUR : TEXT_COLOUR;
    shader->setMatrix("ortho", textOrtho());
    shader->setMatrix("model", math::translate(math::identity(), {x, y, 0.0f}));
    shader->setVec4("color", &colour.x);

    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL); // text stays readable in wireframe mode
    for (const GlyphQuad& quad : quads)
    {
        shader->setAttribute("in_vertex", 4, quad.positions);
        shader->setAttribute("in_texture", 2, quad.texcoords);
        glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_INT, QUAD_INDICES);
        shader->disableAttribute("in_vertex");
        shader->disableAttribute("in_texture");
    }

    glEnable(GL_DEPTH_TEST);
    if (wireframe)
    {
        glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
    }
}
