#include "scene/Splat.h"

#include <algorithm>
#include <cmath>

namespace
{
Vec3 sub(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

// Keeps the part of POLYGON where SIDE * dot(corner - origin, axis) <= LIMIT.
void clip(DecalPolygon& polygon, const Vec3& origin, const Vec3& axis, float side, float limit)
{
    if (polygon.empty())
    {
        return;
    }
    auto distance = [&](const DecalVertex& v) {
        return limit - side * math::dot(sub({v.x, v.y, v.z}, origin), axis);
    };
    DecalPolygon kept;
    kept.reserve(polygon.size() + 2);
    for (size_t i = 0; i < polygon.size(); ++i)
    {
        const DecalVertex& a = polygon[i];
        const DecalVertex& b = polygon[(i + 1) % polygon.size()];
        const float da = distance(a);
        const float db = distance(b);
        if (da >= 0.0f)
        {
            kept.push_back(a);
        }
        if ((da >= 0.0f) != (db >= 0.0f))
        {
            const float s = da / (da - db);
            DecalVertex cut = a;
            cut.x = a.x + (b.x - a.x) * s;
            cut.y = a.y + (b.y - a.y) * s;
            cut.z = a.z + (b.z - a.z) * s;
            kept.push_back(cut);
        }
    }
    polygon.swap(kept);
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

bool cutTriangle(const SplatFrame& f, const float* vertices, int triangle, std::list<DecalPolygon>& out)
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

    DecalPolygon polygon;
    for (const Vec3& p : {a, b, c})
    {
        polygon.push_back({p.x, p.y, p.z, normal.x, normal.y, normal.z, 0.0f, 0.0f});
    }
    clip(polygon, f.point, f.tangent, 1.0f, HALF_SIZE);
    clip(polygon, f.point, f.tangent, -1.0f, HALF_SIZE);
    clip(polygon, f.point, f.bitangent, 1.0f, HALF_SIZE);
    clip(polygon, f.point, f.bitangent, -1.0f, HALF_SIZE);
    clip(polygon, f.point, f.normal, 1.0f, HALF_DEPTH);
    clip(polygon, f.point, f.normal, -1.0f, HALF_DEPTH);
    if (polygon.size() < 3)
    {
        return false;
    }
    const float side = 2.0f * HALF_SIZE;
    for (DecalVertex& corner : polygon)
    {
        const Vec3 offset = sub({corner.x, corner.y, corner.z}, f.point);
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

} // namespace splat
