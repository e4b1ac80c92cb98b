// SPDX-License-Identifier: MIT
#include "scene/Paint.h"

#include "core/Settings.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "sound/SoundManager.h"

#include <GL/glew.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>

namespace
{
// A batch holds this many corners (1.5 MiB), all its 16-bit indices can reach, before the next
// one starts; a splat is some forty corners, so 10,000 splats draw in about seven calls.
const size_t BATCH_VERTICES = Paint::MAX_CORNERS;
// Splats on our levels have about as many triangles as corners.
const size_t BATCH_INDICES = 3 * BATCH_VERTICES;
const GLsizei STRIDE = sizeof(PaintVertex);

// Corners are shared between the pieces of one splat where their positions agree to the bit,
// which is most of them: a piece is a level triangle cut to the splat, and neighbours meet at
// the level's own vertices. Sharing them cuts the paint's memory by more than half.
struct CornerKey
{
    uint32_t bits[3];
    bool operator==(const CornerKey& other) const
    {
        return bits[0] == other.bits[0] && bits[1] == other.bits[1] && bits[2] == other.bits[2];
    }
};

struct CornerHash
{
    size_t operator()(const CornerKey& key) const
    {
        return (size_t(key.bits[0]) * 73856093u) ^ (size_t(key.bits[1]) * 19349663u) ^
               (size_t(key.bits[2]) * 83492791u);
    }
};

CornerKey keyOf(const DecalVertex& corner)
{
    CornerKey key;
    std::memcpy(&key.bits[0], &corner.x, 4);
    std::memcpy(&key.bits[1], &corner.y, 4);
    std::memcpy(&key.bits[2], &corner.z, 4);
    return key;
}

// The filters from the "texture-mipmap" and "texture-quality" switches, for the bound pictures.
void applyFilters()
{
    Settings& settings = Settings::instance();
    GLint mag = 0, min = 0;
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
        return; // any other value keeps the filters the picture was loaded with
    }
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, mag);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, min);
}

int mipmapLevels(int width, int height)
{
    int levels = 1;
    for (int size = std::max(width, height); size > 1; size /= 2)
    {
        ++levels;
    }
    return levels;
}

// How far from a point, in texels of a splat picture, the filters read: bilinear filtering at
// mipmap level L reads texels 1.5 texels of that level (2^L of the picture) either side, and
// trilinear filtering up to level 2 reads level 2; one more for rounding. Paint is cut to where
// its picture is not clear within this reach, so nothing it draws changes up to level 2 (a splat
// at least a quarter of its picture's width on screen); beyond, the faint blur of the smallest
// mipmaps round a distant splat's edge is left out.
const float OUTLINE_REACH = 1.5f * 4.0f + 1.0f;

// How far in front of a flat splat's plane, in metres, the eye must be for the splat to be
// drawn. Within it the pieces are edge-on and left to the rasterizer.
const float BACK_FACE_MARGIN = 0.01f;
// Pieces whose normals and offsets agree this closely lie in one plane; the margin above covers
// what is left over across a splat.
const float PLANE_TOLERANCE = 1e-3f;

// True with PLANE when every piece of POLYGONS lies in one plane (each corner carries the face
// normal of the level triangle it was cut from).
bool onePlane(const std::list<DecalPolygon>& polygons, Vec4& plane)
{
    const DecalVertex& first = polygons.front().front();
    plane = {first.nx, first.ny, first.nz,
             first.nx * first.x + first.ny * first.y + first.nz * first.z};
    for (const DecalPolygon& polygon : polygons)
    {
        for (const DecalVertex& c : polygon)
        {
            const float offset = plane.x * c.x + plane.y * c.y + plane.z * c.z;
            if (std::fabs(c.nx - plane.x) > PLANE_TOLERANCE ||
                std::fabs(c.ny - plane.y) > PLANE_TOLERANCE ||
                std::fabs(c.nz - plane.z) > PLANE_TOLERANCE ||
                std::fabs(offset - plane.w) > PLANE_TOLERANCE)
            {
                return false;
            }
        }
    }
    return true;
}

// The camera's position from a view matrix (rotation and translation only).
Vec3 eyeOf(const Mat4& view)
{
    const float* m = view.data();
    const Vec3 t{m[12], m[13], m[14]};
    return {-(m[0] * t.x + m[1] * t.y + m[2] * t.z), -(m[4] * t.x + m[5] * t.y + m[6] * t.z),
            -(m[8] * t.x + m[9] * t.y + m[10] * t.z)};
}

void pointAttribute(GLuint program, const char* name, int size, const void* at)
{
    const GLint location = glGetAttribLocation(program, name);
    if (location >= 0)
    {
        glEnableVertexAttribArray(static_cast<GLuint>(location));
        glVertexAttribPointer(static_cast<GLuint>(location), size, GL_FLOAT, GL_FALSE, STRIDE, at);
    }
}

void disableAttribute(GLuint program, const char* name)
{
    const GLint location = glGetAttribLocation(program, name);
    if (location >= 0)
    {
        glDisableVertexAttribArray(static_cast<GLuint>(location));
    }
}
} // namespace

Paint::~Paint()
{
    if (pictures)
    {
        glDeleteTextures(1, &pictures);
    }
    for (GLuint buffer : {visibleBuffer, visibleCoreBuffer})
    {
        if (buffer)
        {
            glDeleteBuffers(1, &buffer);
        }
    }
    for (PaintBatch& batch : batches)
    {
        if (batch.vertexBuffer)
        {
            glDeleteBuffers(1, &batch.vertexBuffer);
            glDeleteBuffers(1, &batch.indexBuffer);
            glDeleteBuffers(1, &batch.coreIndexBuffer);
        }
    }
}

const Decal& Paint::add(const std::list<DecalPolygon>& cut, const Bounds& bounds, Vec4 color)
{
    const int picture = std::rand() % Decal::TEXTURE_COUNT;
    usePicture(picture);
    SoundManager::instance().playSplash();
    // Only the part of the cut where the picture can colour anything is drawn: the rest of the
    // square is clear and would cost the rasterizer as much as paint.
    std::list<DecalPolygon> polygons = cut;
    splat::trim(polygons, outlines[picture]);
    // Where the paint comes out opaque it hides the splats under it; a translucent colour
    // hides nothing.
    std::list<DecalPolygon> core;
    if (color.w >= 1.0f)
    {
        core = polygons;
        splat::trim(core, cores[picture]);
    }

    // A splat of more corners than a batch can index would take a level cut finer than a
    // millimetre; it keeps the pieces that fit.
    size_t corners = 0, triangles = 0, kept = 0;
    for (const DecalPolygon& polygon : polygons)
    {
        if (corners + polygon.size() > MAX_CORNERS)
        {
            break;
        }
        corners += polygon.size();
        triangles += polygon.size() >= 3 ? polygon.size() - 2 : 0;
        ++kept;
    }
    size_t coreCorners = 0, coreTriangles = 0;
    for (const DecalPolygon& polygon : core)
    {
        coreCorners += polygon.size();
        coreTriangles += polygon.size() - 2;
    }
    if (kept < polygons.size() || corners + coreCorners > MAX_CORNERS)
    {
        core.clear(); // the core is only a saving
        coreCorners = coreTriangles = 0;
    }
    PaintBatch& batch = batchFor(corners + coreCorners, triangles * 3, coreTriangles * 3, color);
    size_t shade = 0;
    while (shade < batch.palette.size() && std::memcmp(&batch.palette[shade], &color, sizeof(Vec4)))
    {
        ++shade;
    }
    if (shade == batch.palette.size())
    {
        batch.palette.push_back(color);
    }
    const float paint = static_cast<float>(picture + 8 * static_cast<int>(shade));

    Decal decal(picture, color, bounds, cut.size());
    decal.batch = static_cast<uint32_t>(&batch - batches.data());
    decal.firstVertex = static_cast<uint32_t>(batch.vertices.size());
    decal.firstIndex = static_cast<uint32_t>(batch.indices.size());
    decal.firstCoreIndex = static_cast<uint32_t>(batch.coreIndices.size());
    std::unordered_map<CornerKey, uint16_t, CornerHash> shared;
    shared.reserve(corners + coreCorners);
    std::vector<uint16_t> fan;
    auto append = [&](const DecalPolygon& polygon, std::vector<uint16_t>& indices) {
        fan.clear();
        for (const DecalVertex& corner : polygon)
        {
            const auto [it, added] =
                shared.try_emplace(keyOf(corner), static_cast<uint16_t>(batch.vertices.size()));
            if (added)
            {
                batch.vertices.push_back({corner.x, corner.y, corner.z, corner.u, corner.v, paint});
            }
            fan.push_back(it->second);
        }
        // The polygon's fan as triangles: the same triangles a fan draw makes, in its order.
        for (size_t i = 2; i < fan.size(); ++i)
        {
            indices.insert(indices.end(), {fan[0], fan[i - 1], fan[i]});
        }
    };
    auto polygon = polygons.begin();
    for (size_t p = 0; p < kept; ++p, ++polygon)
    {
        append(*polygon, batch.indices);
    }
    for (const DecalPolygon& piece : core)
    {
        append(piece, batch.coreIndices);
    }
    decal.flat = !polygons.empty() && onePlane(polygons, decal.plane);
    decal.vertexCount = static_cast<uint32_t>(batch.vertices.size()) - decal.firstVertex;
    decal.indexCount = static_cast<uint32_t>(batch.indices.size()) - decal.firstIndex;
    decal.coreIndexCount = static_cast<uint32_t>(batch.coreIndices.size()) - decal.firstCoreIndex;
    upload(batch, decal);
    batch.endDecal = decals.size() + 1;
    decals.push_back(decal);
    return decals.back();
}

void Paint::usePicture(int picture)
{
    if (pictureLoaded[picture])
    {
        return;
    }
    pictureLoaded[picture] = true;
    const std::string name = "paint0" + std::to_string(picture + 1);
    TextureManager& manager = TextureManager::instance();
    manager.load(name, GL_RGBA, "png");
    const GLuint texture = manager.get(name);

    GLint width = 0, height = 0;
    GLint active = GL_TEXTURE0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    glActiveTexture(GL_TEXTURE0);
    if (texture)
    {
        glBindTexture(GL_TEXTURE_2D, texture);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    }
    if (!pictures)
    {
        // The first picture sets the size of every layer; a missing first picture leaves a
        // one-pixel array.
        pictureWidth = width > 0 ? width : 1;
        pictureHeight = height > 0 ? height : 1;
        glGenTextures(1, &pictures);
        glBindTexture(GL_TEXTURE_2D_ARRAY, pictures);
        const int levels = mipmapLevels(pictureWidth, pictureHeight);
        for (int level = 0; level < levels; ++level)
        {
            glTexImage3D(GL_TEXTURE_2D_ARRAY, level, GL_RGBA, std::max(1, pictureWidth >> level),
                         std::max(1, pictureHeight >> level), Decal::TEXTURE_COUNT, 0, GL_RGBA,
                         GL_UNSIGNED_BYTE, nullptr);
        }
        // As the texture manager leaves a picture it loads.
        glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
        glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_S, GL_REPEAT);
        glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_T, GL_REPEAT);
    }
    glBindTexture(GL_TEXTURE_2D_ARRAY, pictures);

    const int levels = mipmapLevels(pictureWidth, pictureHeight);
    const bool fits = texture && width == pictureWidth && height == pictureHeight;
    if (texture && !fits)
    {
        std::fprintf(stderr, "[ERROR] Texture '%s' is %dx%d, the other paint pictures %dx%d\n",
                     name.c_str(), width, height, pictureWidth, pictureHeight);
    }
    // A picture that cannot be used samples as opaque black, as a missing texture would.
    std::vector<uint32_t> pixels(size_t(pictureWidth) * size_t(pictureHeight), 0xff000000u);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    for (int level = 0; level < levels; ++level)
    {
        const int w = std::max(1, pictureWidth >> level);
        const int h = std::max(1, pictureHeight >> level);
        if (fits)
        {
            glGetTexImage(GL_TEXTURE_2D, level, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        }
        if (level == 0)
        {
            const auto* rgba = reinterpret_cast<const unsigned char*>(pixels.data());
            outlines[picture] = splat::outline(rgba, w, h, OUTLINE_REACH);
            cores[picture] = splat::core(rgba, w, h, OUTLINE_REACH);
        }
        glTexSubImage3D(GL_TEXTURE_2D_ARRAY, level, 0, 0, picture, w, h, 1, GL_RGBA,
                        GL_UNSIGNED_BYTE, pixels.data());
    }
    glBindTexture(GL_TEXTURE_2D_ARRAY, 0);
    glBindTexture(GL_TEXTURE_2D, 0);
    glActiveTexture(static_cast<GLenum>(active));
}

PaintBatch& Paint::batchFor(size_t vertexCount, size_t indexCount, size_t coreIndexCount,
                            const Vec4& color)
{
    if (!batches.empty())
    {
        PaintBatch& last = batches.back();
        const bool colourFits =
            last.palette.size() < PaintBatch::PALETTE_SIZE ||
            std::any_of(last.palette.begin(), last.palette.end(),
                        [&](const Vec4& c) { return !std::memcmp(&c, &color, sizeof(Vec4)); });
        if (last.vertices.size() + vertexCount <= last.vertices.capacity() &&
            last.indices.size() + indexCount <= last.indices.capacity() &&
            last.coreIndices.size() + coreIndexCount <= last.coreIndices.capacity() && colourFits)
        {
            return last;
        }
    }
    const size_t vertexCapacity = BATCH_VERTICES;
    const size_t indexCapacity = std::max(BATCH_INDICES, indexCount);
    const size_t coreIndexCapacity = std::max(BATCH_INDICES, coreIndexCount);
    PaintBatch& batch = batches.emplace_back();
    batch.vertices.reserve(vertexCapacity);
    batch.indices.reserve(indexCapacity);
    batch.coreIndices.reserve(coreIndexCapacity);
    batch.firstDecal = batch.endDecal = decals.size();

    glGenBuffers(1, &batch.vertexBuffer);
    glBindBuffer(GL_ARRAY_BUFFER, batch.vertexBuffer);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(vertexCapacity * sizeof(PaintVertex)),
                 nullptr, GL_DYNAMIC_DRAW);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glGenBuffers(1, &batch.indexBuffer);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, batch.indexBuffer);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(indexCapacity * sizeof(uint16_t)),
                 nullptr, GL_DYNAMIC_DRAW);
    glGenBuffers(1, &batch.coreIndexBuffer);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, batch.coreIndexBuffer);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER,
                 static_cast<GLsizeiptr>(coreIndexCapacity * sizeof(uint16_t)), nullptr,
                 GL_DYNAMIC_DRAW);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    return batch;
}

void Paint::upload(PaintBatch& batch, const Decal& decal)
{
    glBindBuffer(GL_ARRAY_BUFFER, batch.vertexBuffer);
    glBufferSubData(GL_ARRAY_BUFFER, GLintptr(decal.firstVertex) * STRIDE,
                    GLsizeiptr(decal.vertexCount) * STRIDE, &batch.vertices[decal.firstVertex]);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, batch.indexBuffer);
    glBufferSubData(GL_ELEMENT_ARRAY_BUFFER, GLintptr(decal.firstIndex) * sizeof(uint16_t),
                    GLsizeiptr(decal.indexCount) * sizeof(uint16_t),
                    &batch.indices[decal.firstIndex]);
    if (decal.coreIndexCount)
    {
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, batch.coreIndexBuffer);
        glBufferSubData(GL_ELEMENT_ARRAY_BUFFER, GLintptr(decal.firstCoreIndex) * sizeof(uint16_t),
                        GLsizeiptr(decal.coreIndexCount) * sizeof(uint16_t),
                        &batch.coreIndices[decal.firstCoreIndex]);
    }
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
}

const PaintVertex* Paint::vertices(const Decal& decal) const
{
    return batches[decal.batch].vertices.data();
}

const uint16_t* Paint::indices(const Decal& decal) const
{
    return batches[decal.batch].indices.data() + decal.firstIndex;
}


bool Paint::gatherVisible()
{
    const bool cull = Settings::instance().getBool("frustum");
    const Frustum& frustum = Frustum::instance();
    // A flat splat seen from behind would be dropped whole by face culling; skip it here and
    // spare the rasterizer its triangles.
    const bool backFaces = glIsEnabled(GL_CULL_FACE);
    const Vec3 eye = eyeOf(frustum.view);
    visibleDecals.clear();
    for (size_t d = 0; d < decals.size(); ++d)
    {
        const Decal& decal = decals[d];
        if (cull && !frustum.isVisible(decal.getBounds()))
        {
            continue;
        }
        const Vec4& p = decal.plane;
        if (backFaces && decal.flat &&
            p.x * eye.x + p.y * eye.y + p.z * eye.z - p.w < -BACK_FACE_MARGIN)
        {
            continue;
        }
        visibleDecals.push_back(static_cast<uint32_t>(d));
    }
    return !visibleDecals.empty();
}

void Paint::gatherBatches()
{
    visible.assign(batches.size(), Visible{});
    visibleIndices.clear();
    size_t next = 0;
    for (size_t b = 0; b < batches.size(); ++b)
    {
        const PaintBatch& batch = batches[b];
        Visible& v = visible[b];
        v.first = visibleIndices.size();
        size_t seen = 0;
        for (; next < visibleDecals.size() && decals[visibleDecals[next]].batch == b; ++next)
        {
            const Decal& decal = decals[visibleDecals[next]];
            const uint16_t* from = batch.indices.data() + decal.firstIndex;
            visibleIndices.insert(visibleIndices.end(), from, from + decal.indexCount);
            ++seen;
        }
        v.all = seen == batch.endDecal - batch.firstDecal && seen > 0;
        if (v.all)
        {
            visibleIndices.resize(v.first); // drawn from the batch's own indices
            v.count = batch.indices.size();
        }
        else
        {
            v.count = visibleIndices.size() - v.first;
        }
    }
}

void Paint::gatherLayers(int layers)
{
    runs.clear();
    visibleIndices.clear();
    visibleCoreIndices.clear();
    const size_t perLayer = (visibleDecals.size() + layers - 1) / static_cast<size_t>(layers);
    for (size_t i = 0; i < visibleDecals.size(); ++i)
    {
        const Decal& decal = decals[visibleDecals[i]];
        const PaintBatch& batch = batches[decal.batch];
        const int layer = 1 + static_cast<int>(i / perLayer);
        if (runs.empty() || runs.back().batch != decal.batch || runs.back().layer != layer)
        {
            runs.push_back({decal.batch, layer, visibleIndices.size(), 0,
                            visibleCoreIndices.size(), 0});
        }
        Run& run = runs.back();
        const uint16_t* from = batch.indices.data() + decal.firstIndex;
        visibleIndices.insert(visibleIndices.end(), from, from + decal.indexCount);
        run.count += decal.indexCount;
        const uint16_t* core = batch.coreIndices.data() + decal.firstCoreIndex;
        visibleCoreIndices.insert(visibleCoreIndices.end(), core, core + decal.coreIndexCount);
        run.coreCount += decal.coreIndexCount;
    }
}

void Paint::bindBatch(unsigned int program, size_t b, bool buffers)
{
    const PaintBatch& batch = batches[b];
    const char* base = nullptr; // byte offsets into the bound buffer
    if (buffers)
    {
        glBindBuffer(GL_ARRAY_BUFFER, batch.vertexBuffer);
    }
    else
    {
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        base = reinterpret_cast<const char*>(batch.vertices.data());
    }
    pointAttribute(program, "vertex", 3, base + offsetof(PaintVertex, x));
    pointAttribute(program, "texcoord", 2, base + offsetof(PaintVertex, u));
    pointAttribute(program, "paint", 1, base + offsetof(PaintVertex, paint));
    const GLint palette = glGetUniformLocation(program, "palette");
    if (palette >= 0)
    {
        glUniform4fv(palette, static_cast<GLsizei>(batch.palette.size()), &batch.palette[0].x);
    }
}

namespace
{
// The uniforms both paint programs share, for the pictures bound to texture unit 0.
void setPaintUniforms(Shader& shader)
{
    shader.setInt("tex", 0);
    // 0 lets the splat's soft edge blend when transparency is on; the inversion is intended.
    shader.setInt("trans", Settings::instance().getBool("transparency") ? 0 : 1);
    shader.setMatrix("model", math::identity()); // splats are in level coordinates
}

// Fills BUFFER (made on first use) with INDICES for this frame's draws.
void streamIndices(GLuint& buffer, const std::vector<uint16_t>& indices)
{
    if (!buffer)
    {
        glGenBuffers(1, &buffer);
    }
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffer);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(indices.size() * sizeof(uint16_t)),
                 indices.data(), GL_STREAM_DRAW);
}

// Where INDICES[FIRST] is for a draw: an offset into the bound buffer, or client memory.
const void* indicesAt(bool buffers, const std::vector<uint16_t>& indices, size_t first)
{
    return buffers ? reinterpret_cast<const void*>(first * sizeof(uint16_t))
                   : static_cast<const void*>(indices.data() + first);
}

// Layers a frame draws its paint in at most. Every layer is two more draws, which cost the
// software renderer more than they save beyond this; fewer hide less (bench_paint_pile: 7, 15,
// 31 and 255 layers took 461, 446, 440 and 438 ms for 12,000 splats heaped in view, and 43, 43,
// 45 and 56 ms for 1,000).
const int MAX_LAYERS = 15;

// How many layers the paint can be drawn in on the target bound (0 or 1: no layering).
int stencilLayers()
{
    GLint bits = 0;
    glGetIntegerv(GL_STENCIL_BITS, &bits);
    // The outlines of the cores would be drawn, not their insides.
    GLint mode[2] = {GL_FILL, GL_FILL};
    glGetIntegerv(GL_POLYGON_MODE, mode);
    if (mode[0] != GL_FILL || mode[1] != GL_FILL)
    {
        return 0;
    }
    return std::min(MAX_LAYERS, (1 << std::clamp(bits, 0, 8)) - 1);
}
} // namespace

void Paint::draw()
{
    if (!gatherVisible())
    {
        return;
    }
    ShaderManager& shaders = ShaderManager::instance();
    const Shader* coreShader = shaders.find("decalcore");
    const int layers = stencilLayers();
    const bool layered = layers >= 2 && visibleDecals.size() >= 2 && coreShader &&
                         coreShader->isLinked();
    const bool buffers = Settings::instance().getBool("vbo");
    glActiveTexture(GL_TEXTURE0);
    if (!buffers)
    {
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0); // indices come from client memory
    }

    if (layered)
    {
        gatherLayers(layers);
        // The cores, oldest layer first: each pixel keeps the newest layer that covers it.
        if (Shader* shader = shaders.use("decalcore"))
        {
            glBindTexture(GL_TEXTURE_2D_ARRAY, pictures);
            applyFilters();
            setPaintUniforms(*shader);
            if (buffers)
            {
                streamIndices(visibleCoreBuffer, visibleCoreIndices);
            }
            GLboolean colourMask[4] = {GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE};
            glGetBooleanv(GL_COLOR_WRITEMASK, colourMask);
            glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
            glEnable(GL_STENCIL_TEST);
            glStencilMask(0xff);
            glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
            for (const Run& run : runs)
            {
                if (run.coreCount)
                {
                    bindBatch(shader->getProgram(), run.batch, buffers);
                    glStencilFunc(GL_ALWAYS, run.layer, 0xff);
                    glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(run.coreCount),
                                   GL_UNSIGNED_SHORT,
                                   indicesAt(buffers, visibleCoreIndices, run.firstCore));
                }
            }
            glColorMask(colourMask[0], colourMask[1], colourMask[2], colourMask[3]);
            glStencilOp(GL_KEEP, GL_KEEP, GL_KEEP);
            disableAttribute(shader->getProgram(), "vertex");
            disableAttribute(shader->getProgram(), "texcoord");
            disableAttribute(shader->getProgram(), "paint");
        }
    }
    else
    {
        gatherBatches();
    }

    Shader* shader = shaders.use("decal");
    if (!shader)
    {
        glDisable(GL_STENCIL_TEST);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
        glBindTexture(GL_TEXTURE_2D_ARRAY, 0);
        return;
    }
    const GLuint program = shader->getProgram();
    glBindTexture(GL_TEXTURE_2D_ARRAY, pictures);
    applyFilters();
    setPaintUniforms(*shader);
    if (layered)
    {
        // Each layer's paint where no newer layer's core lies (the stencil holds the newest
        // layer whose core covers a pixel, 0 where none does).
        if (buffers)
        {
            streamIndices(visibleBuffer, visibleIndices);
        }
        for (const Run& run : runs)
        {
            bindBatch(program, run.batch, buffers);
            glStencilFunc(GL_GEQUAL, run.layer, 0xff);
            glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(run.count), GL_UNSIGNED_SHORT,
                           indicesAt(buffers, visibleIndices, run.first));
        }
        glStencilFunc(GL_ALWAYS, 0, 0xff);
        glDisable(GL_STENCIL_TEST);
    }
    else
    {
        if (buffers && !visibleIndices.empty())
        {
            streamIndices(visibleBuffer, visibleIndices);
        }
        for (size_t b = 0; b < batches.size(); ++b)
        {
            const Visible& v = visible[b];
            if (v.count == 0)
            {
                continue;
            }
            bindBatch(program, b, buffers);
            const PaintBatch& batch = batches[b];
            if (buffers)
            {
                glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, v.all ? batch.indexBuffer : visibleBuffer);
            }
            const void* indices = v.all ? indicesAt(buffers, batch.indices, 0)
                                        : indicesAt(buffers, visibleIndices, v.first);
            glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(v.count), GL_UNSIGNED_SHORT, indices);
        }
    }
    disableAttribute(program, "vertex");
    disableAttribute(program, "texcoord");
    disableAttribute(program, "paint");
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    glBindTexture(GL_TEXTURE_2D_ARRAY, 0);
    shaders.unuse();
}
