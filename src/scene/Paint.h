// SPDX-License-Identifier: MIT
#pragma once

#include "scene/Decal.h"
#include "scene/Splat.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

// One corner of the paint as it is drawn: its place in the level, where it lies on its splat's
// picture, and which picture and colour the splat has.
struct PaintVertex
{
    float x, y, z;
    float u, v;
    float paint; // the picture (0..4) + 8 x the colour's place in the batch's palette
};

// A run of decals whose corners and triangles share one vertex and one index buffer. Appending
// never moves what is there: the arrays are reserved to their capacity up front and only the
// pages that are filled cost memory.
struct PaintBatch
{
    static constexpr size_t PALETTE_SIZE = 64; // colours a batch can hold

    std::vector<PaintVertex> vertices;
    std::vector<uint16_t> indices; // triangles, into vertices
    std::vector<uint16_t> coreIndices; // the triangles of the decals' opaque cores, into vertices
    std::vector<Vec4> palette;     // the colours of its decals
    size_t firstDecal = 0;         // the decals in this batch: firstDecal..endDecal-1
    size_t endDecal = 0;
    unsigned int vertexBuffer = 0;
    unsigned int indexBuffer = 0;
    unsigned int coreIndexBuffer = 0;
};

// All the paint on the level. Each splat's corners are kept once on the CPU (which the
// client-array path draws from) and once in GL buffers, in batches of many splats, so a frame
// draws the visible splats with one call per batch instead of one per polygon. Splats are drawn
// in the order they were made, so where two overlap the newer one lies on top. Needs a GL
// context from the first add() on.
//
// Paint piles up where a player throws again and again, and every splat under the pile would
// still be shaded. So each splat also keeps its core, the part of its picture that is fully
// opaque, and with a stencil buffer the visible splats are drawn in a few layers, oldest
// first: the cores of each layer first write the layer's number into the stencil, then a
// layer's paint is drawn only where no newer layer's core lies. What a core covers would be
// painted over completely anyway, so the picture is the same; the hidden paint is never shaded.
class Paint
{
public:
    Paint() = default;
    ~Paint();
    Paint(const Paint&) = delete;
    Paint& operator=(const Paint&) = delete;

    // Sticks on a splat cut into POLYGONS (convex, in fan order) that fits in BOUNDS, in COLOR:
    // picks its picture at random, plays the splash and uploads its corners where the picture is
    // not clear. POLYGONS must not be empty.
    const Decal& add(const std::list<DecalPolygon>& polygons, const Bounds& bounds, Vec4 color);

    // Draws every splat the view frustum may see (all of them with "frustum" off) with the
    // "decal" program (and "decalcore" for the cores), whatever program is bound, and leaves no
    // program bound. The caller sets the depth and polygon-offset state and clears the stencil,
    // which is left as the cores wrote it. When nothing is in view no GL state is touched.
    void draw();

    size_t size() const { return decals.size(); }
    bool empty() const { return decals.empty(); }
    const Decal& operator[](size_t i) const { return decals[i]; }
    size_t batchCount() const { return batches.size(); }
    const PaintVertex* vertices(const Decal& decal) const;
    const uint16_t* indices(const Decal& decal) const; // into vertices(decal)'s batch, 3 a triangle

    // Corners a splat may have: a batch's indices are 16 bits.
    static constexpr size_t MAX_CORNERS = 65536;

private:
    // The batch the next splat goes into, with room for its corners, triangles, core triangles
    // and colour.
    PaintBatch& batchFor(size_t vertexCount, size_t indexCount, size_t coreIndexCount,
                         const Vec4& color);
    void upload(PaintBatch& batch, const Decal& decal);
    // Finds this frame's visible splats; false when there are none.
    bool gatherVisible();
    // Loads splat picture PICTURE through the texture manager the first time a splat takes it
    // and copies it, with its mipmaps, into its layer of the picture array.
    void usePicture(int picture);

    std::vector<Decal> decals;
    std::vector<PaintBatch> batches;
    // The five splat pictures as the layers of one array texture, so one draw can use them all.
    unsigned int pictures = 0;
    int pictureWidth = 0; // pixels, of every layer
    int pictureHeight = 0;
    bool pictureLoaded[Decal::TEXTURE_COUNT] = {};
    // Where each picture can colour anything (the whole square until it is loaded), and where
    // it covers everything (nothing until it is loaded).
    splat::Outline outlines[Decal::TEXTURE_COUNT];
    splat::Outline cores[Decal::TEXTURE_COUNT];

    // What this frame draws of each batch: the whole batch from its own index buffer, nothing,
    // or the visible splats' triangles gathered into one stream. Drawing every visible range on
    // its own costs the software renderer as much as the triangles themselves.
    struct Visible
    {
        bool all = false;
        size_t first = 0; // into visibleIndices
        size_t count = 0;
    };
    std::vector<Visible> visible;
    std::vector<uint16_t> visibleIndices;
    unsigned int visibleBuffer = 0; // visibleIndices for the buffer path, refilled each frame

    // The layered drawing: the visible decals in the order they were made, and the runs they are
    // drawn in, each one layer's decals within one batch, its triangles and its cores' triangles
    // gathered into the streams below.
    struct Run
    {
        size_t batch = 0;
        int layer = 0; // 1 for the oldest
        size_t first = 0, count = 0;         // into visibleIndices
        size_t firstCore = 0, coreCount = 0; // into visibleCoreIndices
    };
    std::vector<uint32_t> visibleDecals;
    std::vector<Run> runs;
    std::vector<uint16_t> visibleCoreIndices;
    unsigned int visibleCoreBuffer = 0;
    // The per-batch draw of the visible decals, and the layered one (RUNS for LAYERS layers).
    void gatherBatches();
    void gatherLayers(int layers);
    // Points the attributes of PROGRAM at BATCH's corners (from its buffer with BUFFERS) and
    // loads its palette.
    void bindBatch(unsigned int program, size_t batch, bool buffers);
};
