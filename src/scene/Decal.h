// SPDX-License-Identifier: MIT
#pragma once

#include "core/Math.h"
#include "scene/Frustum.h"

#include <cstddef>
#include <cstdint>

// A paint splat stuck onto the level: the pieces of the level's surface cut out around a hit,
// textured with one of five splat pictures in the ball's colour. Positions are in level
// coordinates. The splat's corners live in the level's shared paint batches (see Paint); a decal
// records which picture it took, its colour, the box it is culled by and where its triangles
// lie in the batches.
class Decal
{
public:
    static constexpr int TEXTURE_COUNT = 5;

    Decal(int textureIndex, Vec4 color, const Bounds& bounds, size_t polygons)
        : textureIndex(textureIndex), color(color), bounds(bounds), polygons(polygons)
    {
    }

    int getTextureIndex() const { return textureIndex; } // 0..4: "paint01".."paint05"
    const Vec4& getColor() const { return color; }
    const Bounds& getBounds() const { return bounds; }
    size_t polygonCount() const { return polygons; } // the pieces the splat was cut into
    size_t triangleCount() const { return indexCount / 3; }
    size_t coreTriangleCount() const { return coreIndexCount / 3; }

    // Where the splat's triangles are: indices FIRST_INDEX.. of batch BATCH, which refer to its
    // own vertices FIRST_VERTEX.. of that batch.
    uint32_t batch = 0;
    uint32_t firstVertex = 0;
    uint32_t vertexCount = 0;
    uint32_t firstIndex = 0;
    uint32_t indexCount = 0;
    // Where its paint covers what lies under it (see Paint): triangles FIRST_CORE_INDEX.. of the
    // batch's core indices, over the same vertices. None for a translucent colour.
    uint32_t firstCoreIndex = 0;
    uint32_t coreIndexCount = 0;
    // When every piece lies in one plane (a splat on a flat wall or floor): that plane, facing
    // the way the pieces face (x, y, z the unit normal, w its offset: dot(normal, p) = w on it).
    // Seen from behind it, all of the splat's triangles are back faces.
    bool flat = false;
    Vec4 plane{};

private:
    int textureIndex;
    Vec4 color;
    Bounds bounds;
    size_t polygons;
};
