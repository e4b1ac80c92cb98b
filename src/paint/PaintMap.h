// SPDX-License-Identifier: MIT
#pragma once

#include "paint/Charts.h"
#include "paint/SplatRecords.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class Shader;

// The paint on the level, kept in textures laid over its surface. Paint-map space (see Charts) is
// cut into square pages; a page gets storage the first time paint lands on it, in a pool of
// pages that grows as the painted area does, and a page table says where each page is kept. A
// splat is stamped into the pages it reaches once, blended over what is there, so drawing the
// level reads one paint texel per pixel however much has been thrown. Needs a GL context.
class PaintMap
{
public:
    // A page is PAGE texels square at the finest level: PAYLOAD of paint-map space and, round it,
    // BORDER texels that repeat its neighbours' paint, so filtering never reads another page.
    // Two levels of detail, the second half the first, with a one-texel border.
    static constexpr int PAGE = 256;
    static constexpr int BORDER = 2;
    static constexpr int PAYLOAD = PAGE - 2 * BORDER;
    static constexpr int LEVELS = 2;
    // The pool is an array of square layers of PAGES_ACROSS x PAGES_ACROSS pages.
    static constexpr int PAGES_ACROSS = 4;
    static constexpr int LAYER = PAGE * PAGES_ACROSS;
    static constexpr int PAGES_PER_LAYER = PAGES_ACROSS * PAGES_ACROSS;
    // Bytes of one page with its smaller level.
    static constexpr size_t PAGE_BYTES = size_t(PAGE) * PAGE * 4 + size_t(PAGE / 2) * (PAGE / 2) * 4;
    // The paint-map space a level may lay out: what about 480 MiB of pages hold. A level's
    // charts take the finest density that fits.
    static constexpr double BUDGET_TEXELS =
        480.0 * 1024 * 1024 / double(PAGE_BYTES) * PAYLOAD * PAYLOAD;

    explicit PaintMap(const Charts& charts);
    ~PaintMap();
    PaintMap(const PaintMap&) = delete;
    PaintMap& operator=(const PaintMap&) = delete;

    // Stamps RECORDS[FIRST..END) in that order, each over the charts it reaches: soft-edged and
    // blended, or (CUT) cut where its picture is less than half opaque and opaque elsewhere.
    void stamp(const SplatRecords& records, size_t first, size_t end, bool cut);
    // Brings the smaller level of every page stamped since the last call up to date. Until then
    // a page's paint shows only where the finest level is read.
    void updateSmallerLevels();
    // Clears the paint of every page, keeping their storage.
    void clear();

    // Points SHADER (bound) at the paint map on texture units 1 and 2, with the filters the
    // "texture-mipmap" and "texture-quality" switches ask for. Without a page yet, SHADER is told
    // there is no paint. Leaves unit 0 active.
    void bind(Shader& shader);
    // Tells SHADER (bound) to read no paint, for what it draws next.
    static void unbind(Shader& shader);

    // The share of the level's surface that paint covers at least half, 0..1, as of the last
    // refreshCoverage().
    float revealed() const { return revealedShare; }
    // Reads back the coverage of the pages painted (and brought up to date) since the last call (at most MAX_PAGES of
    // them; the rest wait for the next).
    void refreshCoverage(size_t maxPages = 64);

    size_t pageCount() const { return pagesUsed; }
    size_t pageLimit() const { return maxPages; }
    // GL memory held: the pool, the page table and the splat pictures.
    size_t bytes() const;

private:
    // A patch as far as it lies on one page: a patch across a page's edge is drawn once into each.
    struct Piece
    {
        uint32_t slot;  // the page it is drawn into
        uint32_t index; // its patch
        uint32_t first; // its first stamp vertex
    };
    // Where a splat paints on a chart: a convex polygon in paint-map texels, and where each corner
    // lies on the splat's picture (u, v) and off its hit plane (d). The chart's rectangle cut by
    // the splat's block and by the outline of what its picture paints has at most 4 + 10 corners.
    struct Patch
    {
        static constexpr int MAX_CORNERS = 14;
        int count = 0;
        float x[MAX_CORNERS], y[MAX_CORNERS];
        float u[MAX_CORNERS], v[MAX_CORNERS], d[MAX_CORNERS];
    };

    bool patchOn(const SplatRecord& r, const Chart& c, Patch& out) const;
    // Keeps the part of polygon P where A + AX (x - OX) + AY (y - OY) >= 0. u, v and d, affine
    // over the chart, are carried along the cut edges.
    static void clip(Patch& p, float ox, float oy, float a, float ax, float ay);
    // The page's slot in the pool, allocating one; UINT32_MAX when the pool is full.
    uint32_t pageSlot(int px, int py);
    void grow(int layers);
    void loadPictures();
    void measurePicture(int picture, const uint32_t* rgba, int width, int height);
    void countPage(uint32_t page);

    const Charts& charts;
    int pagesAcross = 0;
    int pagesDown = 0;
    std::vector<uint32_t> table; // per page: its slot + 1, 0 when it has none
    std::vector<uint32_t> pageOfSlot;
    unsigned int pageTable = 0; // the table as an integer texture
    unsigned int pool = 0;
    int poolMag = 0, poolMin = 0; // the pool's filters as last set
    int layers = 0;
    size_t pagesUsed = 0;
    size_t maxPages = 0;
    bool warnedFull = false;
    unsigned int framebuffer = 0;
    unsigned int readFramebuffer = 0;
    unsigned int stampBuffer = 0;
    unsigned int pictures = 0;
    bool picturesLoaded = false;
    // The octagon around what each picture paints, a few texels wider: u0, v0, u1, v1, then the
    // least and most u + v and u - v. Stamps are cut to it, since the rest of the square is clear.
    float pictureOutline[PICTURE_COUNT][8] = {};
    // The pages stamped since their smaller level was last made, each once.
    std::vector<uint8_t> stale; // by slot
    std::vector<uint32_t> staleSlots;

    std::vector<Patch> patches;
    std::vector<Piece> pieces;
    std::vector<float> stampVertices;
    std::vector<uint32_t> patchRecord; // the splat each patch belongs to

    // Coverage, counted on the coarsest level: per page the cells that lie on the level's
    // triangles (made when the page is first read), the painted ones among them, and whether paint
    // landed since.
    std::vector<std::vector<uint8_t>> masks; // by slot
    std::vector<uint32_t> painted;           // by slot
    std::vector<uint8_t> dirty;              // by slot
    std::vector<uint32_t> dirtySlots;
    uint64_t paintedCells = 0;
    float revealedShare = 0.0f;
    std::vector<uint8_t> readback;
    std::vector<uint32_t> nearby;
};
