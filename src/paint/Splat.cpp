// SPDX-License-Identifier: MIT
#include "paint/Splat.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace
{
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

} // namespace splat
