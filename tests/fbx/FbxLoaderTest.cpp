// The level import: its report lines and its conversion rules, on small
// hand-made ASCII files and on the samples.

#include <cstdio>

#include "FbxTestSupport.h"
#include "scene/FbxLoader.h"

using namespace fbxtest;

namespace
{

// A right triangle and a second one beside it, as two triangles over four points.
AsciiMesh twoTriangles()
{
    AsciiMesh m;
    m.name = "floor";
    m.vertices = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    m.polygonVertices = {0, 1, -3, 0, 2, -4};
    return m;
}

class FbxLoaderTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        for (const std::string& p : files_)
            std::remove(p.c_str());
    }

    std::string writeFile(const std::string& text)
    {
        std::string path = tempPath("loader-" + std::to_string(files_.size()) + ".fbx");
        writeBytes(path, bytesOf(text));
        files_.push_back(path);
        return path;
    }

    // The whole import in the game's call order; returns everything it printed.
    std::string importFile(FbxLoader& loader, const std::string& path)
    {
        testing::internal::CaptureStdout();
        loader.load(path);
        loader.printMetaData();
        loader.printHierarchy();
        loader.convertNodes();
        return testing::internal::GetCapturedStdout();
    }
    std::string importText(FbxLoader& loader, const std::string& text)
    {
        return importFile(loader, writeFile(text));
    }

    std::vector<std::string> files_;
};

bool contains(const std::string& haystack, const std::string& needle)
{
    return haystack.find(needle) != std::string::npos;
}

} // namespace

TEST_F(FbxLoaderTest, TriangulatedMeshGivesPositionsNormalsAndUvsInPolygonVertexOrder)
{
    AsciiMesh m = twoTriangles();
    m.layerElements = layerElement("Normal", 0, "ByPolygonVertex", "Direct",
                                   "Normals: *18 {a: 0,0,1, 0,0,2, 0,0,3, 0,0,4, 0,0,5, 0,0,6}") +
                      layerElement("UV", 0, "ByPolygonVertex", "IndexToDirect",
                                   "UV: *8 {a: 0,0, 1,0, 1,1, 0,1} UVIndex: *6 {a: 0,1,2, 0,2,3}");
    m.layers = layerOf(0, {{"Normal", 0}, {"UV", 0}});
    FbxLoader loader;
    importText(loader, asciiFile({m}));
    ASSERT_EQ(loader.error(), "");
    ASSERT_EQ(loader.vertexCount, 6);
    const float expectedPositions[6][4] = {{0, 0, 0, 1}, {1, 0, 0, 1}, {1, 1, 0, 1},
                                           {0, 0, 0, 1}, {1, 1, 0, 1}, {0, 1, 0, 1}};
    const float expectedUvs[6][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}};
    for (int c = 0; c < 6; ++c)
    {
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(loader.vertices[c * 4 + i], expectedPositions[c][i]) << c;
        EXPECT_EQ(loader.normals[c * 3 + 2], float(c + 1)) << c; // the direct array at index c
        EXPECT_EQ(loader.uvs[c * 2], expectedUvs[c][0]) << c;
        EXPECT_EQ(loader.uvs[c * 2 + 1], expectedUvs[c][1]) << c;
    }
}

TEST_F(FbxLoaderTest, OnlyDirectNormalsByPolygonVertexAreStored)
{
    const std::pair<const char*, const char*> ignored[] = {
        {"ByVertice", "Direct"},
        {"ByControlPoint", "Direct"},
        {"ByPolygonVertex", "IndexToDirect"},
        {"AllSame", "Direct"},
    };
    for (const auto& [mapping, reference] : ignored)
    {
        SCOPED_TRACE(std::string(mapping) + "/" + reference);
        AsciiMesh m = twoTriangles();
        m.layerElements = layerElement("Normal", 0, mapping, reference,
                                       "Normals: *18 {a: 0,0,1,0,0,1,0,0,1,0,0,1,0,0,1,0,0,1} "
                                       "NormalsIndex: *6 {a: 0,1,2,3,4,5}");
        m.layers = layerOf(0, {{"Normal", 0}});
        FbxLoader loader;
        importText(loader, asciiFile({m}));
        ASSERT_EQ(loader.vertexCount, 6);
        for (int i = 0; i < 18; ++i)
            EXPECT_EQ(loader.normals[i], 0.0f);
    }
}

TEST_F(FbxLoaderTest, TwoMeshesLeaveTheSecondOnesArrays)
{
    AsciiMesh first = twoTriangles();
    AsciiMesh second;
    second.name = "ledge";
    second.vertices = {5, 5, 5, 6, 5, 5, 5, 6, 5};
    second.polygonVertices = {0, 1, -3};
    FbxLoader loader;
    std::string report = importText(loader, asciiFile({first, second}));
    EXPECT_TRUE(contains(report, "Mesh Name: floor\n"));
    EXPECT_TRUE(contains(report, "Mesh Name: ledge\n"));
    ASSERT_EQ(loader.vertexCount, 3);
    EXPECT_EQ(loader.vertices[0], 5.0f);
    EXPECT_EQ(loader.vertices[4], 6.0f);
    EXPECT_EQ(loader.vertices[9], 6.0f);
}

TEST_F(FbxLoaderTest, PerVertexLinesOnlyWithVerbose)
{
    AsciiMesh m = twoTriangles();
    m.layerElements =
        layerElement("Normal", 0, "ByPolygonVertex", "Direct",
                     "Normals: *18 {a: 0,0,1,0,0,1,0,0,1,0,0,1,0,0,1,0,0,1}") +
        layerElement("UV", 0, "ByPolygonVertex", "Direct", "UV: *12 {a: 0,0,1,0,1,1,0,0,1,1,0,1}") +
        layerElement("Color", 0, "ByPolygonVertex", "Direct",
                     "Colors: *24 {a: 1,0,0,1,1,0,0,1,1,0,0,1,1,0,0,1,1,0,0,1,1,0,0,1}") +
        layerElement("Visibility", 0, "ByEdge", "Direct", "Visibility: *5 {a: 1,1,0,1,1}");
    m.layers = layerOf(0, {{"Normal", 0}, {"UV", 0}, {"Color", 0}, {"Visibility", 0}});
    const std::string file = writeFile(asciiFile({m}));
    const char* perVertex[] = {
        "    Control Points\n",
        "        Control Point 0\n",
        "            Coordinates: 0.000000, 0.000000, 0.000000\n",
        "    Polygons\n",
        "        Polygon 1\n",
        "            Index: 2\n",
        "            Normal Vector (on layer 0): 0.000000, 0.000000, 1.000000,\n",
        "            Color vertex (on layer 0): (red) 1.000000, (green) 0.000000, (blue) "
        "0.000000\n",
        "            Texture UV (on layer 0): 1.000000, 1.000000\n",
        "    Edge Visibility (on layer 0):\n",
        "            Edge visibility: false\n"};

    FbxLoader quiet;
    std::string report = importFile(quiet, file);
    EXPECT_EQ(quiet.vertexCount, 6);
    for (const char* line : perVertex)
        EXPECT_FALSE(contains(report, line)) << line;

    FbxLoader loud;
    loud.verbose = true;
    std::string verboseReport = importFile(loud, file);
    for (const char* line : perVertex)
        EXPECT_TRUE(contains(verboseReport, line)) << line;
    // The same arrays either way.
    ASSERT_EQ(loud.vertexCount, quiet.vertexCount);
    for (int i = 0; i < 6 * 4; ++i)
        EXPECT_EQ(loud.vertices[i], quiet.vertices[i]);
    for (int i = 0; i < 6 * 2; ++i)
        EXPECT_EQ(loud.uvs[i], quiet.uvs[i]);
}

TEST_F(FbxLoaderTest, QuadsAreFannedIntoTriangles)
{
    SKIP_WITHOUT_SAMPLES();
    FbxLoader loader;
    importFile(loader, samplePath("maya_cube_7400_binary.fbx"));
    // Six quads, two triangles each.
    ASSERT_EQ(loader.vertexCount, 36);
    // The first quad is 0, 1, 3, 2: triangles (0, 1, 3) and (0, 3, 2).
    const float first[6][3] = {{-0.5f, -0.5f, 0.5f}, {0.5f, -0.5f, 0.5f}, {0.5f, 0.5f, 0.5f},
                               {-0.5f, -0.5f, 0.5f}, {0.5f, 0.5f, 0.5f},  {-0.5f, 0.5f, 0.5f}};
    for (int c = 0; c < 6; ++c)
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(loader.vertices[c * 4 + i], first[c][i]) << c;
    // Per-corner values come from the file's polygon vertex of that corner: the top face
    // (second quad) has normal (0, 1, 0) at all of its corners, UVs from UVIndex 2, 3, 5, 4.
    for (int c = 6; c < 12; ++c)
        EXPECT_EQ(loader.normals[c * 3 + 1], 1.0f) << c;
    const float secondUvs[6][2] = {{0.375f, 0.25f}, {0.625f, 0.25f}, {0.625f, 0.5f},
                                   {0.375f, 0.25f}, {0.625f, 0.5f},  {0.375f, 0.5f}};
    for (int c = 0; c < 6; ++c)
    {
        EXPECT_EQ(loader.uvs[(6 + c) * 2], secondUvs[c][0]) << c;
        EXPECT_EQ(loader.uvs[(6 + c) * 2 + 1], secondUvs[c][1]) << c;
    }
}

TEST_F(FbxLoaderTest, LargePolygonsFanAndDegenerateOnesAreSkipped)
{
    AsciiMesh m;
    m.vertices = {0, 0, 0, 1, 0, 0, 2, 1, 0, 1, 2, 0, 0, 1, 0};
    // A pentagon, a line, a point, a triangle.
    m.polygonVertices = {0, 1, 2, 3, -5, 0, -2, -1, 2, 3, -5};
    FbxLoader loader;
    importText(loader, asciiFile({m}));
    ASSERT_EQ(loader.vertexCount, 3 * 4);
    const int corners[12] = {0, 1, 2, 0, 2, 3, 0, 3, 4, 2, 3, 4};
    for (int c = 0; c < 12; ++c)
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(loader.vertices[c * 4 + i], float(m.vertices[corners[c] * 3 + i])) << c;
}

TEST_F(FbxLoaderTest, TextureCoordinateRules)
{
    // By control point with an index: stored through the index array.
    AsciiMesh m = twoTriangles();
    m.layerElements = layerElement("UV", 0, "ByVertice", "IndexToDirect",
                                   "UV: *4 {a: 0.25,0.5, 0.75,1} UVIndex: *4 {a: 1,0,1,0}");
    m.layers = layerOf(0, {{"UV", 0}});
    FbxLoader indexed;
    importText(indexed, asciiFile({m}));
    ASSERT_EQ(indexed.vertexCount, 6);
    const int points[6] = {0, 1, 2, 0, 2, 3};
    for (int c = 0; c < 6; ++c)
        EXPECT_EQ(indexed.uvs[c * 2], points[c] % 2 == 0 ? 0.75f : 0.25f) << c;

    // By control point, direct: reported in verbose, never stored.
    m.layerElements =
        layerElement("UV", 0, "ByVertice", "Direct", "UV: *8 {a: 0.5,0.5,0.5,0.5,0.5,0.5,0.5,0.5}");
    FbxLoader direct;
    direct.verbose = true;
    std::string report = importText(direct, asciiFile({m}));
    EXPECT_TRUE(contains(report, "            Texture UV (on layer 0): 0.500000, 0.500000\n"));
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(direct.uvs[i], 0.0f);

    // By polygon vertex: through the mesh's texture-UV index, which is taken from layer 0.
    m.layerElements = layerElement("UV", 0, "ByPolygonVertex", "IndexToDirect",
                                   "UV: *4 {a: 0.1,0.1, 0.9,0.9} UVIndex: *6 {a: 0,1,0,1,0,1}") +
                      layerElement("UV", 1, "ByPolygonVertex", "IndexToDirect",
                                   "UV: *4 {a: 0.2,0.2, 0.8,0.8} UVIndex: *6 {a: 1,1,1,1,1,1}");
    m.layers = layerOf(0, {{"UV", 0}}) + layerOf(1, {{"UV", 1}});
    FbxLoader layered;
    importText(layered, asciiFile({m}));
    ASSERT_EQ(layered.vertexCount, 6);
    // Layer 1 is applied last, but with layer 0's indices 0, 1, 0, 1, 0, 1.
    const float u[6] = {0.2f, 0.8f, 0.2f, 0.8f, 0.2f, 0.8f};
    for (int c = 0; c < 6; ++c)
        EXPECT_FLOAT_EQ(layered.uvs[c * 2], u[c]) << c;

    // Indices outside the arrays are skipped, not followed.
    m.layerElements = layerElement("UV", 0, "ByPolygonVertex", "IndexToDirect",
                                   "UV: *2 {a: 0.5,0.5} UVIndex: *6 {a: 0,99,-5,0,2147483647,0}");
    m.layers = layerOf(0, {{"UV", 0}});
    FbxLoader hostile;
    importText(hostile, asciiFile({m}));
    ASSERT_EQ(hostile.vertexCount, 6);
    EXPECT_EQ(hostile.uvs[0], 0.5f);
    EXPECT_EQ(hostile.uvs[2], 0.0f);
}

TEST_F(FbxLoaderTest, UnsupportedGroupAssignmentIsAlwaysReported)
{
    AsciiMesh m = twoTriangles();
    m.layerElements = layerElement("PolygonGroup", 0, "ByPolygonVertex", "Index",
                                   "PolygonGroup: *6 {a: 0,0,0,0,0,0}");
    m.layers = layerOf(0, {{"PolygonGroup", 0}});
    FbxLoader loader;
    std::string report = importText(loader, asciiFile({m}));
    // Once per polygon, without verbose.
    size_t count = 0;
    for (size_t at = report.find("        \"unsupported group assignment\"\n");
         at != std::string::npos;
         at = report.find("        \"unsupported group assignment\"\n", at + 1))
        ++count;
    EXPECT_EQ(count, 2u);

    m.layerElements =
        layerElement("PolygonGroup", 0, "ByPolygon", "Index", "PolygonGroup: *2 {a: 4,5}");
    FbxLoader byPolygon;
    std::string quiet = importText(byPolygon, asciiFile({m}));
    EXPECT_FALSE(contains(quiet, "unsupported group assignment"));
    EXPECT_FALSE(contains(quiet, "Assigned to group"));
    FbxLoader loud;
    loud.verbose = true;
    EXPECT_TRUE(contains(importText(loud, asciiFile({m})), "        Assigned to group: 5\n"));
}

TEST_F(FbxLoaderTest, MissingFileGivesTheFailureLinesAndAnEmptyResult)
{
    testing::internal::CaptureStdout();
    FbxLoader loader;
    bool ok = loader.load("/nonexistent/level.fbx");
    loader.printMetaData();
    loader.printHierarchy();
    loader.convertNodes();
    std::string report = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(ok);
    EXPECT_TRUE(contains(report, "\n-------loading the scene\n"));
    EXPECT_TRUE(contains(
        report,
        "Reading File failed: cannot open /nonexistent/level.fbx: No such file or directory\n"));
    EXPECT_TRUE(
        contains(report, "\nFBX version number for file /nonexistent/level.fbx is 0.0.0\n\n"));
    EXPECT_TRUE(contains(report, "File Format not recognized: "));
    EXPECT_TRUE(contains(report, "Importing File failed: "));
    EXPECT_FALSE(contains(report, "Node is a"));
    EXPECT_NE(loader.error(), "");
    EXPECT_EQ(loader.vertexCount, 0);
    EXPECT_EQ(loader.vertices, nullptr);
    EXPECT_EQ(loader.normals, nullptr);
    EXPECT_EQ(loader.uvs, nullptr);
}

TEST_F(FbxLoaderTest, TruncatedOrCorruptFileFailsToImport)
{
    SKIP_WITHOUT_SAMPLES();
    std::vector<uint8_t> bytes = readBytes(samplePath("maya_cube_7400_binary.fbx"));
    std::vector<uint8_t> half(bytes.begin(), bytes.begin() + bytes.size() / 2);
    std::string path = tempPath("truncated.fbx");
    writeBytes(path, half);
    files_.push_back(path);
    FbxLoader loader;
    std::string report = importFile(loader, path);
    EXPECT_TRUE(contains(report, "Reading File succeeded\n"));
    EXPECT_TRUE(contains(report, "File Format recognized\n"));
    // "Definitions at byte 3886: end offset 12284 lies outside bytes 3910..10072"
    EXPECT_TRUE(contains(report, "Importing File failed: " + loader.error() + "\n"));
    EXPECT_TRUE(contains(loader.error(), " at byte "));
    EXPECT_EQ(loader.vertexCount, 0);
    EXPECT_EQ(loader.vertices, nullptr);

    FbxLoader garbage;
    std::string text = importText(garbage, "this is not an FBX file");
    EXPECT_TRUE(contains(text, "File Format not recognized: at byte 0: not an FBX file"));
    EXPECT_EQ(garbage.vertexCount, 0);
}

TEST_F(FbxLoaderTest, ReportOfTheMayaCube)
{
    SKIP_WITHOUT_SAMPLES();
    testing::internal::CaptureStdout();
    FbxLoader loader;
    std::string header = testing::internal::GetCapturedStdout();
    EXPECT_EQ(header,
              "\n-------FBX Loader-------------\nFBX version number for this FBX SDK is 1.0.0\n\n");

    const std::string path = samplePath("maya_cube_7400_ascii.fbx");
    std::string report = importFile(loader, path);
    const std::string expected[] = {
        "\n-------loading the scene\nReading File succeeded\n",
        "\nFBX version number for file " + path + " is 7.4.0\n\n",
        "File Format recognized\n",
        "Take Information\n   Number of takes: 1\n   Current take: \"Take 001\"\n",
        "    Take 0\n         Name: \"Take 001\"\n         Description: \"\"\n         Import "
        "Name: \"Take 001\"\n"
        "         Import State: true\n",
        "Importing File succeeded\n",
        "Meta-Data",
        "    Title: \n    Subject: \n    Author: \n    Keywords: \n    Revision: \n    Comment: \n",
        "Hierarchy\n---------------------\n\npCube1\n",
        "Node Content",
        "Node is a Mesh\nMesh Name: pCube1\n",
        "    Geometric Transformations\n        Translation: 0.000000 0.000000 0.000000\n"
        "        Rotation:    0.000000 0.000000 0.000000\n        Scaling:     1.000000 1.000000 "
        "1.000000\n",
    };
    size_t at = 0;
    for (const std::string& part : expected)
    {
        size_t found = report.find(part, at);
        ASSERT_NE(found, std::string::npos) << "missing, or out of order:\n"
                                            << part << "\nin:\n"
                                            << report;
        at = found + part.size();
    }
    EXPECT_FALSE(contains(report, "Format: RGB"));
}

TEST_F(FbxLoaderTest, NodeTypeLines)
{
    SKIP_WITHOUT_SAMPLES();
    FbxLoader blender;
    std::string report = importFile(blender, samplePath("blender_279_default_7400_binary.fbx"));
    EXPECT_TRUE(contains(report, "Node is a Mesh\nMesh Name: Cube\n"));
    EXPECT_TRUE(contains(report, "Node is a Light\n    Geometric Transformations\n"));
    EXPECT_TRUE(contains(report, "Node is a Camera\n    Geometric Transformations\n"));
    EXPECT_EQ(blender.vertexCount, 36);

    FbxLoader zoo;
    std::string zooReport = importFile(zoo, samplePath("maya_node_attribute_zoo_7500_binary.fbx"));
    EXPECT_TRUE(contains(zooReport, "Node is a Skeleton\n"));
    EXPECT_TRUE(contains(zooReport, "Hierarchy\n---------------------\n\nNull\nMesh\nBone\n"));
    EXPECT_TRUE(contains(zooReport,
                         "LodGroup\n    LOD_0\n        pSphere1\n    LOD_1\n        pSphere1\n"));
    // The last sphere wins: 20 triangles.
    EXPECT_EQ(zoo.vertexCount, 60);

    // A 7.x Model without an attribute object.
    std::string bare = "FBXHeaderExtension: {\n FBXVersion: 7400\n}\nObjects: {\n Model: 5, "
                       "\"Model::empty\", \"Null\" {\n }\n}\n"
                       "Connections: {\n C: \"OO\",5,0\n}\n";
    FbxLoader none;
    std::string noneReport = importText(none, bare);
    EXPECT_TRUE(contains(noneReport, "\nempty\n"));
    EXPECT_TRUE(contains(noneReport, "NULL Node Attribute\n\n    Geometric Transformations\n"));
}

TEST_F(FbxLoaderTest, ThumbnailInTheMetaData)
{
    SKIP_WITHOUT_SAMPLES();
    FbxLoader loader;
    std::string report = importFile(loader, samplePath("motionbuilder_thumbnail_7700_binary.fbx"));
    EXPECT_TRUE(contains(
        report,
        "    Comment: \n        Format: RGBA\n        Size: 128 x 128 pixels (65536 bytes)\n"));
}

TEST_F(FbxLoaderTest, GeometricTransformsArePrintedNotApplied)
{
    SKIP_WITHOUT_SAMPLES();
    FbxLoader loader;
    std::string report = importFile(loader, samplePath("max_geometry_transform_7700_binary.fbx"));
    EXPECT_TRUE(contains(report, "        Translation: 0.000000 -0.000000 10.000000\n"
                                 "        Rotation:    -0.000009 90.000000 0.000000\n"
                                 "        Scaling:     1.000000 1.000000 2.000000\n"));
    // Box002, the last mesh, as its control points are written.
    std::optional<fbx::Document> doc = loadSample("max_geometry_transform_7700_binary.fbx");
    ASSERT_TRUE(doc);
    const fbx::Mesh& box2 = doc->meshes().at(1);
    ASSERT_EQ(loader.vertexCount, 36);
    int32_t first = box2.polygonVertex(0);
    EXPECT_EQ(loader.vertices[0], float(box2.controlPoints[first * 3]));
    EXPECT_EQ(loader.vertices[2], float(box2.controlPoints[first * 3 + 2]));
}
