#include "physics/TriangleTree.h"

#include <btBulletCollisionCommon.h>

#include <algorithm>
#include <numeric>

namespace
{
const int VERTEX_STRIDE = 4 * sizeof(float); // x, y, z, 1 per vertex

// Gathers the indices of the tree's leaves that overlap the box. Working on the nodes directly
// skips fetching each triangle's vertices, which the caller reads itself anyway.
class Collector : public btNodeOverlapCallback
{
public:
    explicit Collector(std::vector<int>& out) : out(out) {}
    void processNode(int, int triangleIndex) override { out.push_back(triangleIndex); }

private:
    std::vector<int>& out;
};
} // namespace

TriangleTree::TriangleTree(const float* vertices, int32_t vertexCount)
    : indices(static_cast<size_t>(vertexCount))
{
    std::iota(indices.begin(), indices.end(), 0);
    btIndexedMesh part;
    part.m_numTriangles = vertexCount / 3;
    part.m_triangleIndexBase = reinterpret_cast<const unsigned char*>(indices.data());
    part.m_triangleIndexStride = 3 * sizeof(int32_t);
    part.m_numVertices = vertexCount;
    part.m_vertexBase = reinterpret_cast<const unsigned char*>(vertices);
    part.m_vertexStride = VERTEX_STRIDE;
    part.m_indexType = PHY_INTEGER;
    part.m_vertexType = PHY_FLOAT;
    mesh = std::make_unique<btTriangleIndexVertexArray>();
    mesh->addIndexedMesh(part, PHY_INTEGER);
    bvh = std::make_unique<btBvhTriangleMeshShape>(mesh.get(), true);
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
