// SPDX-License-Identifier: MIT
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
#include <strings.h>

#include "FbxTestSupport.h"
#include "import/FbxLoader.h"

using namespace fbxtest;

namespace
{

using Point = std::array<float, 3>;
using Triangle = std::array<Point, 3>;

// The last node with a mesh in depth-first order, which is the FBX walk order: children
// follow the file's connection order in both.
const aiNode* lastMeshNode(const aiNode* node)
{
    for (unsigned i = node->mNumChildren; i-- > 0;)
        if (const aiNode* found = lastMeshNode(node->mChildren[i]))
            return found;
    return node->mNumMeshes > 0 ? node : nullptr;
}

// Each triangle starting at its least corner (winding kept), sorted: Assimp splits a mesh
// with several materials into one mesh per material, which reorders its triangles.
std::vector<Triangle> sortedCanonical(std::vector<Triangle> ts)
{
    for (Triangle& t : ts)
        std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
    std::sort(ts.begin(), ts.end());
    return ts;
}

// The triangles FbxLoader makes of PATH, in its order; none when the file does not load.
std::vector<Triangle> ourTriangles(const std::string& path)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    FbxLoader loader;
    loader.load(path);
    loader.convertNodes(); // the last mesh node in walk order wins
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(loader.error(), "") << path;

    std::vector<Triangle> ours(size_t(loader.vertexCount) / 3);
    for (size_t i = 0; i < ours.size() * 3; ++i)
        for (int c = 0; c < 3; ++c)
            ours[i / 3][i % 3][c] = loader.vertices[i * 4 + c];
    return ours;
}

void crossCheck(const std::string& path)
{
    SCOPED_TRACE(path);
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(path, aiProcess_Triangulate);
    ASSERT_NE(scene, nullptr) << importer.GetErrorString();
    std::vector<Triangle> ours = ourTriangles(path), theirs;
    const aiNode* node = lastMeshNode(scene->mRootNode);
    ASSERT_NE(node, nullptr);
    for (unsigned m = 0; m < node->mNumMeshes; ++m)
    {
        const aiMesh* mesh = scene->mMeshes[node->mMeshes[m]];
        for (const aiFace& face : std::span(mesh->mFaces, mesh->mNumFaces))
        {
            if (face.mNumIndices != 3)
                continue; // lines and points: FbxLoader skips them too
            Triangle& t = theirs.emplace_back();
            for (int k = 0; k < 3; ++k)
            {
                const aiVector3D& v = mesh->mVertices[face.mIndices[k]];
                t[k] = {v.x, v.y, v.z};
            }
        }
    }
    ASSERT_EQ(ours.size(), theirs.size());
    ours = sortedCanonical(ours);
    theirs = sortedCanonical(theirs);
    for (size_t t = 0; t < ours.size(); ++t)
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(ours[t][k][c], theirs[t][k][c],
                            1e-5f * std::max(1.0f, std::abs(ours[t][k][c])))
                    << "triangle " << t;
}

} // namespace

TEST(FbxLoader, SamplesAndTheLevelGiveAssimpsTriangles)
{
    // Assimp reads neither 6.1 files ("unsupported, old format version"), nor big-endian ones,
    // nor leaf records with a zero end offset; those are checked against their twins instead
    // (FbxDocument.TwinFilesGiveTheSameDocument).
    if (haveSamples())
        for (const char* name :
             {"blender_279_default_7400_binary.fbx", "max_geometry_transform_7700_binary.fbx",
              "maya_cube_7400_ascii.fbx", "maya_cube_7400_binary.fbx", "maya_cube_7500_binary.fbx",
              "maya_node_attribute_zoo_7500_binary.fbx", "maya_uv_and_color_sets_7500_binary.fbx",
              "motionbuilder_thumbnail_7700_binary.fbx",
              "synthetic_missing_normals_7400_ascii.fbx"})
            crossCheck(samplePath(name));
    const std::string level = "data/fbx/level.fbx"; // tests run from the source folder
    if (std::filesystem::exists(level))
        crossCheck(level);
    if (!haveSamples() && !std::filesystem::exists(level))
        GTEST_SKIP() << "no samples and no " << level;
}

// Levels made by others: every FBX model of Debian's assimp-testmodels that Assimp reads gives
// Assimp's triangles for its last mesh, and one it refuses is refused by us too, with a reason.
// (The test command runs this under AddressSanitizer as well.)
TEST(FbxLoader, AssimpTestModelsGiveAssimpsTriangles)
{
    const std::filesystem::path models = "/usr/share/assimp/models/FBX";
    if (!std::filesystem::is_directory(models))
        GTEST_SKIP() << "no " << models << " (Debian package assimp-testmodels)";
    int checked = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(models))
    {
        const std::string path = entry.path().string();
        if (path.size() < 4 || strcasecmp(path.c_str() + path.size() - 4, ".fbx") != 0)
            continue;
        ++checked;
        // Assimp's number parser misreads a 75-digit coordinate; the file is otherwise its twin.
        if (entry.path().filename() == "cubes_with_outofrange_float.fbx")
        {
            EXPECT_EQ(ourTriangles(path), ourTriangles((models / "cubes_nonames.fbx").string()));
            continue;
        }
        Assimp::Importer importer;
        if (importer.ReadFile(path, aiProcess_Triangulate))
        {
            crossCheck(path);
            continue;
        }
        SCOPED_TRACE(path);
        testing::internal::CaptureStdout();
        FbxLoader loader;
        EXPECT_FALSE(loader.load(path));
        testing::internal::GetCapturedStdout();
        EXPECT_NE(loader.error(), "");
    }
    EXPECT_GT(checked, 10);
}
