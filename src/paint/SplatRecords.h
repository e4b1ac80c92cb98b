// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// The splat pictures, "paint01".."paint05": a splat takes one of them at random.
constexpr int PICTURE_COUNT = 5;

// What a paint ball left on the level: where it struck, which way the surface faced, which picture
// its splat took and in what colour, and which charts of the paint map it reaches. Enough to
// stamp it again; nothing of GL.
struct SplatRecord
{
    Vec3 point;
    Vec3 normal; // unit, facing the ball
    Vec4 colour;
    uint32_t firstChart = 0; // into SplatRecords::charts()
    uint16_t chartCount = 0;
    uint8_t picture = 0; // 0..PICTURE_COUNT-1
};

// Every splat on the level, oldest first.
class SplatRecords
{
public:
    const SplatRecord& add(const Vec3& point, const Vec3& normal, const Vec4& colour, int picture,
                           const std::vector<uint32_t>& charts)
    {
        SplatRecord r;
        r.point = point;
        r.normal = normal;
        r.colour = colour;
        r.picture = static_cast<uint8_t>(picture);
        r.firstChart = static_cast<uint32_t>(chartIds.size());
        r.chartCount = static_cast<uint16_t>(charts.size() < 0xffff ? charts.size() : 0xffff);
        chartIds.insert(chartIds.end(), charts.begin(), charts.begin() + r.chartCount);
        records.push_back(r);
        return records.back();
    }

    size_t size() const { return records.size(); }
    bool empty() const { return records.empty(); }
    const SplatRecord& operator[](size_t i) const { return records[i]; }
    const uint32_t* chartsOf(const SplatRecord& r) const { return chartIds.data() + r.firstChart; }
    // What the records take, for the memory accounts.
    size_t bytes() const
    {
        return records.capacity() * sizeof(SplatRecord) + chartIds.capacity() * sizeof(uint32_t);
    }

private:
    std::vector<SplatRecord> records;
    std::vector<uint32_t> chartIds;
};
