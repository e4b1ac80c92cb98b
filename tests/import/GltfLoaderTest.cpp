// SPDX-License-Identifier: MIT
// The glTF level import: what it makes of a small hand-made scene, how it refuses broken files,
// and that the shipped level reads the same through glTF as through FBX.
#include "import/GltfLoader.h"
#include "import/FbxLoader.h"
#include "import/LevelSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <unistd.h>

namespace
{
// Four corners of a unit square in the XZ plane, indices (two triangles, and a 4-corner strip),
// then the corners' normals, all up.
std::string squareBuffer()
{
    const float positions[] = {0, 0, 0, 1, 0, 0, 1, 0, -1, 0, 0, -1};
    const uint16_t indices[] = {0, 1, 2, 0, 2, 3, 0, 1, 3, 2};
    const float normals[] = {0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0};
    return std::string(reinterpret_cast<const char*>(positions), sizeof positions) +
           std::string(reinterpret_cast<const char*>(indices), sizeof indices) +
           std::string(reinterpret_cast<const char*>(normals), sizeof normals);
}

// A scene of two nodes: a parent moved up 2 and doubled, holding the triangle list (normals
// computed) and a point primitive to skip; its child, turned a quarter about Z, holds the strip
// with stored normals. FIELDS replace parts to break it.
std::string squareJson(const std::string& uri, const std::string& replace = "",
                       const std::string& with = "")
{
    std::string json = R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],
 "nodes":[{"mesh":0,"translation":[0,2,0],"scale":[2,2,2],"children":[1]},{"mesh":1,"rotation":[0,0,0.70710678,0.70710678]}],
 "meshes":[{"primitives":[{"attributes":{"POSITION":0},"indices":1},
                          {"attributes":{"POSITION":0},"mode":0}]},
           {"primitives":[{"attributes":{"POSITION":0,"NORMAL":3},"indices":2,"mode":5}]}],
 "accessors":[{"bufferView":0,"componentType":5126,"count":4,"type":"VEC3"},
              {"bufferView":1,"componentType":5123,"count":6,"type":"SCALAR"},
              {"bufferView":1,"byteOffset":12,"componentType":5123,"count":4,"type":"SCALAR"},
              {"bufferView":2,"componentType":5126,"count":4,"type":"VEC3"}],
 "bufferViews":[{"buffer":0,"byteOffset":0,"byteLength":48},{"buffer":0,"byteOffset":48,"byteLength":20},
                {"buffer":0,"byteOffset":68,"byteLength":48}],
 "buffers":[{"byteLength":116,"uri":"URI"}]})";
    json.replace(json.find("URI"), 3, uri);
    if (replace.empty())
        return json;
    if (json.find(replace) == std::string::npos)
        ADD_FAILURE() << replace << " is not in the scene"; // a case that breaks nothing
    else
        json.replace(json.find(replace), replace.size(), with);
    return json;
}

// The same scene as binary glTF: header, JSON chunk, binary chunk, each padded to 4 bytes.
std::string squareGlb()
{
    std::string json = squareJson("");
    json.erase(json.find(R"(,"uri":"")"), 9);
    json.resize((json.size() + 3) / 4 * 4, ' ');
    std::string bin = squareBuffer();
    bin.resize((bin.size() + 3) / 4 * 4, '\0');
    auto word = [](uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); };
    return "glTF" + word(2) + word(uint32_t(12 + 8 + json.size() + 8 + bin.size())) +
           word(uint32_t(json.size())) + "JSON" + json + word(uint32_t(bin.size())) +
           std::string("BIN\0", 4) + bin;
}

class GltfLoaderTest : public ::testing::Test
{
protected:
    std::string dir = "/tmp/blotch-gltf-test-" + std::to_string(getpid());
    void SetUp() override { ASSERT_EQ(std::system(("mkdir -p " + dir).c_str()), 0); }
    void TearDown() override { (void)std::system(("rm -rf " + dir).c_str()); }

    std::string write(const std::string& name, const std::string& bytes)
    {
        std::ofstream(dir + "/" + name, std::ios::binary) << bytes;
        return dir + "/" + name;
    }
    // Loads PATH through the source the game would pick; the mesh, and the error in ERROR.
    LevelMesh play(const std::string& path, std::string* error = nullptr)
    {
        auto source = levelSourceFor(path);
        LevelMesh mesh = source->read(path) ? source->takeMesh() : LevelMesh{};
        if (error)
            *error = source->error();
        return mesh;
    }
};

struct Triangles
{
    int32_t count = 0;
    float lo[3] = {1e30f, 1e30f, 1e30f}, hi[3] = {-1e30f, -1e30f, -1e30f};
    double area = 0;
};

Triangles measure(const LevelMesh& mesh)
{
    Triangles t;
    t.count = mesh.vertexCount / 3;
    for (int32_t i = 0; i < mesh.vertexCount; ++i)
        for (int k = 0; k < 3; ++k)
        {
            t.lo[k] = std::min(t.lo[k], mesh.vertices[i * 4 + k]);
            t.hi[k] = std::max(t.hi[k], mesh.vertices[i * 4 + k]);
        }
    for (int32_t i = 0; i < mesh.vertexCount; i += 3)
    {
        const float* a = &mesh.vertices[i * 4];
        const double u[3] = {a[4] - a[0], a[5] - a[1], a[6] - a[2]},
                     w[3] = {a[8] - a[0], a[9] - a[1], a[10] - a[2]};
        const double n[3] = {u[1] * w[2] - u[2] * w[1], u[2] * w[0] - u[0] * w[2],
                             u[0] * w[1] - u[1] * w[0]};
        t.area += 0.5 * std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    }
    return t;
}
} // namespace

TEST_F(GltfLoaderTest, ReadsTheNodeTreeFromEveryKindOfFile)
{
    // The same scene as JSON with an external buffer, as JSON with a data URI under a .fbx name
    // (the content decides), and as binary glTF.
    write("square.bin", squareBuffer());
    const std::string base64 = "AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAACAPwAAAAAAAIC/AAAAAAAAAAAAAIC/"
                               "AAABAAIAAAACAAMAAAABAAMAAgAA"
                               "AAAAAACAPwAAAAAAAAAAAACAPwAAAAAAAAAAAACAPwAAAAAAAAAAAACAPwAAAAA=";
    for (const std::string& path :
         {write("square.gltf", squareJson("square.bin")),
          write("square.fbx",
                "\n  " + squareJson("data:application/octet-stream;base64," + base64)),
          write("square.glb", squareGlb())})
    {
        std::string error;
        const LevelMesh mesh = play(path, &error);
        ASSERT_EQ(mesh.vertexCount, 12) << path << ": " << error; // 2 list + 2 strip triangles
        const Triangles t = measure(mesh);
        // the parent's transform reaches its child: the floor at y 2, the turned strip a wall
        // above it at x 0, both twice the size
        EXPECT_NEAR(t.lo[1], 2.0f, 1e-5);
        EXPECT_NEAR(t.hi[1], 4.0f, 1e-5);
        EXPECT_NEAR(t.hi[0], 2.0f, 1e-5);
        EXPECT_NEAR(t.area, 8.0, 1e-5);
        // normals computed up on the floor, the stored ones turned with the wall
        for (int32_t i = 0; i < mesh.vertexCount; ++i)
            EXPECT_NEAR(mesh.normals[i * 3 + (i < 6 ? 1 : 0)], i < 6 ? 1.0f : -1.0f, 1e-5) << i;
    }
}

TEST_F(GltfLoaderTest, RefusesBrokenFilesWithAReason)
{
    write("square.bin", squareBuffer());
    write("short.bin", squareBuffer().substr(0, 40));
    const std::pair<const char*, std::string> broken[] = {
        {"bad JSON", squareJson("square.bin").substr(0, 200)},
        {"missing buffer", squareJson("none.bin")},
        {"short buffer", squareJson("short.bin")},
        {"accessor out of range",
         squareJson("square.bin", R"("POSITION":0},"indices":1)", R"("POSITION":9},"indices":1)")},
        {"index past the positions",
         squareJson("square.bin", R"("count":4,"type":"VEC3")", R"("count":3,"type":"VEC3")")},
        {"stride past the view",
         squareJson("square.bin", R"("byteLength":48})", R"("byteLength":48,"byteStride":200})")},
        {"offset past the view",
         squareJson("square.bin", R"("byteOffset":12,)", R"("byteOffset":4000000000,)")},
        {"absurd count", squareJson("square.bin", R"("count":6,)", R"("count":4000000000,)")},
        {"node cycle", squareJson("square.bin", R"({"mesh":1,)", R"({"mesh":1,"children":[0],)")},
        {"view past the buffer", squareJson("square.bin", R"("byteOffset":48,"byteLength":20)",
                                            R"("byteOffset":48,"byteLength":2000)")},
    };
    for (const auto& [what, json] : broken)
    {
        std::string error;
        const LevelMesh mesh = play(write("broken.gltf", json), &error);
        EXPECT_EQ(mesh.vertexCount, 0) << what;
        EXPECT_FALSE(error.empty()) << what;
    }
}

TEST_F(GltfLoaderTest, CutAndFlippedFilesAreRefusedOrLoaded)
{
    const std::string good = squareGlb();
    for (size_t i = 0; i < good.size(); ++i)
    {
        std::string cut = good.substr(0, i), flipped = good;
        flipped[i] = static_cast<char>(flipped[i] ^ (1 << (i % 8)));
        for (const std::string& bytes : {cut, flipped})
        {
            GltfLoader loader;
            if (!loader.load(write("mutated.glb", bytes)))
                continue;
            const LevelMesh mesh = loader.convert();
            // loaded, perhaps with nothing to walk on, or refused with empty arrays
            ASSERT_EQ(mesh.vertexCount % 3, 0) << i;
            ASSERT_TRUE(loader.error().empty() || mesh.vertexCount == 0) << i;
            volatile float sum = 0; // read every value, so a wrong count shows under the sanitizer
            for (int32_t k = 0; k < mesh.vertexCount; ++k)
                sum = sum + mesh.vertices[k * 4] + mesh.normals[k * 3] + mesh.uvs[k * 2 + 1];
        }
    }
}

TEST_F(GltfLoaderTest, ShippedLevelIsTheSameThroughGltfAndFbx)
{
    const Triangles gltf = measure(play(BLOTCH_SOURCE_DIR "/data/gltf/level.glb"));
    const Triangles fbx = measure(play(BLOTCH_SOURCE_DIR "/data/fbx/level.fbx"));
    ASSERT_GT(fbx.count, 0);
    EXPECT_EQ(gltf.count, fbx.count);
    for (int k = 0; k < 3; ++k)
    {
        EXPECT_NEAR(gltf.lo[k], fbx.lo[k], 1e-3) << "axis " << k;
        EXPECT_NEAR(gltf.hi[k], fbx.hi[k], 1e-3) << "axis " << k;
    }
    EXPECT_NEAR(gltf.area / fbx.area, 1.0, 1e-4);
}

TEST_F(GltfLoaderTest, NonFinitePositionsAreRefusedNamingTheFirstAndNormalsAreReplaced)
{
    std::string buffer = squareBuffer();
    const float infinity = INFINITY, nan = NAN;
    std::memcpy(&buffer[4 * 4], &infinity, 4); // y of position 1
    write("inf.bin", buffer);
    std::string error;
    EXPECT_EQ(play(write("inf.gltf", squareJson("inf.bin")), &error).vertexCount, 0);
    EXPECT_EQ(error, dir + "/inf.gltf: mesh 0 has a position that is not a finite number: "
                           "vertex 1 is (1, inf, 0)");

    // Finite in the file, but not once the node's transform has scaled it past a float.
    write("square.bin", squareBuffer());
    EXPECT_EQ(play(write("huge.gltf", squareJson("square.bin", R"("scale":[2,2,2])",
                                                 R"("scale":[1e39,1e39,1e39])")),
                   &error)
                  .vertexCount,
              0);
    EXPECT_NE(error.find("has a position that is not a finite number: vertex 1 is (1, 0, 0) in "
                         "the file and not finite once its node's transform is applied"),
              std::string::npos)
        << error;

    // A stored normal that is not finite: its triangle is lit with the face's normal.
    buffer = squareBuffer();
    std::memcpy(&buffer[68 + 12], &nan, 4); // x of normal 1
    write("nan.bin", buffer);
    testing::internal::CaptureStderr();
    const LevelMesh mesh = play(write("nan.gltf", squareJson("nan.bin")), &error);
    const std::string said = testing::internal::GetCapturedStderr();
    ASSERT_EQ(mesh.vertexCount, 12) << error;
    for (int32_t i = 0; i < mesh.vertexCount * 3; ++i)
        ASSERT_TRUE(std::isfinite(mesh.normals[i])) << i;
    EXPECT_NEAR(mesh.normals[6 * 3], -1.0f, 1e-5); // the turned strip faces -x
    EXPECT_NE(said.find("nan.gltf has normals that are not finite numbers; 2 triangles"),
              std::string::npos)
        << said;
}

TEST_F(GltfLoaderTest, DracoCompressedMeshesAreRefusedSayingHowToExportWithoutIt)
{
    write("square.bin", squareBuffer());
    // Required: there is nothing else to read.
    const std::string required =
        squareJson("square.bin", R"({"asset":{"version":"2.0"},)",
                   R"({"asset":{"version":"2.0"},"extensionsUsed":["KHR_draco_mesh_compression"],)"
                   R"("extensionsRequired":["KHR_draco_mesh_compression"],)");
    // Only used, but the primitive's positions have no data outside the compressed view.
    std::string used = squareJson(
        "square.bin", R"({"attributes":{"POSITION":0},"indices":1},)",
        R"({"attributes":{"POSITION":4},"indices":1,"extensions":{"KHR_draco_mesh_compression":)"
        R"({"bufferView":0,"attributes":{"POSITION":0}}}},)");
    const std::string last = R"("count":4,"type":"VEC3"}])";
    used.replace(used.find(last), last.size(),
                 R"("count":4,"type":"VEC3"},{"componentType":5126,"count":4,"type":"VEC3"}])");
    for (const std::string& json : {required, used})
    {
        std::string error;
        EXPECT_EQ(play(write("draco.gltf", json), &error).vertexCount, 0);
        EXPECT_EQ(error, dir + "/draco.gltf: its meshes are compressed with Draco "
                               "(KHR_draco_mesh_compression), which the game does not read; "
                               "export the level again without compression (Blender: File > "
                               "Export > glTF 2.0, untick Geometry > Compression)");
    }
}
