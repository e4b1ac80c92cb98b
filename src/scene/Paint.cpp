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
    if (visibleBuffer)
    {
        glDeleteBuffers(1, &visibleBuffer);
    }
    for (PaintBatch& batch : batches)
    {
        if (batch.vertexBuffer)
        {
            glDeleteBuffers(1, &batch.vertexBuffer);
            glDeleteBuffers(1, &batch.indexBuffer);
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
    PaintBatch& batch = batchFor(corners, triangles * 3, color);
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
    std::unordered_map<CornerKey, uint16_t, CornerHash> shared;
    shared.reserve(corners);
    std::vector<uint16_t> fan;
    auto polygon = polygons.begin();
    for (size_t p = 0; p < kept; ++p, ++polygon)
    {
        fan.clear();
        for (const DecalVertex& corner : *polygon)
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
            batch.indices.insert(batch.indices.end(), {fan[0], fan[i - 1], fan[i]});
        }
    }
    decal.flat = !polygons.empty() && onePlane(polygons, decal.plane);
    decal.vertexCount = static_cast<uint32_t>(batch.vertices.size()) - decal.firstVertex;
    decal.indexCount = static_cast<uint32_t>(batch.indices.size()) - decal.firstIndex;
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
            outlines[picture] = splat::outline(reinterpret_cast<const unsigned char*>(pixels.data()),
                                               w, h, OUTLINE_REACH);
        }
        glTexSubImage3D(GL_TEXTURE_2D_ARRAY, level, 0, 0, picture, w, h, 1, GL_RGBA,
                        GL_UNSIGNED_BYTE, pixels.data());
    }
    glBindTexture(GL_TEXTURE_2D_ARRAY, 0);
    glBindTexture(GL_TEXTURE_2D, 0);
    glActiveTexture(static_cast<GLenum>(active));
}

PaintBatch& Paint::batchFor(size_t vertexCount, size_t indexCount, const Vec4& color)
{
    if (!batches.empty())
    {
        PaintBatch& last = batches.back();
        const bool colourFits =
            last.palette.size() < PaintBatch::PALETTE_SIZE ||
            std::any_of(last.palette.begin(), last.palette.end(),
                        [&](const Vec4& c) { return !std::memcmp(&c, &color, sizeof(Vec4)); });
        if (last.vertices.size() + vertexCount <= last.vertices.capacity() &&
            last.indices.size() + indexCount <= last.indices.capacity() && colourFits)
        {
            return last;
        }
    }
    const size_t vertexCapacity = BATCH_VERTICES;
    const size_t indexCapacity = std::max(BATCH_INDICES, indexCount);
    PaintBatch& batch = batches.emplace_back();
    batch.vertices.reserve(vertexCapacity);
    batch.indices.reserve(indexCapacity);
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
    visible.assign(batches.size(), Visible{});
    visibleIndices.clear();
    bool any = false;
    for (size_t b = 0; b < batches.size(); ++b)
    {
        const PaintBatch& batch = batches[b];
        Visible& v = visible[b];
        v.first = visibleIndices.size();
        size_t seen = 0;
        for (size_t d = batch.firstDecal; d < batch.endDecal; ++d)
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
            ++seen;
            const uint16_t* from = batch.indices.data() + decal.firstIndex;
            visibleIndices.insert(visibleIndices.end(), from, from + decal.indexCount);
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
        any = any || v.count > 0;
    }
    return any;
}

void Paint::draw()
{
    if (!gatherVisible())
    {
        return;
    }
    ShaderManager& shaders = ShaderManager::instance();
    Shader* shader = shaders.use("decal");
    if (!shader)
    {
        return;
    }
    const GLuint program = shader->getProgram();
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D_ARRAY, pictures);
    applyFilters();
    shader->setInt("tex", 0);
    // 0 lets the splat's soft edge blend when transparency is on; the inversion is intended.
    shader->setInt("trans", Settings::instance().getBool("transparency") ? 0 : 1);
    shader->setMatrix("model", math::identity()); // splats are in level coordinates
    const GLint palette = glGetUniformLocation(program, "palette");

    const bool buffers = Settings::instance().getBool("vbo");
    if (buffers && !visibleIndices.empty())
    {
        if (!visibleBuffer)
        {
            glGenBuffers(1, &visibleBuffer);
        }
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, visibleBuffer);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER,
                     static_cast<GLsizeiptr>(visibleIndices.size() * sizeof(uint16_t)),
                     visibleIndices.data(), GL_STREAM_DRAW);
    }
    for (size_t b = 0; b < batches.size(); ++b)
    {
        const Visible& v = visible[b];
        if (v.count == 0)
        {
            continue;
        }
        const PaintBatch& batch = batches[b];
        const char* base = nullptr; // byte offsets into the bound buffers
        const char* indices = nullptr;
        if (buffers)
        {
            glBindBuffer(GL_ARRAY_BUFFER, batch.vertexBuffer);
            glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, v.all ? batch.indexBuffer : visibleBuffer);
            indices += v.all ? 0 : v.first * sizeof(uint16_t);
        }
        else
        {
            base = reinterpret_cast<const char*>(batch.vertices.data());
            indices = reinterpret_cast<const char*>(v.all ? batch.indices.data()
                                                          : visibleIndices.data() + v.first);
        }
        pointAttribute(program, "vertex", 3, base + offsetof(PaintVertex, x));
        pointAttribute(program, "texcoord", 2, base + offsetof(PaintVertex, u));
        pointAttribute(program, "paint", 1, base + offsetof(PaintVertex, paint));
        if (palette >= 0)
        {
            glUniform4fv(palette, static_cast<GLsizei>(batch.palette.size()), &batch.palette[0].x);
        }
        glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(v.count), GL_UNSIGNED_SHORT, indices);
    }
    disableAttribute(program, "vertex");
    disableAttribute(program, "texcoord");
    disableAttribute(program, "paint");
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    glBindTexture(GL_TEXTURE_2D_ARRAY, 0);
    shaders.unuse();
}
