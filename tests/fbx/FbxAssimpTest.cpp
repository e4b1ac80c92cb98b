// Cross-check with an independent reader: the triangles FbxLoader produces for a file equal
// the ones Assimp produces for the same mesh, triangle for triangle, in mesh-local
// coordinates (Assimp puts node, geometric and unit transforms on nodes, not on vertices).

#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <array>
#include <assimp/Importer.hpp>
#include <cmath>
#include <filesystem>
#include <memory>

#include "FbxTestSupport.h"
#include "fbx/Document.h"
#include "scene/FbxLoader.h"

using namespace fbxtest;

namespace
{

using Triangle = std::array<std::array<float, 3>, 3>;

// Assimp's mesh nodes in depth-first order, which is the FBX walk order: children follow
// the file's connection order in both.
void meshNodes(const aiNode* node, std::vector<const aiNode*>& out)
{
    if (node->mNumMeshes > 0)
        out.push_back(node);
    for (unsigned i = 0; i < node->mNumChildren; ++i)
        meshNodes(node->mChildren[i], out);
}

std::vector<Triangle> assimpTriangles(const aiScene* scene, const aiNode* node, bool& split)
{
    std::vector<Triangle> out;
    split = node->mNumMeshes > 1;
    for (unsigned m = 0; m < node->mNumMeshes; ++m)
    {
        const aiMesh* mesh = scene->mMeshes[node->mMeshes[m]];
        for (unsigned f = 0; f < mesh->mNumFaces; ++f)
        {
            const aiFace& face = mesh->mFaces[f];
            if (face.mNumIndices != 3)
                continue; // lines and points: FbxLoader skips them too
            Triangle t;
            for (int k = 0; k < 3; ++k)
            {
                const aiVector3D& v = mesh->mVertices[face.mIndices[k]];
                t[k] = {v.x, v.y, v.z};
            }
            out.push_back(t);
        }
    }
    return out;
}

bool samePoint(const std::array<float, 3>& a, const std::array<float, 3>& b)
{
    for (int i = 0; i < 3; ++i)
        if (std::abs(a[i] - b[i]) > 1e-5f * std::max(1.0f, std::abs(a[i])))
            return false;
    return true;
}

bool sameTriangle(const Triangle& a, const Triangle& b)
{
    return samePoint(a[0], b[0]) && samePoint(a[1], b[1]) && samePoint(a[2], b[2]);
}

// The same triangle up to where its corners start (winding kept): a triangle's first
// corner is arbitrary once it has been split out of a polygon.
Triangle canonical(Triangle t)
{
    auto less = [](const std::array<float, 3>& a, const std::array<float, 3>& b) { return a < b; };
    size_t first = std::min_element(t.begin(), t.end(), less) - t.begin();
    std::rotate(t.begin(), t.begin() + first, t.end());
    return t;
}

std::vector<Triangle> sortedCanonical(std::vector<Triangle> ts)
{
    for (Triangle& t : ts)
        t = canonical(t);
    std::sort(ts.begin(), ts.end());
    return ts;
}

void crossCheck(const std::string& path)
{
    SCOPED_TRACE(path);
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(path, aiProcess_Triangulate);
    ASSERT_NE(scene, nullptr) << importer.GetErrorString();

    std::unique_ptr<FbxLoader> loader;
    {
        StdoutSilencer quiet;
        loader = std::make_unique<FbxLoader>();
        loader->load(path);
        loader->convertNodes();
    }
    ASSERT_EQ(loader->error(), "");
    std::optional<fbx::Document> doc;
    if (auto d = fbx::Document::load(path))
        doc = std::move(d).value();
    ASSERT_TRUE(doc);

    // FbxLoader keeps the last mesh node in walk order; find it among Assimp's mesh nodes.
    int meshNodeCount = 0, lastIndex = -1;
    const fbx::Node* last = nullptr;
    for (int n : doc->walkOrder())
    {
        const fbx::Node& node = doc->nodes()[n];
        if (node.mesh < 0)
            continue;
        const fbx::Mesh& m = doc->meshes()[node.mesh];
        if (m.polygonCount() == 0)
            continue; // Assimp drops empty meshes
        last = &node;
        lastIndex = meshNodeCount++;
    }
    ASSERT_NE(last, nullptr);
    std::vector<const aiNode*> nodes;
    meshNodes(scene->mRootNode, nodes);
    ASSERT_EQ(static_cast<int>(nodes.size()), meshNodeCount);
    const aiNode* theirs = nodes[lastIndex];
    EXPECT_EQ(std::string(theirs->mName.C_Str()), last->name);

    std::vector<Triangle> ours;
    for (int32_t i = 0; i + 2 < loader->vertexCount; i += 3)
    {
        Triangle t;
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c)
                t[k][c] = loader->vertices[size_t(i + k) * 4 + c];
        ours.push_back(t);
    }
    bool split = false;
    std::vector<Triangle> assimp = assimpTriangles(scene, theirs, split);
    ASSERT_EQ(ours.size(), assimp.size());

    // Assimp splits a mesh with several materials into one mesh per material, which
    // reorders its triangles, and triangulates a quad from a corner it finds concave
    // (rounding can make a flat quad look so), which moves the split diagonal. In those
    // cases, and only then, compare each polygon's triangles as a set.
    const fbx::Mesh& mesh = doc->meshes()[last->mesh];
    size_t t = 0;
    for (size_t p = 0; p < mesh.polygonCount(); ++p)
    {
        uint32_t size = mesh.polygonSize(p);
        if (size < 3)
            continue;
        size_t count = size - 2;
        bool equal = true;
        for (size_t k = 0; k < count && equal; ++k)
            equal = sameTriangle(ours[t + k], assimp[t + k]);
        if (!equal && !split)
        {
            std::vector<Triangle> a(ours.begin() + t, ours.begin() + t + count);
            std::vector<Triangle> b(assimp.begin() + t, assimp.begin() + t + count);
            // Same corners, whatever the diagonal: compare the polygon's corner sets.
            auto corners = [](const std::vector<Triangle>& ts)
            {
                std::vector<std::array<float, 3>> c;
                for (const Triangle& tri : ts)
                    c.insert(c.end(), tri.begin(), tri.end());
                std::sort(c.begin(), c.end());
                c.erase(std::unique(c.begin(), c.end()), c.end());
                return c;
            };
            EXPECT_EQ(corners(a), corners(b)) << "polygon " << p;
        }
        t += count;
    }
    if (split)
    {
        std::vector<Triangle> a = sortedCanonical(ours);
        std::vector<Triangle> b = sortedCanonical(assimp);
        for (size_t i = 0; i < a.size(); ++i)
            EXPECT_TRUE(sameTriangle(a[i], b[i])) << "triangle " << i;
    }
}

} // namespace

TEST(FbxAssimpCrossCheck, SamplesGiveAssimpsTriangles)
{
    SKIP_WITHOUT_SAMPLES();
    // Assimp reads neither 6.1 files ("unsupported, old format version"), nor big-endian ones,
    // nor leaf records with a zero end offset; those are checked against their twins instead
    // (FbxReader.BinaryAndAsciiTwinsGiveTheSameDocument).
    for (const char* name :
         {"blender_279_default_7400_binary.fbx", "max_geometry_transform_7700_binary.fbx",
          "maya_cube_7400_ascii.fbx", "maya_cube_7400_binary.fbx", "maya_cube_7500_binary.fbx",
          "maya_node_attribute_zoo_7500_binary.fbx", "maya_uv_and_color_sets_7500_binary.fbx",
          "motionbuilder_thumbnail_7700_binary.fbx", "synthetic_missing_normals_7400_ascii.fbx"})
        crossCheck(samplePath(name));
}

TEST(FbxAssimpCrossCheck, LevelGivesAssimpsTriangles)
{
    const std::string level = "data/fbx/level.fbx"; // tests run from the source folder
    if (!std::filesystem::exists(level))
        GTEST_SKIP() << "no " << level << " yet";
    crossCheck(level);
}
