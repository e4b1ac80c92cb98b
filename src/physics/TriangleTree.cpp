// SPDX-License-Identifier: MIT
#include "physics/TriangleTree.h"

#include <btBulletCollisionCommon.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numeric>
#include <system_error>
#include <thread>
#include <vector>

namespace
{
const int VERTEX_STRIDE = 4 * sizeof(float); // x, y, z, 1 per vertex
// Bullet gives a flat triangle's box this much thickness (metres), so a floor's box is not empty.
const float MIN_LEAF_EXTENT = 0.002f;
// Bullet's cache-friendly walk visits subtrees of at most this many bytes; its build lists them.
const int SUBTREE_BYTES = MAX_SUBTREE_SIZE_IN_BYTES;
const float QUANTIZED_TOP = 65534.0f; // leaves room to round a high corner up to odd
// Bullet's tree keeps 21 bits for a triangle's index within its part, so a bigger level is cut in
// parts of this many triangles.
static_assert(TriangleTree::PART_TRIANGLES == 1 << (31 - MAX_NUM_PARTS_IN_BITS));
// A smaller tree builds in a fraction of a millisecond, not worth starting a thread for.
const int PARALLEL_LEAVES = 4096;

// Where the leaves' box centres lie along each axis, in quantized units doubled (min + max), summed
// exactly in integers, so which side of a split a leaf falls on never depends on rounding.
struct Spread
{
    uint64_t sum[3] = {0, 0, 0};
    uint64_t squares[3] = {0, 0, 0};

    void add(const btQuantizedBvhNode& leaf)
    {
        for (int a = 0; a < 3; ++a)
        {
            const uint64_t centre =
                uint64_t(leaf.m_quantizedAabbMin[a]) + leaf.m_quantizedAabbMax[a];
            sum[a] += centre;
            squares[a] += centre * centre;
        }
    }
};

// Bullet's quantized tree, built as Bullet builds it -- each node splits its leaves at their mean
// centre along the axis where the centres spread most, falling back to the middle when one side
// would get less than a third -- but without Bullet's costs: it converts every box back to floats
// and again to integers several times per level (most of a second for a million triangles), where
// this build stays in integers, gathers the spread of both halves while it partitions, and merges
// a node's box from its two children. The node layout, the escape indices and the subtree headers
// are Bullet's, so Bullet walks this tree as its own.
class QuickBvh : public btOptimizedBvh
{
    using Headers = std::vector<btBvhSubtreeInfo>;

public:
    QuickBvh(const float* vertices, int32_t triangles, const btVector3& min, const btVector3& max)
        : leaves(new btQuantizedBvhNode[static_cast<size_t>(triangles)]) // each one written below
    {
        setQuantizationValues(min, max);
        Spread all;
        for (int32_t t = 0; t < triangles; ++t)
        {
            leaves[t] = leaf(vertices + static_cast<size_t>(t) * 12, t);
            all.add(leaves[t]);
        }
        m_quantizedContiguousNodes.resize(2 * triangles);
        m_curNodeIndex = 2 * triangles - 1;
        Headers headers;
        build(0, triangles, 0, all, headers, true);
        if (headers.empty())
        {
            addHeader(0, headers); // a tree smaller than one subtree is listed whole
        }
        m_SubtreeHeaders.clear();
        m_SubtreeHeaders.reserve(static_cast<int>(headers.size()));
        for (const btBvhSubtreeInfo& header : headers)
        {
            m_SubtreeHeaders.push_back(header);
        }
        m_subtreeHeaderCount = m_SubtreeHeaders.size();
        leaves.reset();
    }

private:
    btQuantizedBvhNode leaf(const float* corners, int32_t triangle) const
    {
        btVector3 min(corners[0], corners[1], corners[2]);
        btVector3 max = min;
        for (int c = 1; c < 3; ++c)
        {
            const btVector3 corner(corners[c * 4], corners[c * 4 + 1], corners[c * 4 + 2]);
            min.setMin(corner);
            max.setMax(corner);
        }
        for (int a = 0; a < 3; ++a)
        {
            if (max[a] - min[a] < MIN_LEAF_EXTENT)
            {
                max[a] += MIN_LEAF_EXTENT / 2;
                min[a] -= MIN_LEAF_EXTENT / 2;
            }
        }
        btQuantizedBvhNode node;
        quantizeClamped(node.m_quantizedAabbMin, min, false);
        quantizeClamped(node.m_quantizedAabbMax, max, true);
        // Part triangle / PART_TRIANGLES, index triangle % PART_TRIANGLES, in Bullet's bits.
        node.m_escapeIndexOrTriangleIndex = triangle;
        return node;
    }

    // Bullet's quantize() (a box's low corner rounds down to even, its high corner up to odd), but
    // safe for any coordinate: a level file may hold values too large for a float, or not a number,
    // and those must still give a box inside the tree's range.
    void quantizeClamped(unsigned short* out, const btVector3& point, bool high) const
    {
        for (int a = 0; a < 3; ++a)
        {
            float v = (point[a] - m_bvhAabbMin[a]) * m_bvhQuantization[a];
            v = v > 0.0f ? std::min(v, QUANTIZED_TOP) : 0.0f; // not a number: 0
            out[a] = high ? static_cast<unsigned short>(static_cast<unsigned short>(v + 1.0f) | 1)
                          : static_cast<unsigned short>(static_cast<unsigned short>(v) & 0xfffe);
        }
    }

    // The axis along which the centres spread most, in world units (quantization scales the axes
    // differently).
    int splitAxis(const Spread& spread, int count) const
    {
        btVector3 variance;
        for (int a = 0; a < 3; ++a)
        {
            const double mean = double(spread.sum[a]) / count;
            const double scale = m_bvhQuantization[a];
            variance[a] = static_cast<btScalar>((double(spread.squares[a]) / count - mean * mean) /
                                                (scale * scale));
        }
        return variance.maxAxis();
    }

    // Puts the leaves of FIRST..END whose centre lies beyond the mean first; returns where the
    // second half starts and the spread of each half.
    int partition(int first, int end, const Spread& spread, Spread& low, Spread& high)
    {
        const int axis = splitAxis(spread, end - first);
        const uint64_t count = static_cast<uint64_t>(end - first);
        int split = first;
        // Counted in locals the compiler can keep in registers.
        uint64_t sum[3] = {0, 0, 0}, squares[3] = {0, 0, 0};
        for (int i = first; i < end; ++i)
        {
            const btQuantizedBvhNode node = leaves[i];
            const uint64_t centre[3] = {
                uint64_t(node.m_quantizedAabbMin[0]) + node.m_quantizedAabbMax[0],
                uint64_t(node.m_quantizedAabbMin[1]) + node.m_quantizedAabbMax[1],
                uint64_t(node.m_quantizedAabbMin[2]) + node.m_quantizedAabbMax[2]};
            if (centre[axis] * count > spread.sum[axis])
            {
                std::swap(leaves[i], leaves[split++]);
                for (int a = 0; a < 3; ++a)
                {
                    sum[a] += centre[a];
                    squares[a] += centre[a] * centre[a];
                }
            }
        }
        for (int a = 0; a < 3; ++a)
        {
            low.sum[a] = sum[a];
            low.squares[a] = squares[a];
        }
        const int third = (end - first) / 3;
        if (split <= first + third || split >= end - 1 - third)
        {
            // Lopsided (many equal centres): halve instead, so the tree stays shallow.
            split = first + (end - first) / 2;
            low = Spread{};
            for (int i = first; i < split; ++i)
            {
                low.add(leaves[i]);
            }
        }
        for (int a = 0; a < 3; ++a)
        {
            high.sum[a] = spread.sum[a] - low.sum[a];
            high.squares[a] = spread.squares[a] - low.squares[a];
        }
        return split;
    }

    // Writes the subtree over leaves FIRST..END at NODE, depth first, as Bullet lays it out, and
    // lists its subtree headers in HEADERS in Bullet's order (children first). With HELP, a big
    // subtree builds its first half on a helper thread: the halves share no nodes and no leaves.
    void build(int first, int end, int node, const Spread& spread, Headers& headers, bool help)
    {
        btQuantizedBvhNode* nodes = &m_quantizedContiguousNodes[0];
        const int count = end - first;
        if (count == 1)
        {
            nodes[node] = leaves[first];
            return;
        }
        Spread low, high;
        const int split = partition(first, end, spread, low, high);
        const int left = node + 1;
        const int right = left + 2 * (split - first) - 1;
        if (help && count >= PARALLEL_LEAVES)
        {
            Headers lowHeaders, highHeaders;
            std::thread helper;
            try
            {
                helper = std::thread([&] { build(first, split, left, low, lowHeaders, false); });
            }
            catch (const std::system_error&)
            {
                build(first, split, left, low, lowHeaders, false); // no thread to be had
            }
            build(split, end, right, high, highHeaders, false);
            if (helper.joinable())
            {
                helper.join();
            }
            headers.insert(headers.end(), lowHeaders.begin(), lowHeaders.end());
            headers.insert(headers.end(), highHeaders.begin(), highHeaders.end());
        }
        else
        {
            build(first, split, left, low, headers, help);
            build(split, end, right, high, headers, help);
        }

        btQuantizedBvhNode& parent = nodes[node];
        for (int a = 0; a < 3; ++a)
        {
            parent.m_quantizedAabbMin[a] =
                std::min(nodes[left].m_quantizedAabbMin[a], nodes[right].m_quantizedAabbMin[a]);
            parent.m_quantizedAabbMax[a] =
                std::max(nodes[left].m_quantizedAabbMax[a], nodes[right].m_quantizedAabbMax[a]);
        }
        const int size = 2 * count - 1;
        parent.m_escapeIndexOrTriangleIndex = -size;
        if (size * static_cast<int>(sizeof(btQuantizedBvhNode)) > SUBTREE_BYTES)
        {
            // The children small enough to be walked as one piece.
            for (int child : {left, right})
            {
                if (subtreeSize(child) * static_cast<int>(sizeof(btQuantizedBvhNode)) <=
                    SUBTREE_BYTES)
                {
                    addHeader(child, headers);
                }
            }
        }
    }

    int subtreeSize(int node) const
    {
        const btQuantizedBvhNode& n = m_quantizedContiguousNodes[node];
        return n.isLeafNode() ? 1 : n.getEscapeIndex();
    }

    void addHeader(int node, Headers& headers) const
    {
        btBvhSubtreeInfo header;
        header.setAabbFromQuantizeNode(m_quantizedContiguousNodes[node]);
        header.m_rootNodeIndex = node;
        header.m_subtreeSize = subtreeSize(node);
        headers.push_back(header);
    }

    std::unique_ptr<btQuantizedBvhNode[]> leaves; // in split order while building, then freed
};

bool finite(const btVector3& v)
{
    return std::isfinite(v.x()) && std::isfinite(v.y()) && std::isfinite(v.z());
}

// The bounds of the coordinates that are finite (zero on an axis that has none): a level file may
// hold values too large for a float, or not a number, and the tree's quantization needs a range.
void finiteBounds(const float* vertices, int32_t vertexCount, btVector3& min, btVector3& max)
{
    min.setValue(BT_LARGE_FLOAT, BT_LARGE_FLOAT, BT_LARGE_FLOAT);
    max = -min;
    for (int32_t v = 0; v < vertexCount; ++v)
    {
        const float* p = vertices + static_cast<size_t>(v) * 4;
        for (int a = 0; a < 3; ++a)
        {
            if (std::isfinite(p[a]))
            {
                min[a] = std::min(min[a], p[a]);
                max[a] = std::max(max[a], p[a]);
            }
        }
    }
    for (int a = 0; a < 3; ++a)
    {
        if (min[a] > max[a])
        {
            min[a] = max[a] = 0.0f;
        }
    }
}

// Gathers the indices of the tree's leaves that overlap the box. Working on the nodes directly
// skips fetching each triangle's vertices, which the caller reads itself anyway.
class Collector : public btNodeOverlapCallback
{
public:
    explicit Collector(std::vector<int>& out) : out(out) {}
    void processNode(int part, int triangleIndex) override
    {
        out.push_back(TriangleTree::triangleNumber(part, triangleIndex));
    }

private:
    std::vector<int>& out;
};
} // namespace

TriangleTree::TriangleTree(const float* vertices, int32_t vertexCount)
{
    assert(vertexCount >= 3 && vertexCount % 3 == 0);
    // The mesh is cut into parts of PART_TRIANGLES, each over its own stretch of the vertex array;
    // all of them share one index list. Triangle t is then triangle t % PART_TRIANGLES of part
    // t / PART_TRIANGLES, which is the number Bullet keeps for it: t itself.
    const int32_t triangles = vertexCount / 3;
    indices.resize(3 * static_cast<size_t>(std::min(triangles, PART_TRIANGLES)));
    std::iota(indices.begin(), indices.end(), 0);
    mesh = std::make_unique<btTriangleIndexVertexArray>();
    for (int32_t first = 0; first < triangles; first += PART_TRIANGLES)
    {
        btIndexedMesh part;
        part.m_numTriangles = std::min(PART_TRIANGLES, triangles - first);
        part.m_triangleIndexBase = reinterpret_cast<const unsigned char*>(indices.data());
        part.m_triangleIndexStride = 3 * sizeof(int32_t);
        part.m_numVertices = 3 * part.m_numTriangles;
        part.m_vertexBase =
            reinterpret_cast<const unsigned char*>(vertices + static_cast<size_t>(first) * 12);
        part.m_vertexStride = VERTEX_STRIDE;
        part.m_indexType = PHY_INTEGER;
        part.m_vertexType = PHY_FLOAT;
        mesh->addIndexedMesh(part, PHY_INTEGER);
    }

    // The shape would find the mesh's bounds with six walks over every triangle; one pass here.
    btVector3 min(vertices[0], vertices[1], vertices[2]);
    btVector3 max = min;
    for (int32_t v = 1; v < vertexCount; ++v)
    {
        const float* p = vertices + static_cast<size_t>(v) * 4;
        const btVector3 point(p[0], p[1], p[2]);
        min.setMin(point);
        max.setMax(point);
    }
    if (!finite(min) || !finite(max))
    {
        finiteBounds(vertices, vertexCount, min, max);
    }
    mesh->setPremadeAabb(min, max);
    tree = std::make_unique<QuickBvh>(vertices, vertexCount / 3, min, max);
    bvh = std::make_unique<btBvhTriangleMeshShape>(mesh.get(), true, false);
    bvh->setOptimizedBvh(tree.get());
}

TriangleTree::~TriangleTree() = default;

void TriangleTree::query(const Vec3& min, const Vec3& max, std::vector<int>& triangles) const
{
    const size_t TYPICAL_SPLAT_TRIANGLES = 64; // a splat on 1 m triangles touches a few dozen
    triangles.clear();
    triangles.reserve(TYPICAL_SPLAT_TRIANGLES);
    Collector collector(triangles);
    bvh->getOptimizedBvh()->reportAabbOverlappingNodex(&collector, btVector3(min.x, min.y, min.z),
                                                       btVector3(max.x, max.y, max.z));
    std::sort(triangles.begin(), triangles.end()); // paint is cut in the level's own order
}
