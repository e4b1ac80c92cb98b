// SPDX-License-Identifier: MIT
#include "paint/PaintMap.h"

#include "core/Settings.h"
#include "paint/Splat.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"

#include <GL/glew.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace
{
// A stamp corner: where in paint-map space, where on the splat's picture (u, v) and how far off
// the hit plane (d), which picture, what colour.
const int STAMP_FLOATS = 10;
// The coarsest level: cells of this many finest texels, and a page's side in them.
const int CELL = 1 << (PaintMap::LEVELS - 1);
const int CELLS = PaintMap::PAYLOAD / CELL;
static_assert(PaintMap::PAYLOAD % CELL == 0, "a page holds whole cells of its coarsest level");
static_assert(PaintMap::PAYLOAD % Charts::ALIGN == 0, "charts never straddle a page's cells");

int mipmapLevels(int width, int height)
{
    int levels = 1;
    for (int size = std::max(width, height); size > 1; size /= 2)
    {
        ++levels;
    }
    return levels;
}

// The filters the "texture-mipmap" and "texture-quality" switches ask for (mag, min); both 0
// for a value that keeps the filters as they are.
void wantedFilters(GLint& mag, GLint& min)
{
    Settings& settings = Settings::instance();
    mag = min = 0;
    switch (settings.getInt("texture-mipmap"))
    {
    case 0:
        mag = min = settings.getInt("texture-quality") == 0 ? GL_NEAREST : GL_LINEAR;
        break;
    case 1:
        mag = GL_NEAREST;
        min = GL_NEAREST_MIPMAP_NEAREST;
        break;
    case 2:
        mag = GL_LINEAR;
        min = GL_LINEAR_MIPMAP_LINEAR;
        break;
    default:
        break;
    }
}

// Is point (X, Y) inside the triangle A B C (either winding, edges included)?
bool inside(float x, float y, const float* a, const float* b, const float* c)
{
    const float e0 = (b[0] - a[0]) * (y - a[1]) - (b[1] - a[1]) * (x - a[0]);
    const float e1 = (c[0] - b[0]) * (y - b[1]) - (c[1] - b[1]) * (x - b[0]);
    const float e2 = (a[0] - c[0]) * (y - c[1]) - (a[1] - c[1]) * (x - c[0]);
    return (e0 >= 0 && e1 >= 0 && e2 >= 0) || (e0 <= 0 && e1 <= 0 && e2 <= 0);
}

// The GL state the paint map's own drawing, clearing, copying and reading change, put back as
// it was when this goes.
struct SavedState
{
    GLint drawFramebuffer = 0, readFramebuffer = 0;
    GLint viewport[4] = {};
    GLint polygonMode[2] = {GL_FILL, GL_FILL};
    GLint blendSrcRgb = GL_ONE, blendDstRgb = GL_ZERO, blendSrcAlpha = GL_ONE, blendDstAlpha = GL_ZERO;
    GLint activeTexture = GL_TEXTURE0;
    GLboolean blend = GL_FALSE, depthTest = GL_FALSE, cullFace = GL_FALSE, scissor = GL_FALSE,
              stencil = GL_FALSE, depthMask = GL_TRUE;
    GLint arrayBuffer = 0;
    GLint program = 0;
    GLint packAlignment = 4;
    GLfloat clearColour[4] = {};

    SavedState()
    {
        glGetIntegerv(GL_PACK_ALIGNMENT, &packAlignment);
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clearColour);
        glGetIntegerv(GL_CURRENT_PROGRAM, &program);
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &drawFramebuffer);
        glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &readFramebuffer);
        glGetIntegerv(GL_VIEWPORT, viewport);
        glGetIntegerv(GL_POLYGON_MODE, polygonMode);
        glGetIntegerv(GL_BLEND_SRC_RGB, &blendSrcRgb);
        glGetIntegerv(GL_BLEND_DST_RGB, &blendDstRgb);
        glGetIntegerv(GL_BLEND_SRC_ALPHA, &blendSrcAlpha);
        glGetIntegerv(GL_BLEND_DST_ALPHA, &blendDstAlpha);
        glGetIntegerv(GL_ACTIVE_TEXTURE, &activeTexture);
        glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &arrayBuffer);
        glGetBooleanv(GL_DEPTH_WRITEMASK, &depthMask);
        blend = glIsEnabled(GL_BLEND);
        depthTest = glIsEnabled(GL_DEPTH_TEST);
        cullFace = glIsEnabled(GL_CULL_FACE);
        scissor = glIsEnabled(GL_SCISSOR_TEST);
        stencil = glIsEnabled(GL_STENCIL_TEST);
    }
    ~SavedState()
    {
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, GLuint(drawFramebuffer));
        glBindFramebuffer(GL_READ_FRAMEBUFFER, GLuint(readFramebuffer));
        glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
        glPolygonMode(GL_FRONT_AND_BACK, GLenum(polygonMode[0]));
        glBlendFuncSeparate(GLenum(blendSrcRgb), GLenum(blendDstRgb), GLenum(blendSrcAlpha),
                            GLenum(blendDstAlpha));
        glActiveTexture(GLenum(activeTexture));
        glBindBuffer(GL_ARRAY_BUFFER, GLuint(arrayBuffer));
        glDepthMask(depthMask);
        auto set = [](GLenum cap, GLboolean on) { on ? glEnable(cap) : glDisable(cap); };
        set(GL_BLEND, blend);
        set(GL_DEPTH_TEST, depthTest);
        set(GL_CULL_FACE, cullFace);
        set(GL_SCISSOR_TEST, scissor);
        set(GL_STENCIL_TEST, stencil);
        glUseProgram(GLuint(program));
        glPixelStorei(GL_PACK_ALIGNMENT, packAlignment);
        glClearColor(clearColour[0], clearColour[1], clearColour[2], clearColour[3]);
    }
};
} // namespace

PaintMap::PaintMap(const Charts& charts) : charts(charts)
{
    pagesAcross = charts.getWidth() / PAYLOAD;
    pagesDown = charts.getHeight() / PAYLOAD;
    table.assign(size_t(pagesAcross) * size_t(pagesDown), 0);
    for (int py = 0; py < pagesDown; ++py)
    {
        for (int px = 0; px < pagesAcross; ++px)
        {
            maxPages += charts.cellUsed(px, py) ? 1 : 0;
        }
    }
    glGenTextures(1, &pageTable);
    glBindTexture(GL_TEXTURE_2D, pageTable);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_R32UI, std::max(pagesAcross, 1), std::max(pagesDown, 1), 0,
                 GL_RED_INTEGER, GL_UNSIGNED_INT, table.empty() ? nullptr : table.data());
    glBindTexture(GL_TEXTURE_2D, 0);
    glGenFramebuffers(1, &framebuffer);
    glGenFramebuffers(1, &readFramebuffer);
    glGenBuffers(1, &stampBuffer);
}

PaintMap::~PaintMap()
{
    for (GLuint texture : {pageTable, pool, pictures})
    {
        if (texture)
        {
            glDeleteTextures(1, &texture);
        }
    }
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteFramebuffers(1, &readFramebuffer);
    glDeleteBuffers(1, &stampBuffer);
}

size_t PaintMap::bytes() const
{
    const size_t pictureBytes = pictures ? size_t(256) * 256 * 4 * PICTURE_COUNT * 4 / 3 : 0;
    return size_t(layers) * PAGES_PER_LAYER * PAGE_BYTES + table.size() * 4 + pictureBytes;
}

void PaintMap::measurePicture(int picture, const uint32_t* rgba, int width, int height)
{
    // In texels: the least and most x, y, x + y and x - y over the painted texels' corners.
    float lo[4] = {INFINITY, INFINITY, INFINITY, INFINITY};
    float hi[4] = {-INFINITY, -INFINITY, -INFINITY, -INFINITY};
    const float su = 1.0f / float(width), sv = 1.0f / float(height);
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
        {
            if (!(rgba[size_t(y) * size_t(width) + size_t(x)] >> 24))
            {
                continue;
            }
            const float u0 = float(x) * su, u1 = float(x + 1) * su;
            const float v0 = float(y) * sv, v1 = float(y + 1) * sv;
            const float a[4] = {u0, v0, u0 + v0, u0 - v1};
            const float b[4] = {u1, v1, u1 + v1, u1 - v0};
            for (int k = 0; k < 4; ++k)
            {
                lo[k] = std::min(lo[k], a[k]);
                hi[k] = std::max(hi[k], b[k]);
            }
        }
    }
    float* e = pictureOutline[picture];
    if (!(lo[0] < hi[0]))
    {
        std::fill(e, e + 8, 0.5f); // clear all over: nothing to stamp
        return;
    }
    // Two texels and a half more each way for what linear filtering and the smaller levels blur
    // outwards; the sides within the square, as the picture only repeats outside it.
    const float mu = 2.5f * su, mv = 2.5f * sv;
    e[0] = std::max(0.0f, lo[0] - mu);
    e[1] = std::max(0.0f, lo[1] - mv);
    e[2] = std::min(1.0f, hi[0] + mu);
    e[3] = std::min(1.0f, hi[1] + mv);
    e[4] = lo[2] - mu - mv;
    e[5] = hi[2] + mu + mv;
    e[6] = lo[3] - mu - mv;
    e[7] = hi[3] + mu + mv;
}

void PaintMap::loadPictures()
{
    picturesLoaded = true;
    TextureManager& manager = TextureManager::instance();
    int width = 0, height = 0;
    GLuint textures[PICTURE_COUNT] = {};
    for (int i = 0; i < PICTURE_COUNT; ++i)
    {
        const std::string name = "paint0" + std::to_string(i + 1);
        manager.load(name, GL_RGBA, "png");
        textures[i] = manager.get(name);
    }
    glActiveTexture(GL_TEXTURE0);
    for (GLuint texture : textures)
    {
        if (texture && width == 0)
        {
            GLint w = 0, h = 0;
            glBindTexture(GL_TEXTURE_2D, texture);
            glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &w);
            glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &h);
            width = w;
            height = h;
        }
    }
    // The first picture that loaded sets the size of every layer; with none, one pixel.
    width = std::max(width, 1);
    height = std::max(height, 1);
    const int levels = mipmapLevels(width, height);
    glGenTextures(1, &pictures);
    glBindTexture(GL_TEXTURE_2D_ARRAY, pictures);
    for (int level = 0; level < levels; ++level)
    {
        glTexImage3D(GL_TEXTURE_2D_ARRAY, level, GL_RGBA, std::max(1, width >> level),
                     std::max(1, height >> level), PICTURE_COUNT, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     nullptr);
    }
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_NEAREST);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_T, GL_REPEAT);
    std::vector<uint32_t> pixels(size_t(width) * size_t(height));
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    for (int i = 0; i < PICTURE_COUNT; ++i)
    {
        GLint w = 0, h = 0;
        if (textures[i])
        {
            glBindTexture(GL_TEXTURE_2D, textures[i]);
            glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &w);
            glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &h);
        }
        const bool fits = textures[i] && w == width && h == height;
        if (textures[i] && !fits)
        {
            std::fprintf(stderr, "[ERROR] Texture 'paint0%d' is %dx%d, the other paint pictures %dx%d\n",
                         i + 1, w, h, width, height);
        }
        // A picture that cannot be used paints opaque black, as a missing texture would.
        for (int level = 0; level < levels; ++level)
        {
            const int lw = std::max(1, width >> level), lh = std::max(1, height >> level);
            std::fill(pixels.begin(), pixels.begin() + size_t(lw) * size_t(lh), 0xff000000u);
            if (fits)
            {
                glBindTexture(GL_TEXTURE_2D, textures[i]);
                glGetTexImage(GL_TEXTURE_2D, level, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
            }
            if (level == 0)
            {
                measurePicture(i, pixels.data(), lw, lh);
            }
            glBindTexture(GL_TEXTURE_2D_ARRAY, pictures);
            glTexSubImage3D(GL_TEXTURE_2D_ARRAY, level, 0, 0, i, lw, lh, 1, GL_RGBA,
                            GL_UNSIGNED_BYTE, pixels.data());
        }
    }
    glBindTexture(GL_TEXTURE_2D_ARRAY, 0);
    glBindTexture(GL_TEXTURE_2D, 0);
}

void PaintMap::grow(int wanted)
{
    // The new pool is cleared level by level, then the old one's pages are copied into it.
    GLuint grown = 0;
    glGenTextures(1, &grown);
    glBindTexture(GL_TEXTURE_2D_ARRAY, grown);
    for (int level = 0; level < LEVELS; ++level)
    {
        glTexImage3D(GL_TEXTURE_2D_ARRAY, level, GL_RGBA8, LAYER >> level, LAYER >> level, wanted,
                     0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    }
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_BASE_LEVEL, 0);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAX_LEVEL, LEVELS - 1);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glBindTexture(GL_TEXTURE_2D_ARRAY, 0);

    const SavedState saved;
    glDisable(GL_SCISSOR_TEST);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
    glDrawBuffer(GL_COLOR_ATTACHMENT0);
    glClearColor(0.0f, 0.0f, 0.0f, 0.0f);
    for (int layer = 0; layer < wanted; ++layer)
    {
        for (int level = 0; level < LEVELS; ++level)
        {
            glFramebufferTextureLayer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, grown, level,
                                      layer);
            if (layer < layers)
            {
                glBindFramebuffer(GL_READ_FRAMEBUFFER, readFramebuffer);
                glFramebufferTextureLayer(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, pool, level,
                                          layer);
                glReadBuffer(GL_COLOR_ATTACHMENT0);
                const int side = LAYER >> level;
                glBlitFramebuffer(0, 0, side, side, 0, 0, side, side, GL_COLOR_BUFFER_BIT,
                                  GL_NEAREST);
            }
            else
            {
                glClear(GL_COLOR_BUFFER_BIT);
            }
        }
    }
    glFramebufferTextureLayer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0, 0);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, readFramebuffer);
    glFramebufferTextureLayer(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0, 0);
    if (pool)
    {
        glDeleteTextures(1, &pool);
    }
    pool = grown;
    layers = wanted;
    poolMag = GL_LINEAR;
    poolMin = GL_LINEAR_MIPMAP_LINEAR;
}

uint32_t PaintMap::pageSlot(int px, int py)
{
    uint32_t& entry = table[size_t(py) * size_t(pagesAcross) + size_t(px)];
    if (entry)
    {
        return entry - 1;
    }
    if (pagesUsed >= maxPages)
    {
        if (!warnedFull)
        {
            std::fprintf(stderr, "[ERROR] The paint map is full (%zu pages): no more paint lands\n",
                         maxPages);
            warnedFull = true;
        }
        return UINT32_MAX;
    }
    const uint32_t slot = uint32_t(pagesUsed++);
    if (slot >= uint32_t(layers) * PAGES_PER_LAYER)
    {
        // Grown by half at a time (each growth copies the pool), never past what the level needs.
        const int limit = int((maxPages + PAGES_PER_LAYER - 1) / PAGES_PER_LAYER);
        grow(std::min(limit, std::max(layers + 2, layers + layers / 2)));
    }
    entry = slot + 1;
    glBindTexture(GL_TEXTURE_2D, pageTable);
    glTexSubImage2D(GL_TEXTURE_2D, 0, px, py, 1, 1, GL_RED_INTEGER, GL_UNSIGNED_INT, &entry);
    glBindTexture(GL_TEXTURE_2D, 0);
    pageOfSlot.push_back(uint32_t(py) * uint32_t(pagesAcross) + uint32_t(px));
    masks.emplace_back();
    painted.push_back(0);
    dirty.push_back(0);
    stale.push_back(0);
    return slot;
}

void PaintMap::clip(Patch& p, float ox, float oy, float a, float ax, float ay)
{
    if (p.count == 0)
    {
        return;
    }
    const Patch in = p;
    p.count = 0;
    float f[Patch::MAX_CORNERS];
    for (int i = 0; i < in.count; ++i)
    {
        f[i] = a + ax * (in.x[i] - ox) + ay * (in.y[i] - oy);
    }
    for (int i = 0; i < in.count; ++i)
    {
        const int j = i + 1 == in.count ? 0 : i + 1;
        if (f[i] >= 0.0f && p.count < Patch::MAX_CORNERS)
        {
            p.x[p.count] = in.x[i];
            p.y[p.count] = in.y[i];
            p.u[p.count] = in.u[i];
            p.v[p.count] = in.v[i];
            p.d[p.count] = in.d[i];
            ++p.count;
        }
        if ((f[i] >= 0.0f) != (f[j] >= 0.0f) && p.count < Patch::MAX_CORNERS)
        {
            const float t = f[i] / (f[i] - f[j]);
            p.x[p.count] = in.x[i] + (in.x[j] - in.x[i]) * t;
            p.y[p.count] = in.y[i] + (in.y[j] - in.y[i]) * t;
            p.u[p.count] = in.u[i] + (in.u[j] - in.u[i]) * t;
            p.v[p.count] = in.v[i] + (in.v[j] - in.v[i]) * t;
            p.d[p.count] = in.d[i] + (in.d[j] - in.d[i]) * t;
            ++p.count;
        }
    }
    if (p.count < 3)
    {
        p.count = 0;
    }
}

bool PaintMap::patchOn(const SplatRecord& r, const Chart& c, Patch& out) const
{
    out.count = 0;
    if (!(math::dot(c.normal, r.normal) > splat::MIN_FACING))
    {
        return false;
    }
    const float* e = pictureOutline[r.picture < PICTURE_COUNT ? r.picture : 0];
    if (!(e[0] < e[2] && e[1] < e[3]))
    {
        return false;
    }
    const SplatFrame f = splat::frame(r.point, r.normal);
    // The block's corners lie along the dual axes of the (possibly skewed) frame.
    const Vec3 bn = math::cross(f.bitangent, f.normal);
    const Vec3 nt = math::cross(f.normal, f.tangent);
    const Vec3 tb = math::cross(f.tangent, f.bitangent);
    const float det = math::dot(f.tangent, bn);
    float x0 = INFINITY, y0 = INFINITY, x1 = -INFINITY, y1 = -INFINITY;
    const float side = 2.0f * splat::HALF_SIZE;
    for (int i = 0; i < 8; ++i)
    {
        const float st = ((i & 1) ? (e[2] - 0.5f) * side : (e[0] - 0.5f) * side) / det;
        const float sb = ((i & 2) ? (e[3] - 0.5f) * side : (e[1] - 0.5f) * side) / det;
        const float sn = ((i & 4) ? splat::HALF_DEPTH : -splat::HALF_DEPTH) / det;
        const Vec3 p{f.point.x + st * bn.x + sb * nt.x + sn * tb.x,
                     f.point.y + st * bn.y + sb * nt.y + sn * tb.y,
                     f.point.z + st * bn.z + sb * nt.z + sn * tb.z};
        float u, v;
        charts.toMap(c, p, u, v);
        x0 = std::min(x0, u);
        x1 = std::max(x1, u);
        y0 = std::min(y0, v);
        y1 = std::max(y1, v);
    }
    // Within the chart's rectangle, its gutter included: the gutter takes the same paint as the
    // plane beside it, so filtering at the chart's edge finds no seam.
    x0 = std::max(x0, float(c.x));
    y0 = std::max(y0, float(c.y));
    x1 = std::min(x1, float(c.x + c.width));
    y1 = std::min(y1, float(c.y + c.height));
    if (!(x0 < x1 && y0 < y1))
    {
        return false;
    }
    // u, v and d are affine over the chart: their values at the rectangle's corner and their
    // steps along x and y.
    const auto at = [&](float x, float y, float& u, float& v, float& d)
    {
        const Vec3 w = charts.toWorld(c, x, y);
        const Vec3 o{w.x - f.point.x, w.y - f.point.y, w.z - f.point.z};
        u = math::dot(o, f.tangent) / side + 0.5f;
        v = math::dot(o, f.bitangent) / side + 0.5f;
        d = math::dot(o, f.normal);
    };
    float u0, v0, d0, ux, vx, dx, uy, vy, dy;
    at(x0, y0, u0, v0, d0);
    at(x0 + 1.0f, y0, ux, vx, dx);
    at(x0, y0 + 1.0f, uy, vy, dy);
    ux -= u0, vx -= v0, dx -= d0;
    uy -= u0, vy -= v0, dy -= d0;
    const float xs[4] = {x0, x1, x1, x0}, ys[4] = {y0, y0, y1, y1};
    out.count = 4;
    for (int k = 0; k < 4; ++k)
    {
        const float sx = xs[k] - x0, sy = ys[k] - y0;
        out.x[k] = xs[k];
        out.y[k] = ys[k];
        out.u[k] = u0 + ux * sx + uy * sy;
        out.v[k] = v0 + vx * sx + vy * sy;
        out.d[k] = d0 + dx * sx + dy * sy;
    }
    // Only where the block reaches and the picture paints: the rest would be rasterized to be
    // thrown away. Each cut is VALUE + STEP_X x + STEP_Y y >= 0 from the rectangle's corner.
    const float h = splat::HALF_DEPTH;
    clip(out, x0, y0, u0 - e[0], ux, uy);
    clip(out, x0, y0, e[2] - u0, -ux, -uy);
    clip(out, x0, y0, v0 - e[1], vx, vy);
    clip(out, x0, y0, e[3] - v0, -vx, -vy);
    clip(out, x0, y0, u0 + v0 - e[4], ux + vx, uy + vy);
    clip(out, x0, y0, e[5] - u0 - v0, -ux - vx, -uy - vy);
    clip(out, x0, y0, u0 - v0 - e[6], ux - vx, uy - vy);
    clip(out, x0, y0, e[7] - u0 + v0, vx - ux, vy - uy);
    clip(out, x0, y0, d0 + h, dx, dy);
    clip(out, x0, y0, h - d0, -dx, -dy);
    return out.count >= 3;
}

void PaintMap::stamp(const SplatRecords& records, size_t first, size_t end, bool cut)
{
    if (first >= end || table.empty())
    {
        return;
    }
    if (!picturesLoaded)
    {
        loadPictures();
    }
    // Every splat's patch on every chart it reaches, listed under each page it covers.
    patches.clear();
    pieces.clear();
    patchRecord.clear();
    for (size_t i = first; i < end; ++i)
    {
        const SplatRecord& r = records[i];
        const uint32_t* chartIds = records.chartsOf(r);
        for (uint16_t k = 0; k < r.chartCount; ++k)
        {
            Patch& patch = patches.emplace_back();
            if (!patchOn(r, charts[chartIds[k]], patch))
            {
                patches.pop_back();
                continue;
            }
            const auto [xLo, xHi] = std::minmax_element(patch.x, patch.x + patch.count);
            const auto [yLo, yHi] = std::minmax_element(patch.y, patch.y + patch.count);
            // Page p holds paint-map texels [p PAYLOAD - BORDER, (p + 1) PAYLOAD + BORDER).
            const int px0 = std::max(0, int(std::floor((*xLo - BORDER) / PAYLOAD)));
            const int px1 = std::min(pagesAcross - 1, int(std::floor((*xHi + BORDER) / PAYLOAD)));
            const int py0 = std::max(0, int(std::floor((*yLo - BORDER) / PAYLOAD)));
            const int py1 = std::min(pagesDown - 1, int(std::floor((*yHi + BORDER) / PAYLOAD)));
            const uint32_t index = uint32_t(patches.size() - 1);
            bool used = false;
            for (int py = py0; py <= py1; ++py)
            {
                for (int px = px0; px <= px1; ++px)
                {
                    // A border reaching into a page no chart uses needs no page.
                    if (!charts.cellUsed(px, py))
                    {
                        continue;
                    }
                    const uint32_t slot = pageSlot(px, py);
                    if (slot != UINT32_MAX)
                    {
                        pieces.push_back({slot, index, 0});
                        used = true;
                    }
                }
            }
            if (used)
            {
                patchRecord.push_back(uint32_t(i));
            }
            else
            {
                patches.pop_back();
            }
        }
    }
    if (pieces.empty())
    {
        return;
    }
    // Page by page, and within a page in the order the splats were made; each patch a fan.
    std::stable_sort(pieces.begin(), pieces.end(),
                     [](const Piece& a, const Piece& b) { return a.slot < b.slot; });
    stampVertices.clear();
    for (Piece& q : pieces)
    {
        const Patch& p = patches[q.index];
        const SplatRecord& r = records[patchRecord[q.index]];
        q.first = uint32_t(stampVertices.size() / STAMP_FLOATS);
        for (int t = 1; t + 1 < p.count; ++t)
        {
            for (const int k : {0, t, t + 1})
            {
                stampVertices.insert(stampVertices.end(),
                                     {p.x[k], p.y[k], p.u[k], p.v[k], p.d[k], float(r.picture),
                                      r.colour.x, r.colour.y, r.colour.z, r.colour.w});
            }
        }
    }

    const SavedState saved;
    Shader* decal = ShaderManager::instance().use("decal");
    if (!decal)
    {
        return;
    }
    const GLuint program = decal->getProgram();
    glBindBuffer(GL_ARRAY_BUFFER, stampBuffer);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(stampVertices.size() * sizeof(float)),
                 stampVertices.data(), GL_STREAM_DRAW);
    const GLsizei stride = STAMP_FLOATS * sizeof(float);
    struct Attribute
    {
        const char* name;
        int size;
        size_t offset;
    };
    const Attribute attributes[] = {
        {"vertex", 2, 0}, {"texcoord", 3, 2}, {"picture", 1, 5}, {"color", 4, 6}};
    for (const Attribute& a : attributes)
    {
        const GLint location = glGetAttribLocation(program, a.name);
        if (location >= 0)
        {
            glEnableVertexAttribArray(GLuint(location));
            glVertexAttribPointer(GLuint(location), a.size, GL_FLOAT, GL_FALSE, stride,
                                  reinterpret_cast<const void*>(a.offset * sizeof(float)));
        }
    }
    decal->setInt("tex", 0);
    decal->setInt("trans", cut ? 1 : 0);
    decal->setInt("picturecount", PICTURE_COUNT);
    const GLint region = glGetUniformLocation(program, "region");
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D_ARRAY, pictures);
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_CULL_FACE);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_STENCIL_TEST);
    glDepthMask(GL_FALSE);
    glEnable(GL_BLEND);
    // The paint map holds colour premultiplied by coverage: a splat goes over what is there.
    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
    glDrawBuffer(GL_COLOR_ATTACHMENT0);
    int attachedLayer = -1;
    for (size_t run = 0; run < pieces.size();)
    {
        size_t runEnd = run + 1;
        while (runEnd < pieces.size() && pieces[runEnd].slot == pieces[run].slot)
        {
            ++runEnd;
        }
        const uint32_t slot = pieces[run].slot;
        if (!stale[slot])
        {
            stale[slot] = 1;
            staleSlots.push_back(slot);
        }
        const int layer = int(slot / PAGES_PER_LAYER);
        const int sx = int(slot % PAGES_ACROSS), sy = int(slot / PAGES_ACROSS % PAGES_ACROSS);
        if (layer != attachedLayer)
        {
            glFramebufferTextureLayer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, pool, 0, layer);
            attachedLayer = layer;
        }
        const uint32_t page = pageOfSlot[slot];
        const int px = int(page % uint32_t(pagesAcross)), py = int(page / uint32_t(pagesAcross));
        glViewport(sx * PAGE, sy * PAGE, PAGE, PAGE);
        glUniform4f(region, float(px * PAYLOAD - BORDER), float(py * PAYLOAD - BORDER),
                    float(PAGE), 0.0f);
        const GLint firstVertex = GLint(pieces[run].first);
        const GLint endVertex = runEnd < pieces.size() ? GLint(pieces[runEnd].first)
                                                      : GLint(stampVertices.size() / STAMP_FLOATS);
        glDrawArrays(GL_TRIANGLES, firstVertex, endVertex - firstVertex);
        run = runEnd;
    }
    glFramebufferTextureLayer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0, 0);
    for (const Attribute& a : attributes)
    {
        const GLint location = glGetAttribLocation(program, a.name);
        if (location >= 0)
        {
            glDisableVertexAttribArray(GLuint(location));
        }
    }
    glBindTexture(GL_TEXTURE_2D_ARRAY, 0);
    // Whatever program was bound is bound again when SAVED goes; the registry's is not.
    ShaderManager::instance().unuse();
}

void PaintMap::updateSmallerLevels()
{
    if (staleSlots.empty())
    {
        return;
    }
    const SavedState saved;
    glDisable(GL_SCISSOR_TEST);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, readFramebuffer);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    glDrawBuffer(GL_COLOR_ATTACHMENT0);
    // Each texel the mean of the four under it, level by level, in one blit a layer over the
    // rectangle of its stale pages: a page that is not stale comes out as it was.
    std::sort(staleSlots.begin(), staleSlots.end());
    for (int level = 1; level < LEVELS; ++level)
    {
        const int from = PAGE >> (level - 1), to = PAGE >> level;
        for (size_t run = 0; run < staleSlots.size();)
        {
            const int layer = int(staleSlots[run] / PAGES_PER_LAYER);
            int x0 = PAGES_ACROSS, y0 = PAGES_ACROSS, x1 = 0, y1 = 0;
            for (; run < staleSlots.size() && int(staleSlots[run] / PAGES_PER_LAYER) == layer;
                 ++run)
            {
                const int sx = int(staleSlots[run] % PAGES_ACROSS);
                const int sy = int(staleSlots[run] / PAGES_ACROSS % PAGES_ACROSS);
                x0 = std::min(x0, sx);
                y0 = std::min(y0, sy);
                x1 = std::max(x1, sx + 1);
                y1 = std::max(y1, sy + 1);
            }
            glFramebufferTextureLayer(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, pool, level - 1,
                                      layer);
            glFramebufferTextureLayer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, pool, level,
                                      layer);
            glBlitFramebuffer(x0 * from, y0 * from, x1 * from, y1 * from, x0 * to, y0 * to, x1 * to,
                              y1 * to, GL_COLOR_BUFFER_BIT, GL_LINEAR);
        }
    }
    for (uint32_t slot : staleSlots)
    {
        stale[slot] = 0;
        if (!dirty[slot])
        {
            dirty[slot] = 1;
            dirtySlots.push_back(slot);
        }
    }
    staleSlots.clear();
    glFramebufferTextureLayer(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0, 0);
    glFramebufferTextureLayer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0, 0);
}

void PaintMap::clear()
{
    if (!pool)
    {
        return;
    }
    const SavedState saved;
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
    glDrawBuffer(GL_COLOR_ATTACHMENT0);
    glDisable(GL_SCISSOR_TEST);
    glClearColor(0.0f, 0.0f, 0.0f, 0.0f);
    for (int layer = 0; layer < layers; ++layer)
    {
        for (int level = 0; level < LEVELS; ++level)
        {
            glFramebufferTextureLayer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, pool, level,
                                      layer);
            glClear(GL_COLOR_BUFFER_BIT);
        }
    }
    glFramebufferTextureLayer(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0, 0);
    for (uint32_t slot = 0; slot < pagesUsed; ++slot)
    {
        paintedCells -= painted[slot];
        painted[slot] = 0;
        dirty[slot] = 0;
        stale[slot] = 0;
    }
    dirtySlots.clear();
    staleSlots.clear();
    revealedShare = 0.0f;
}

void PaintMap::bind(Shader& shader)
{
    const bool any = pool != 0;
    shader.setInt("painted", any ? 1 : 0);
    if (!any)
    {
        return;
    }
    const float geometry[4] = {float(PAYLOAD), float(PAGE), float(BORDER), float(LAYER)};
    shader.setVec4("pagegeometry", geometry);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D_ARRAY, pool);
    // Set only when they change: the software renderer waits for every draw that reads a texture
    // before it changes the texture's state.
    GLint mag = 0, min = 0;
    wantedFilters(mag, min);
    if (mag && (mag != poolMag || min != poolMin))
    {
        glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, mag);
        glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, min);
        poolMag = mag;
        poolMin = min;
    }
    glActiveTexture(GL_TEXTURE2);
    glBindTexture(GL_TEXTURE_2D, pageTable);
    glActiveTexture(GL_TEXTURE0);
}

void PaintMap::unbind(Shader& shader)
{
    shader.setInt("painted", 0);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D_ARRAY, 0);
    glActiveTexture(GL_TEXTURE2);
    glBindTexture(GL_TEXTURE_2D, 0);
    glActiveTexture(GL_TEXTURE0);
}

void PaintMap::countPage(uint32_t slot)
{
    const uint32_t page = pageOfSlot[slot];
    const int px = int(page % uint32_t(pagesAcross)), py = int(page / uint32_t(pagesAcross));
    std::vector<uint8_t>& mask = masks[slot];
    if (mask.empty())
    {
        // The cells whose centres lie on one of the level's triangles.
        mask.assign(size_t(CELLS) * CELLS, 0);
        const int x0 = px * PAYLOAD, y0 = py * PAYLOAD;
        charts.chartsIn(x0, y0, x0 + PAYLOAD, y0 + PAYLOAD, nearby);
        const std::vector<float>& coords = charts.getCoords();
        for (uint32_t c : nearby)
        {
            size_t count = 0;
            const uint32_t* triangles = charts.trianglesOf(c, count);
            for (size_t i = 0; i < count; ++i)
            {
                const float* a = &coords[size_t(triangles[i]) * 6];
                const float* b = a + 2;
                const float* d = a + 4;
                const float minX = std::min({a[0], b[0], d[0]}) - x0;
                const float maxX = std::max({a[0], b[0], d[0]}) - x0;
                const float minY = std::min({a[1], b[1], d[1]}) - y0;
                const float maxY = std::max({a[1], b[1], d[1]}) - y0;
                const int cx0 = std::max(0, int(std::floor(minX / CELL - 0.5f)));
                const int cx1 = std::min(CELLS - 1, int(std::ceil(maxX / CELL - 0.5f)));
                const int cy0 = std::max(0, int(std::floor(minY / CELL - 0.5f)));
                const int cy1 = std::min(CELLS - 1, int(std::ceil(maxY / CELL - 0.5f)));
                for (int cy = cy0; cy <= cy1; ++cy)
                {
                    for (int cx = cx0; cx <= cx1; ++cx)
                    {
                        const float x = float(x0) + (float(cx) + 0.5f) * CELL;
                        const float y = float(y0) + (float(cy) + 0.5f) * CELL;
                        if (inside(x, y, a, b, d))
                        {
                            mask[size_t(cy) * CELLS + size_t(cx)] = 1;
                        }
                    }
                }
            }
        }
    }
    // The page's coarsest level, border and all.
    const int side = PAGE >> (LEVELS - 1);
    const int layer = int(slot / PAGES_PER_LAYER);
    const int sx = int(slot % PAGES_ACROSS), sy = int(slot / PAGES_ACROSS % PAGES_ACROSS);
    readback.resize(size_t(side) * side * 4);
    glFramebufferTextureLayer(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, pool, LEVELS - 1, layer);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    glReadPixels(sx * side, sy * side, side, side, GL_RGBA, GL_UNSIGNED_BYTE, readback.data());
    const int border = BORDER >> (LEVELS - 1);
    uint32_t count = 0;
    for (int cy = 0; cy < CELLS; ++cy)
    {
        for (int cx = 0; cx < CELLS; ++cx)
        {
            const uint8_t alpha = readback[(size_t(cy + border) * side + size_t(cx + border)) * 4 + 3];
            count += (alpha >= 128 && mask[size_t(cy) * CELLS + size_t(cx)]) ? 1 : 0;
        }
    }
    paintedCells += count;
    paintedCells -= painted[slot];
    painted[slot] = count;
}

void PaintMap::refreshCoverage(size_t maxPages)
{
    if (dirtySlots.empty() || !pool)
    {
        return;
    }
    const SavedState saved;
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, readFramebuffer);
    const size_t count = std::min(maxPages, dirtySlots.size());
    for (size_t i = 0; i < count; ++i)
    {
        const uint32_t slot = dirtySlots[dirtySlots.size() - 1 - i];
        dirty[slot] = 0;
        countPage(slot);
    }
    dirtySlots.resize(dirtySlots.size() - count);
    glFramebufferTextureLayer(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, 0, 0, 0);
    const double cellArea = double(CELL) * CELL / (double(charts.getDensity()) * charts.getDensity());
    const double area = charts.getArea();
    revealedShare = area > 0.0 ? float(std::min(1.0, double(paintedCells) * cellArea / area)) : 0.0f;
}
