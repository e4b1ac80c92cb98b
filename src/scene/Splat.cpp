// SPDX-License-Identifier: MIT
#include "scene/Splat.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace
{
const float DIAGONAL = 0.70710678f;
// The directions of an outline's sides, 45 degrees apart.
const float SIDE_U[splat::Outline::SIDES] = {1, DIAGONAL, 0, -DIAGONAL, -1, -DIAGONAL, 0, DIAGONAL};
const float SIDE_V[splat::Outline::SIDES] = {0, DIAGONAL, 1, DIAGONAL, 0, -DIAGONAL, -1, -DIAGONAL};

Vec3 sub(const Vec3& a, const Vec3& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

// A triangle clipped by six planes has at most nine corners.
constexpr int MAX_CORNERS = 9;

struct Piece
{
    Vec3 corners[MAX_CORNERS + 3];
    int count = 0;
};

// Keeps the part of IN where SIDE * dot(corner - origin, axis) <= LIMIT. Works on the stack: this
// runs for every triangle near every hit.
void clip(const Piece& in, Piece& out, const Vec3& origin, const Vec3& axis, float side,
          float limit)
{
    out.count = 0;
    float d[MAX_CORNERS + 3];
    for (int i = 0; i < in.count; ++i)
    {
        d[i] = limit - side * math::dot(sub(in.corners[i], origin), axis);
    }
    for (int i = 0; i < in.count; ++i)
    {
        const int j = (i + 1) % in.count;
        const Vec3& a = in.corners[i];
        const Vec3& b = in.corners[j];
        if (d[i] >= 0.0f)
        {
            out.corners[out.count++] = a;
        }
        if ((d[i] >= 0.0f) != (d[j] >= 0.0f))
        {
            const float s = d[i] / (d[i] - d[j]);
            out.corners[out.count++] = {a.x + (b.x - a.x) * s, a.y + (b.y - a.y) * s,
                                        a.z + (b.z - a.z) * s};
        }
    }
}
} // namespace

namespace splat
{

SplatFrame frame(const Vec3& point, const Vec3& rawNormal)
{
    SplatFrame f;
    f.point = point;
    const float inverse = 1.0f / math::squareRoot(math::dot(rawNormal, rawNormal));
    const Vec3 n{rawNormal.x * inverse, rawNormal.y * inverse, rawNormal.z * inverse};
    f.normal = n;
    if (n.x == 1.0f || n.x == -1.0f)
    {
        const float c = math::cosine(math::PI / 2.0f);
        const float s = math::sine(math::PI / 2.0f);
        f.tangent = math::normalize({n.x * c - n.y * s, n.x * s + n.y * c, n.z});
    }
    else
    {
        const float angle = 90.0f * math::DEG_TO_RAD;
        const float c = math::cosine(angle);
        const float s = math::sine(angle);
        f.tangent = {n.x, n.y * c - n.z * s, n.z * c + n.y * s};
    }
    f.bitangent = math::normalize(math::cross(n, f.tangent));
    return f;
}

void box(const SplatFrame& f, Vec3& min, Vec3& max)
{
    // The block is where |offset . tangent| <= 1.5, |offset . bitangent| <= 1.5 and
    // |offset . normal| <= 0.5. With a skewed tangent its corners are not point +- tangent...:
    // they lie along the dual axes, which turn those dot products back into distances.
    const Vec3 bn = math::cross(f.bitangent, f.normal);
    const Vec3 nt = math::cross(f.normal, f.tangent);
    const Vec3 tb = math::cross(f.tangent, f.bitangent);
    const float det = math::dot(f.tangent, bn);
    min = {INFINITY, INFINITY, INFINITY};
    max = {-INFINITY, -INFINITY, -INFINITY};
    for (int i = 0; i < 8; ++i)
    {
        const float st = ((i & 1) ? HALF_SIZE : -HALF_SIZE) / det;
        const float sb = ((i & 2) ? HALF_SIZE : -HALF_SIZE) / det;
        const float sn = ((i & 4) ? HALF_DEPTH : -HALF_DEPTH) / det;
        const Vec3 c{f.point.x + st * bn.x + sb * nt.x + sn * tb.x,
                     f.point.y + st * bn.y + sb * nt.y + sn * tb.y,
                     f.point.z + st * bn.z + sb * nt.z + sn * tb.z};
        min = {std::min(min.x, c.x), std::min(min.y, c.y), std::min(min.z, c.z)};
        max = {std::max(max.x, c.x), std::max(max.y, c.y), std::max(max.z, c.z)};
    }
}

bool cutTriangle(const SplatFrame& f, const float* vertices, int triangle,
                 std::list<DecalPolygon>& out)
{
    const float* v = vertices + static_cast<size_t>(triangle) * 12;
    const Vec3 a{v[0], v[1], v[2]}, b{v[4], v[5], v[6]}, c{v[8], v[9], v[10]};
    const Vec3 face = math::cross(sub(b, a), sub(c, a));
    const float area = math::squareRoot(math::dot(face, face));
    if (!(area > 0.0f))
    {
        return false; // degenerate: no facing to speak of
    }
    const Vec3 normal{face.x / area, face.y / area, face.z / area};
    if (!(math::dot(normal, f.normal) > MIN_FACING))
    {
        return false;
    }

    // Most triangles the tree hands over lie wholly beyond one face of the block: drop those
    // before clipping.
    const Vec3* axes[3] = {&f.tangent, &f.bitangent, &f.normal};
    const float limits[3] = {HALF_SIZE, HALF_SIZE, HALF_DEPTH};
    for (int k = 0; k < 3; ++k)
    {
        const float da = math::dot(sub(a, f.point), *axes[k]);
        const float db = math::dot(sub(b, f.point), *axes[k]);
        const float dc = math::dot(sub(c, f.point), *axes[k]);
        if ((da > limits[k] && db > limits[k] && dc > limits[k]) ||
            (da < -limits[k] && db < -limits[k] && dc < -limits[k]))
        {
            return false;
        }
    }

    Piece piece, spare;
    piece.corners[0] = a;
    piece.corners[1] = b;
    piece.corners[2] = c;
    piece.count = 3;
    for (int k = 0; k < 3 && piece.count >= 3; ++k)
    {
        clip(piece, spare, f.point, *axes[k], 1.0f, limits[k]);
        clip(spare, piece, f.point, *axes[k], -1.0f, limits[k]);
    }
    if (piece.count < 3)
    {
        return false;
    }
    const float side = 2.0f * HALF_SIZE;
    DecalPolygon polygon(static_cast<size_t>(piece.count));
    for (int i = 0; i < piece.count; ++i)
    {
        const Vec3& p = piece.corners[i];
        const Vec3 offset = sub(p, f.point);
        DecalVertex& corner = polygon[i];
        corner = {p.x, p.y, p.z, normal.x, normal.y, normal.z, 0.0f, 0.0f};
        // Clipping leaves corners on the edges up to rounding; keep them inside the texture.
        corner.u = std::clamp(math::dot(offset, f.tangent) / side + 0.5f, 0.0f, 1.0f);
        corner.v = std::clamp(math::dot(offset, f.bitangent) / side + 0.5f, 0.0f, 1.0f);
    }
    out.push_back(std::move(polygon));
    return true;
}

void bounds(const std::list<DecalPolygon>& polygons, Vec3& min, Vec3& max)
{
    min = {INFINITY, INFINITY, INFINITY};
    max = {-INFINITY, -INFINITY, -INFINITY};
    for (const DecalPolygon& polygon : polygons)
    {
        for (const DecalVertex& c : polygon)
        {
            min = {std::min(min.x, c.x), std::min(min.y, c.y), std::min(min.z, c.z)};
            max = {std::max(max.x, c.x), std::max(max.y, c.y), std::max(max.z, c.z)};
        }
    }
}

Outline outline(const unsigned char* rgba, int width, int height, float reach)
{
    Outline o;
    for (float& limit : o.limits)
    {
        limit = -INFINITY;
    }
    const float du = 1.0f / width, dv = 1.0f / height;
    bool any = false;
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
        {
            if (rgba[(size_t(y) * width + x) * 4 + 3] == 0)
            {
                continue;
            }
            any = true;
            // The texel widened by REACH, and its repeats beside the picture where they reach
            // into it.
            for (int ry = -1; ry <= 1; ++ry)
            {
                for (int rx = -1; rx <= 1; ++rx)
                {
                    const float u0 = (x + rx * width - reach) * du - 0.5f;
                    const float u1 = (x + rx * width + 1 + reach) * du - 0.5f;
                    const float v0 = (y + ry * height - reach) * dv - 0.5f;
                    const float v1 = (y + ry * height + 1 + reach) * dv - 0.5f;
                    if (u1 < -0.5f || u0 > 0.5f || v1 < -0.5f || v0 > 0.5f)
                    {
                        continue;
                    }
                    for (int k = 0; k < Outline::SIDES; ++k)
                    {
                        const float far = std::max(u0 * SIDE_U[k], u1 * SIDE_U[k]) +
                                          std::max(v0 * SIDE_V[k], v1 * SIDE_V[k]);
                        o.limits[k] = std::max(o.limits[k], far);
                    }
                }
            }
        }
    }
    o.empty = !any;
    return o;
}

Outline core(const unsigned char* rgba, int width, int height, float reach)
{
    Outline o;
    const size_t count = size_t(width) * size_t(height);
    // Texels from which every texel within R either way is opaque (the picture repeats): R is the
    // reach and one more, for how far a point may lie from the texel it is nearest.
    const int r = static_cast<int>(std::ceil(reach)) + 1;
    std::vector<unsigned char> across(count), inside(count);
    size_t opaque = 0;
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
        {
            bool all = true;
            for (int dx = -r; dx <= r && all; ++dx)
            {
                const int sx = ((x + dx) % width + width) % width;
                all = rgba[(size_t(y) * width + sx) * 4 + 3] == 255;
            }
            across[size_t(y) * width + x] = all;
        }
    }
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
        {
            bool all = true;
            for (int dy = -r; dy <= r && all; ++dy)
            {
                const int sy = ((y + dy) % height + height) % height;
                all = across[size_t(sy) * width + x];
            }
            inside[size_t(y) * width + x] = all;
            opaque += all;
        }
    }
    if (opaque == count)
    {
        return o; // opaque all over: the whole picture
    }
    // Grow the octagon from the texel deepest inside (chessboard distance to the nearest texel
    // that is not), one step at a time on each side while every texel it touches stays inside.
    std::vector<int> depth(count);
    auto at = [&](int x, int y) { // beyond the edges counts as outside: the core stays within
        return x < 0 || x >= width || y < 0 || y >= height ? 0 : depth[size_t(y) * width + x];
    };
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
        {
            depth[size_t(y) * width + x] =
                inside[size_t(y) * width + x]
                    ? 1 + std::min({at(x - 1, y), at(x - 1, y - 1), at(x, y - 1), at(x + 1, y - 1)})
                    : 0;
        }
    }
    for (int y = height - 1; y >= 0; --y)
    {
        for (int x = width - 1; x >= 0; --x)
        {
            int& d = depth[size_t(y) * width + x];
            d = std::min(d, 1 + std::min({at(x + 1, y), at(x + 1, y + 1), at(x, y + 1),
                                          at(x - 1, y + 1)}));
        }
    }
    const size_t deepest = static_cast<size_t>(std::max_element(depth.begin(), depth.end()) -
                                               depth.begin());
    if (depth[deepest] == 0)
    {
        o.empty = true;
        return o;
    }
    const float du = 1.0f / width, dv = 1.0f / height;
    const float cu = (float(deepest % width) + 0.5f) * du - 0.5f;
    const float cv = (float(deepest / width) + 0.5f) * dv - 0.5f;
    const float texel = std::max(du, dv);
    for (int k = 0; k < Outline::SIDES; ++k)
    {
        o.limits[k] = cu * SIDE_U[k] + cv * SIDE_V[k];
    }
    // True when every texel whose centre lies within a texel of the octagon is inside.
    auto fits = [&](const float* limits) {
        const float u0 = -limits[4] - texel, u1 = limits[0] + texel;
        const float v0 = -limits[6] - texel, v1 = limits[2] + texel;
        const int x0 = static_cast<int>(std::floor((u0 + 0.5f) * width - 0.5f));
        const int x1 = static_cast<int>(std::ceil((u1 + 0.5f) * width - 0.5f));
        const int y0 = static_cast<int>(std::floor((v0 + 0.5f) * height - 0.5f));
        const int y1 = static_cast<int>(std::ceil((v1 + 0.5f) * height - 0.5f));
        for (int y = y0; y <= y1; ++y)
        {
            for (int x = x0; x <= x1; ++x)
            {
                const float u = (x + 0.5f) * du - 0.5f, v = (y + 0.5f) * dv - 0.5f;
                bool near = true;
                for (int k = 0; k < Outline::SIDES && near; ++k)
                {
                    near = u * SIDE_U[k] + v * SIDE_V[k] <= limits[k] + texel;
                }
                const int sx = (x % width + width) % width, sy = (y % height + height) % height;
                if (near && !inside[size_t(sy) * width + sx])
                {
                    return false;
                }
            }
        }
        return true;
    };
    // No side needs to reach further than the picture's corners.
    const float most = 0.75f;
    for (bool grown = true; grown;)
    {
        grown = false;
        for (int k = 0; k < Outline::SIDES; ++k)
        {
            if (o.limits[k] + texel > most)
            {
                continue;
            }
            o.limits[k] += texel;
            if (fits(o.limits))
            {
                grown = true;
            }
            else
            {
                o.limits[k] -= texel;
            }
        }
    }
    // A point, or a sliver no wider than a texel, covers nothing worth drawing.
    for (int k = 0; k < Outline::SIDES / 2; ++k)
    {
        o.empty = o.empty || o.limits[k] + o.limits[k + 4] < texel;
    }
    return o;
}

void trim(std::list<DecalPolygon>& polygons, const Outline& outline)
{
    if (outline.empty)
    {
        polygons.clear();
        return;
    }
    DecalPolygon spare;
    for (auto polygon = polygons.begin(); polygon != polygons.end();)
    {
        for (int k = 0; k < Outline::SIDES && polygon->size() >= 3; ++k)
        {
            const DecalPolygon& in = *polygon;
            spare.clear();
            for (size_t i = 0; i < in.size(); ++i)
            {
                const DecalVertex& a = in[i];
                const DecalVertex& b = in[(i + 1) % in.size()];
                const float da = outline.limits[k] - ((a.u - 0.5f) * SIDE_U[k] + (a.v - 0.5f) * SIDE_V[k]);
                const float db = outline.limits[k] - ((b.u - 0.5f) * SIDE_U[k] + (b.v - 0.5f) * SIDE_V[k]);
                if (da >= 0.0f)
                {
                    spare.push_back(a);
                }
                if ((da >= 0.0f) != (db >= 0.0f))
                {
                    // Everything a corner carries varies linearly across the piece.
                    const float s = da / (da - db);
                    spare.push_back({a.x + (b.x - a.x) * s, a.y + (b.y - a.y) * s,
                                     a.z + (b.z - a.z) * s, a.nx, a.ny, a.nz,
                                     a.u + (b.u - a.u) * s, a.v + (b.v - a.v) * s});
                }
            }
            polygon->swap(spare);
        }
        if (polygon->size() < 3)
        {
            polygon = polygons.erase(polygon);
        }
        else
        {
            ++polygon;
        }
    }
}

} // namespace splat
