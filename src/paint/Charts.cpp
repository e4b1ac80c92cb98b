// SPDX-License-Identifier: MIT
#include "paint/Charts.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace
{
// Planes closer than this in normal (about a twentieth of a degree) and offset (4 mm) are one.
const float NORMAL_STEPS = 1024.0f;
const float OFFSET_STEPS = 256.0f;
// Rows of shelves leave a little room unused; the density is chosen with this much to spare.
const double PACKING_SLACK = 1.08;

Vec3 corner(const float* vertices, uint32_t triangle, int k)
{
    const float* v = vertices + (size_t(triangle) * 3 + size_t(k)) * 4;
    return {v[0], v[1], v[2]};
}

Vec3 sub(const Vec3& a, const Vec3& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

int alignUp(int value, int step)
{
    return (value + step - 1) / step * step;
}

int64_t quantise(float value, float steps)
{
    return static_cast<int64_t>(std::llround(static_cast<double>(value) * steps));
}

// An edge by the exact bits of its two ends, the lower end first, so that the two triangles on
// either side of it give the same key.
struct Edge
{
    uint32_t bits[6];
    uint32_t triangle;
    bool operator<(const Edge& other) const
    {
        return std::memcmp(bits, other.bits, sizeof bits) < 0;
    }
    bool sameAs(const Edge& other) const { return std::memcmp(bits, other.bits, sizeof bits) == 0; }
};

Edge edgeOf(const Vec3& a, const Vec3& b, uint32_t triangle)
{
    Edge e;
    uint32_t pa[3], pb[3];
    std::memcpy(pa, &a.x, 4);
    std::memcpy(pa + 1, &a.y, 4);
    std::memcpy(pa + 2, &a.z, 4);
    std::memcpy(pb, &b.x, 4);
    std::memcpy(pb + 1, &b.y, 4);
    std::memcpy(pb + 2, &b.z, 4);
    const bool aFirst = std::memcmp(pa, pb, sizeof pa) <= 0;
    std::memcpy(e.bits, aFirst ? pa : pb, sizeof pa);
    std::memcpy(e.bits + 3, aFirst ? pb : pa, sizeof pa);
    e.triangle = triangle;
    return e;
}

// Sorts (key, triangle) pairs by key, then triangle: eight passes of a byte each over the key, the
// triangles in order to begin with. A level of a million triangles sorts in a fraction of the
// time a comparison sort takes.
void sortByKey(std::vector<std::pair<uint64_t, uint32_t>>& items)
{
    std::vector<std::pair<uint64_t, uint32_t>> spare(items.size());
    for (int shift = 0; shift < 64; shift += 8)
    {
        size_t counts[257] = {};
        for (const auto& item : items)
        {
            ++counts[((item.first >> shift) & 0xff) + 1];
        }
        if (counts[1] == items.size() || items.empty())
        {
            continue; // every key has this byte 0: nothing moves
        }
        for (int i = 1; i < 257; ++i)
        {
            counts[i] += counts[i - 1];
        }
        for (const auto& item : items)
        {
            spare[counts[(item.first >> shift) & 0xff]++] = item;
        }
        items.swap(spare);
    }
}

uint32_t findRoot(std::vector<uint32_t>& parent, uint32_t i)
{
    while (parent[i] != i)
    {
        parent[i] = parent[parent[i]];
        i = parent[i];
    }
    return i;
}

// Two unit axes in the plane facing NORMAL; the first is level where the plane is not.
void planeAxes(const Vec3& normal, Vec3& u, Vec3& v)
{
    const Vec3 up = std::fabs(normal.y) < 0.99f ? Vec3{0.0f, 1.0f, 0.0f} : Vec3{1.0f, 0.0f, 0.0f};
    u = math::normalize(math::cross(up, normal));
    v = math::cross(normal, u);
}
} // namespace

Charts::Charts(const float* vertices, int32_t count, double budget, int widthMultiple)
{
    if (!vertices || count < 3)
    {
        return;
    }
    group(vertices, count - count % 3);
    chooseDensity(budget);
    pack(std::max(widthMultiple, ALIGN));

    coords.resize(size_t(count) * 2, 0.0f);
    for (size_t t = 0; t < triangleChart.size(); ++t)
    {
        const Chart& c = charts[triangleChart[t]];
        for (int k = 0; k < 3; ++k)
        {
            toMap(c, corner(vertices, uint32_t(t), k), coords[(t * 3 + size_t(k)) * 2],
                  coords[(t * 3 + size_t(k)) * 2 + 1]);
        }
    }
}

void Charts::group(const float* vertices, int32_t count)
{
    const uint32_t triangles = uint32_t(count / 3);
    std::vector<Vec3> normals(triangles);
    std::vector<float> offsets(triangles);
    std::vector<std::pair<uint64_t, uint32_t>> keys(triangles);
    for (uint32_t t = 0; t < triangles; ++t)
    {
        const Vec3 a = corner(vertices, t, 0), b = corner(vertices, t, 1), c = corner(vertices, t, 2);
        const Vec3 face = math::cross(sub(b, a), sub(c, a));
        const float length = std::sqrt(math::dot(face, face));
        if (std::isfinite(length))
        {
            area += 0.5 * double(length);
        }
        // A degenerate triangle has no plane of its own: any will do, it covers nothing.
        normals[t] = length > 0.0f && std::isfinite(length)
                         ? Vec3{face.x / length, face.y / length, face.z / length}
                         : Vec3{0.0f, 1.0f, 0.0f};
        offsets[t] = math::dot(normals[t], a);
        if (!std::isfinite(offsets[t]))
        {
            offsets[t] = 0.0f;
        }
        // Mixed into one number: equal planes give equal keys, and the rare unequal planes that
        // meet in a key are told apart below by their edges, which they do not share.
        uint64_t key = uint64_t(quantise(normals[t].x, NORMAL_STEPS)) * 0x9E3779B97F4A7C15ull;
        key ^= uint64_t(quantise(normals[t].y, NORMAL_STEPS)) * 0xC2B2AE3D27D4EB4Full;
        key ^= uint64_t(quantise(normals[t].z, NORMAL_STEPS)) * 0x165667B19E3779F9ull;
        key ^= uint64_t(quantise(offsets[t], OFFSET_STEPS)) * 0x27D4EB2F165667C5ull;
        keys[t] = {key, t};
    }
    sortByKey(keys);

    // Within a plane, triangles that share an edge share a chart.
    std::vector<uint32_t> parent(triangles);
    std::iota(parent.begin(), parent.end(), 0u);
    std::vector<Edge> edges;
    for (size_t first = 0; first < keys.size();)
    {
        size_t end = first + 1;
        while (end < keys.size() && keys[end].first == keys[first].first)
        {
            ++end;
        }
        if (end - first > 1)
        {
            edges.clear();
            for (size_t i = first; i < end; ++i)
            {
                const uint32_t t = keys[i].second;
                const Vec3 a = corner(vertices, t, 0), b = corner(vertices, t, 1),
                           c = corner(vertices, t, 2);
                edges.push_back(edgeOf(a, b, t));
                edges.push_back(edgeOf(b, c, t));
                edges.push_back(edgeOf(c, a, t));
            }
            std::sort(edges.begin(), edges.end());
            for (size_t i = 1; i < edges.size(); ++i)
            {
                if (edges[i].sameAs(edges[i - 1]))
                {
                    const uint32_t ra = findRoot(parent, edges[i].triangle);
                    const uint32_t rb = findRoot(parent, edges[i - 1].triangle);
                    if (ra != rb)
                    {
                        parent[std::max(ra, rb)] = std::min(ra, rb);
                    }
                }
            }
        }
        first = end;
    }

    // One chart per group, numbered in the order of their first triangles.
    triangleChart.assign(triangles, 0);
    std::vector<uint32_t> chartOfRoot(triangles, UINT32_MAX);
    for (uint32_t t = 0; t < triangles; ++t)
    {
        const uint32_t root = findRoot(parent, t);
        if (chartOfRoot[root] == UINT32_MAX)
        {
            chartOfRoot[root] = uint32_t(charts.size());
            Chart chart;
            chart.normal = normals[root];
            chart.offset = offsets[root];
            chart.minU = chart.minV = INFINITY;
            charts.push_back(chart);
        }
        triangleChart[t] = chartOfRoot[root];
    }
    chartFirst.assign(charts.size() + 1, 0);
    for (uint32_t t = 0; t < triangles; ++t)
    {
        ++chartFirst[triangleChart[t] + 1];
    }
    for (size_t c = 0; c < charts.size(); ++c)
    {
        chartFirst[c + 1] += chartFirst[c];
    }
    chartTriangles.resize(triangles);
    std::vector<uint32_t> fill(chartFirst.begin(), chartFirst.end() - 1);
    for (uint32_t t = 0; t < triangles; ++t)
    {
        chartTriangles[fill[triangleChart[t]]++] = t;
    }

    std::vector<float> flat;
    spanU.assign(charts.size(), 0.0f);
    spanV.assign(charts.size(), 0.0f);
    for (size_t c = 0; c < charts.size(); ++c)
    {
        Chart& chart = charts[c];
        const uint32_t* list = chartTriangles.data() + chartFirst[c];
        const size_t count = chartFirst[c + 1] - chartFirst[c];
        // The chart's finite corners on the plane's own axes, once.
        Vec3 baseU, baseV;
        planeAxes(chart.normal, baseU, baseV);
        flat.clear();
        for (size_t i = 0; i < count; ++i)
        {
            for (int k = 0; k < 3; ++k)
            {
                const Vec3 p = corner(vertices, list[i], k);
                const float a = math::dot(baseU, p), b = math::dot(baseV, p);
                if (std::isfinite(a) && std::isfinite(b))
                {
                    flat.push_back(a);
                    flat.push_back(b);
                }
            }
        }
        if (flat.empty())
        {
            chart.axisU = baseU;
            chart.axisV = baseV;
            chart.minU = chart.minV = 0.0f;
            continue;
        }
        // The extent along the plane's axes turned by the angle of cosine C and sine S.
        auto extent = [&](float c, float s, float* out)
        {
            out[0] = out[1] = INFINITY;
            out[2] = out[3] = -INFINITY;
            for (size_t i = 0; i < flat.size(); i += 2)
            {
                const float a = c * flat[i] + s * flat[i + 1], b = c * flat[i + 1] - s * flat[i];
                out[0] = std::min(out[0], a);
                out[1] = std::min(out[1], b);
                out[2] = std::max(out[2], a);
                out[3] = std::max(out[3], b);
            }
        };
        // The axes that give the smallest rectangle: the plane's own, or along one of the edges
        // of the chart's first few triangles (a rectangle built along other lines than those has
        // its sides among them). An edge turned by a right angle gives the same rectangle, and
        // level geometry repeats a few directions: each angle is tried once.
        float best[4], box[4];
        extent(1.0f, 0.0f, best);
        float bestArea = (best[2] - best[0]) * (best[3] - best[1]);
        float bestC = 1.0f, bestS = 0.0f;
        const float QUARTER = 0.5f * float(M_PI);
        float tried[25] = {0.0f};
        int triedCount = 1;
        const size_t first = std::min<size_t>(count, 8);
        for (size_t i = 0; i < first && count > 1; ++i)
        {
            for (int k = 0; k < 3; ++k)
            {
                const Vec3 e = sub(corner(vertices, list[i], (k + 1) % 3), corner(vertices, list[i], k));
                const float ex = math::dot(e, baseU), ey = math::dot(e, baseV);
                const float length = std::sqrt(ex * ex + ey * ey);
                if (!(length > 0.0f) || !std::isfinite(length))
                {
                    continue;
                }
                float angle = std::fmod(std::atan2(ey, ex) + 2.0f * float(M_PI), QUARTER);
                bool seen = false;
                for (int j = 0; j < triedCount && !seen; ++j)
                {
                    const float apart = std::fabs(angle - tried[j]);
                    seen = apart < 1e-5f || QUARTER - apart < 1e-5f;
                }
                if (seen)
                {
                    continue;
                }
                tried[triedCount++] = angle;
                const float c = ex / length, s = ey / length;
                extent(c, s, box);
                // A little better than the plane's own axes, so that those win a tie.
                if ((box[2] - box[0]) * (box[3] - box[1]) < 0.99f * bestArea)
                {
                    bestArea = (box[2] - box[0]) * (box[3] - box[1]);
                    bestC = c;
                    bestS = s;
                    std::copy(box, box + 4, best);
                }
            }
        }
        chart.axisU = {bestC * baseU.x + bestS * baseV.x, bestC * baseU.y + bestS * baseV.y,
                       bestC * baseU.z + bestS * baseV.z};
        chart.axisV = math::cross(chart.normal, chart.axisU);
        chart.minU = best[0];
        chart.minV = best[1];
        spanU[c] = best[2] - best[0];
        spanV[c] = best[3] - best[1];
    }
}

void Charts::chooseDensity(double budget)
{
    // The texels the rectangles take at density D, with what shelves leave unused.
    auto texels = [this](double d)
    {
        double total = 0.0;
        for (size_t c = 0; c < charts.size(); ++c)
        {
            const double w = alignUp(int(std::ceil(spanU[c] * d)) + 2 * GUTTER, ALIGN);
            const double h = alignUp(int(std::ceil(spanV[c] * d)) + 2 * GUTTER, ALIGN);
            total += w * h;
        }
        return total * PACKING_SLACK;
    };
    double low = MIN_DENSITY, high = MAX_DENSITY;
    if (texels(high) <= budget)
    {
        density = MAX_DENSITY;
        return;
    }
    // A rectangle takes at least span U d x span V d texels and at most one EXTRA more on each
    // side (gutters, rounding up, the grid): the densities where the sum of those meets the
    // budget bound the answer, which saves most of the halvings on a big level.
    const double EXTRA = 2 * GUTTER + ALIGN;
    double spanArea = 0.0, spanSum = 0.0;
    for (size_t c = 0; c < charts.size(); ++c)
    {
        spanArea += double(spanU[c]) * spanV[c];
        spanSum += double(spanU[c]) + spanV[c];
    }
    const double fit = budget / PACKING_SLACK;
    if (spanArea > 0.0)
    {
        high = std::clamp(std::sqrt(fit / spanArea), low, high);
        // spanArea d^2 + EXTRA spanSum d + EXTRA^2 count = fit
        const double b = EXTRA * spanSum, c = EXTRA * EXTRA * double(charts.size()) - fit;
        const double root = (-b + std::sqrt(b * b - 4.0 * spanArea * c)) / (2.0 * spanArea);
        if (std::isfinite(root))
        {
            low = std::clamp(root, low, high);
        }
    }
    for (int i = 0; i < 16 && high - low > 0.02; ++i) // to a fiftieth of a texel a metre
    {
        const double mid = 0.5 * (low + high);
        (texels(mid) <= budget ? low : high) = mid;
    }
    density = float(low);
}

void Charts::pack(int widthMultiple)
{
    std::vector<uint32_t> order(charts.size());
    std::iota(order.begin(), order.end(), 0u);
    double total = 0.0;
    int widest = 0;
    for (size_t c = 0; c < charts.size(); ++c)
    {
        Chart& chart = charts[c];
        chart.width = alignUp(int(std::ceil(spanU[c] * density)) + 2 * GUTTER, ALIGN);
        chart.height = alignUp(int(std::ceil(spanV[c] * density)) + 2 * GUTTER, ALIGN);
        total += double(chart.width) * chart.height;
        widest = std::max(widest, chart.width);
    }
    // Tallest first, in chart order among equals: counted out by height.
    int tallest = 0;
    for (const Chart& chart : charts)
    {
        tallest = std::max(tallest, chart.height);
    }
    std::vector<uint32_t> byHeight(size_t(tallest) + 2, 0);
    for (const Chart& chart : charts)
    {
        ++byHeight[size_t(tallest - chart.height) + 1];
    }
    for (size_t i = 1; i < byHeight.size(); ++i)
    {
        byHeight[i] += byHeight[i - 1];
    }
    for (uint32_t c = 0; c < charts.size(); ++c)
    {
        order[byHeight[size_t(tallest - charts[c].height)]++] = c;
    }
    // About square, whole pages wide, and never narrower than the widest chart.
    width = alignUp(std::max(widest, int(std::sqrt(total))), widthMultiple);
    int x = 0, y = 0, row = 0;
    for (uint32_t c : order)
    {
        Chart& chart = charts[c];
        if (x + chart.width > width)
        {
            x = 0;
            y += row;
            row = 0;
        }
        chart.x = x;
        chart.y = y;
        x += chart.width;
        row = std::max(row, chart.height);
    }
    height = alignUp(std::max(y + row, 1), widthMultiple);

    // The grid of charts by page, for finding what a page holds.
    cellSize = widthMultiple;
    cellsAcross = width / cellSize;
    const int cellsDown = height / cellSize;
    cellFirst.assign(size_t(cellsAcross) * size_t(cellsDown) + 1, 0);
    auto forCells = [this](const Chart& c, auto&& visit)
    {
        for (int cy = c.y / cellSize; cy <= (c.y + c.height - 1) / cellSize; ++cy)
        {
            for (int cx = c.x / cellSize; cx <= (c.x + c.width - 1) / cellSize; ++cx)
            {
                visit(size_t(cy) * size_t(cellsAcross) + size_t(cx));
            }
        }
    };
    for (const Chart& c : charts)
    {
        forCells(c, [this](size_t cell) { ++cellFirst[cell + 1]; });
    }
    for (size_t i = 1; i < cellFirst.size(); ++i)
    {
        cellFirst[i] += cellFirst[i - 1];
    }
    cellCharts.resize(cellFirst.back());
    std::vector<uint32_t> fill(cellFirst.begin(), cellFirst.end() - 1);
    for (uint32_t c = 0; c < charts.size(); ++c)
    {
        forCells(charts[c], [&](size_t cell) { cellCharts[fill[cell]++] = c; });
    }
}

const uint32_t* Charts::trianglesOf(size_t c, size_t& count) const
{
    count = chartFirst[c + 1] - chartFirst[c];
    return chartTriangles.data() + chartFirst[c];
}

void Charts::toMap(const Chart& c, const Vec3& p, float& u, float& v) const
{
    u = float(c.x + GUTTER) + (math::dot(c.axisU, p) - c.minU) * density;
    v = float(c.y + GUTTER) + (math::dot(c.axisV, p) - c.minV) * density;
}

Vec3 Charts::toWorld(const Chart& c, float u, float v) const
{
    const float a = (u - float(c.x + GUTTER)) / density + c.minU;
    const float b = (v - float(c.y + GUTTER)) / density + c.minV;
    return {c.normal.x * c.offset + c.axisU.x * a + c.axisV.x * b,
            c.normal.y * c.offset + c.axisU.y * a + c.axisV.y * b,
            c.normal.z * c.offset + c.axisU.z * a + c.axisV.z * b};
}

void Charts::chartsIn(int x0, int y0, int x1, int y1, std::vector<uint32_t>& out) const
{
    out.clear();
    if (cellsAcross == 0)
    {
        return;
    }
    const int cellsDown = height / cellSize;
    const int cx0 = std::max(0, x0 / cellSize), cy0 = std::max(0, y0 / cellSize);
    const int cx1 = std::min(cellsAcross - 1, (x1 - 1) / cellSize);
    const int cy1 = std::min(cellsDown - 1, (y1 - 1) / cellSize);
    for (int cy = cy0; cy <= cy1; ++cy)
    {
        for (int cx = cx0; cx <= cx1; ++cx)
        {
            const size_t cell = size_t(cy) * size_t(cellsAcross) + size_t(cx);
            for (uint32_t i = cellFirst[cell]; i < cellFirst[cell + 1]; ++i)
            {
                const Chart& c = charts[cellCharts[i]];
                if (c.x < x1 && c.x + c.width > x0 && c.y < y1 && c.y + c.height > y0)
                {
                    out.push_back(cellCharts[i]);
                }
            }
        }
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
}
