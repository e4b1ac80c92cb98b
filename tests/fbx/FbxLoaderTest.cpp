// SPDX-License-Identifier: MIT
// The level import: its conversion rules and its report lines, on small hand-made ASCII
// files and on the samples.

#include <cstdio>
#include <sstream>

#include "FbxTestSupport.h"
#include "import/FbxLoader.h"

using namespace fbxtest;

namespace
{

// Two triangles over four points: (0, 1, 2) and (0, 2, 3).
std::string twoTriangles(const std::string& elements = "", const std::string& layers = "")
{
    AsciiMesh m{
        "floor", {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, {0, 1, -3, 0, 2, -4}, elements, layers};
    return asciiFile({m});
}

// The first `count` values of one of the loader's arrays, as "x y z ...".
std::string text(const float* array, size_t count)
{
    std::ostringstream s;
    for (size_t i = 0; array && i < count; ++i)
        s << (i ? " " : "") << array[i];
    return s.str();
}

// The whole import in the game's call order; returns everything it printed.
std::string import(FbxLoader& loader, const std::string& path)
{
    testing::internal::CaptureStdout();
    loader.load(path);
    loader.printMetaData();
    loader.printHierarchy();
    loader.convertNodes();
    return testing::internal::GetCapturedStdout();
}

// The same for a file of this text.
std::string importText(FbxLoader& loader, const std::string& file)
{
    const std::string path = tempPath("loader.fbx");
    writeBytes(path, bytesOf(file));
    std::string report = import(loader, path);
    std::remove(path.c_str());
    return report;
}

} // namespace

TEST(FbxLoader, OnlyDirectNormalsByPolygonVertexAreStored)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"ByPolygonVertex", "Direct", "0 0 1 0 0 2 0 0 3 0 0 4 0 0 5 0 0 6"},
        {"ByVertice", "Direct", "0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0"},
        {"ByPolygonVertex", "IndexToDirect", "0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0"},
    };
    for (const auto& [mapping, reference, normals] : cases)
    {
        FbxLoader loader;
        importText(loader, twoTriangles(layerElement("Normal", 0, mapping, reference,
                                                     "Normals: *18 {a: 0,0,1, 0,0,2, 0,0,3, "
                                                     "0,0,4, 0,0,5, 0,0,6} "
                                                     "NormalsIndex: *6 {a: 0,1,2,3,4,5}"),
                                        layerOf(0, {{"Normal", 0}})));
        ASSERT_EQ(loader.vertexCount, 6);
        EXPECT_EQ(text(loader.vertices.get(), 24),
                  "0 0 0 1 1 0 0 1 1 1 0 1 0 0 0 1 1 1 0 1 0 1 0 1");
        EXPECT_EQ(text(loader.normals.get(), 18), normals) << mapping << " " << reference;
    }
}

TEST(FbxLoader, WhichUvsAreStored)
{
    const std::string layer0 = layerOf(0, {{"UV", 0}});
    const std::string layers01 = layer0 + layerOf(1, {{"UV", 1}});
    auto uv = [](int layer, const char* mapping, const char* reference, const char* data)
    { return layerElement("UV", layer, mapping, reference, data); };
    const std::tuple<std::string, std::string, const char*> cases[] = {
        // Through the mesh's texture-UV index, by polygon vertex.
        {uv(0, "ByPolygonVertex", "IndexToDirect",
            "UV: *8 {a: 0,0, 1,0, 1,1, 0,1} UVIndex: *6 {a: 0,1,2, 0,2,3}"),
         layer0, "0 0 1 0 1 1 0 0 1 1 0 1"},
        // By control point: through the element's own index; direct ones are only reported.
        {uv(0, "ByVertice", "IndexToDirect",
            "UV: *4 {a: 0.25,0.5, 0.75,1} UVIndex: *4 {a: 1,0,1,0}"),
         layer0, "0.75 1 0.25 0.5 0.75 1 0.75 1 0.75 1 0.25 0.5"},
        {uv(0, "ByVertice", "Direct", "UV: *8 {a: 0.5,0.5,0.5,0.5,0.5,0.5,0.5,0.5}"), layer0,
         "0 0 0 0 0 0 0 0 0 0 0 0"},
        // Layer 1 is applied last, but through layer 0's indices 0, 1, 0, 1, 0, 1.
        {uv(0, "ByPolygonVertex", "IndexToDirect",
            "UV: *4 {a: 0.25,0.25, 0.75,0.75} UVIndex: *6 {a: 0,1,0,1,0,1}") +
             uv(1, "ByPolygonVertex", "IndexToDirect",
                "UV: *4 {a: 0.125,0.125, 0.875,0.875} UVIndex: *6 {a: 1,1,1,1,1,1}"),
         layers01, "0.125 0.125 0.875 0.875 0.125 0.125 0.875 0.875 0.125 0.125 0.875 0.875"},
        // Indices outside the array are skipped, not followed.
        {uv(0, "ByPolygonVertex", "IndexToDirect",
            "UV: *2 {a: 0.5,0.5} UVIndex: *6 {a: 0,99,-5,0,2147483647,0}"),
         layer0, "0.5 0.5 0 0 0 0 0.5 0.5 0 0 0.5 0.5"},
    };
    for (const auto& [elements, layers, uvs] : cases)
    {
        FbxLoader loader;
        importText(loader, twoTriangles(elements, layers));
        ASSERT_EQ(loader.vertexCount, 6);
        EXPECT_EQ(text(loader.uvs.get(), 12), uvs) << elements;
    }
}

TEST(FbxLoader, PolygonsAreFanned)
{
    // A pentagon, a line, a point, a triangle: corners (0, k, k + 1); fewer than three skipped.
    AsciiMesh m{"mesh",
                {0, 0, 0, 1, 0, 0, 2, 1, 0, 1, 2, 0, 0, 1, 0},
                {0, 1, 2, 3, -5, 0, -2, -1, 2, 3, -5},
                "",
                ""};
    FbxLoader loader;
    importText(loader, asciiFile({m}));
    ASSERT_EQ(loader.vertexCount, 3 * 4);
    const int corners[12] = {0, 1, 2, 0, 2, 3, 0, 3, 4, 2, 3, 4};
    for (int c = 0; c < 12; ++c)
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(loader.vertices[c * 4 + i], float(m.vertices[corners[c] * 3 + i])) << c;
}

TEST(FbxLoader, FailedImportsSayWhyAndLeaveNothing)
{
    const std::string missing = "/nonexistent/level.fbx";
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"", // no file at all
         {"Reading File failed: cannot open " + missing + ": No such file or directory\n",
          "\nFBX version number for file " + missing + " is 0.0.0\n\n",
          "File Format not recognized: "}},
        {"this is not an FBX file",
         {"Reading File succeeded\n", "File Format not recognized: at byte 0: not an FBX file"}},
    };
    for (const auto& [file, lines] : cases)
    {
        FbxLoader loader;
        std::string report = file.empty() ? import(loader, missing) : importText(loader, file);
        for (const std::string& line : lines)
            EXPECT_NE(report.find(line), std::string::npos) << line << "\nin:\n" << report;
        EXPECT_NE(loader.error(), "");
        EXPECT_NE(report.find("Importing File failed: " + loader.error() + "\n"),
                  std::string::npos);
        EXPECT_EQ(report.find("Node is a"), std::string::npos);
        EXPECT_EQ(loader.vertexCount, 0);
        EXPECT_TRUE(!loader.vertices && !loader.normals && !loader.uvs);
    }
}

TEST(FbxLoader, NonFinitePositionsAndUvsAreRefusedNamingTheFirstAndNormalsAreReplaced)
{
    // 1e300 is a double that no float holds: the game would get an infinity.
    AsciiMesh bad{"floor", {0, 0, 0, 1, 0, 0, 1e300, 1, 0, 0, 1, 0}, {0, 1, -3, 0, 2, -4}, "", ""};
    FbxLoader positions;
    importText(positions, asciiFile({bad}));
    EXPECT_EQ(positions.vertexCount, 0);
    EXPECT_TRUE(!positions.vertices && !positions.normals && !positions.uvs);
    EXPECT_NE(positions.error().find("loader.fbx: mesh \"floor\" has a position that is not a "
                                     "finite number: control point 2 is (1e+300, 1, 0)"),
              std::string::npos)
        << positions.error();

    FbxLoader uvs;
    importText(uvs, twoTriangles(layerElement("UV", 0, "ByPolygonVertex", "IndexToDirect",
                                              "UV: *8 {a: 0,0, 1,0, 1,1e300, 0,1} "
                                              "UVIndex: *6 {a: 0,1,2, 0,2,3}"),
                                 layerOf(0, {{"UV", 0}})));
    EXPECT_EQ(uvs.vertexCount, 0);
    EXPECT_NE(uvs.error().find("mesh \"floor\" has a texture coordinate that is not a finite "
                               "number: polygon vertex 2 has (1, inf)"),
              std::string::npos)
        << uvs.error();

    // A bad normal only costs the light of its triangle: the face's own normal takes its place.
    FbxLoader normals;
    testing::internal::CaptureStderr();
    importText(normals, twoTriangles(layerElement("Normal", 0, "ByPolygonVertex", "Direct",
                                                  "Normals: *18 {a: 0,0,1, 0,0,1, 0,0,1, "
                                                  "0,0,1, 1e300,0,1, 0,0,1}"),
                                     layerOf(0, {{"Normal", 0}})));
    const std::string said = testing::internal::GetCapturedStderr();
    ASSERT_EQ(normals.vertexCount, 6) << normals.error();
    EXPECT_EQ(normals.error(), "");
    EXPECT_EQ(text(normals.normals.get(), 18), "0 0 1 0 0 1 0 0 1 0 0 1 0 0 1 0 0 1");
    EXPECT_NE(said.find("mesh \"floor\" has normals that are not finite numbers; 1 triangles"),
              std::string::npos)
        << said;
}

TEST(FbxLoader, AFileWhoseBinaryHeaderIsDamagedIsCalledDamaged)
{
    BinaryFbxWriter writer;
    writer.record("FBXHeaderExtension", int32_t(1));
    std::vector<uint8_t> bytes = writer.finish();
    bytes[3] ^= 0x20; // "KayDara"
    bytes[12] = '?';
    const std::string path = tempPath("damaged.fbx");
    writeBytes(path, bytes);
    FbxLoader loader;
    const std::string report = import(loader, path);
    std::remove(path.c_str());
    EXPECT_EQ(loader.error(), path + ": at byte 3: damaged binary FBX header: 2 of the 21 bytes "
                                     "of its \"Kaydara FBX Binary\" magic are wrong");
    EXPECT_EQ(report.find("not an FBX file"), std::string::npos) << report;
}
