// The FBX reader against real files written by Maya, MotionBuilder, 3ds Max and Blender,
// and against small files made here to break it.

#include <cmath>
#include <fstream>
#include <sstream>

#include "FbxTestSupport.h"
#include "fbx/Document.h"
#include "fbx/Reader.h"

using namespace fbx;
using namespace fbxtest;

namespace
{

const Node* nodeNamed(const Document& d, std::string_view name)
{
    for (int n : d.walkOrder())
        if (d.nodes()[n].name == name)
            return &d.nodes()[n];
    return nullptr;
}

const Mesh& onlyMesh(const Document& d)
{
    EXPECT_EQ(d.meshes().size(), 1u);
    return d.meshes().front();
}

// The "v x y z" lines of an OBJ file.
std::vector<std::array<double, 3>> objPositions(const std::string& path)
{
    std::ifstream in(path);
    std::vector<std::array<double, 3>> out;
    std::string line;
    while (std::getline(in, line))
    {
        if (line.rfind("v ", 0) != 0)
            continue;
        std::istringstream s(line.substr(2));
        std::array<double, 3> p{};
        s >> p[0] >> p[1] >> p[2];
        out.push_back(p);
    }
    return out;
}

void expectSameElements(const LayerElement& a, const LayerElement& b)
{
    EXPECT_EQ(a.kind, b.kind);
    EXPECT_EQ(a.layer, b.layer);
    EXPECT_EQ(a.name, b.name);
    EXPECT_EQ(a.mappingName, b.mappingName);
    EXPECT_EQ(a.referenceName, b.referenceName);
    EXPECT_TRUE(std::ranges::equal(a.direct, b.direct));
    EXPECT_TRUE(std::ranges::equal(a.directInts, b.directInts));
    EXPECT_TRUE(std::ranges::equal(a.index, b.index));
}

void expectSameMesh(const Mesh& a, const Mesh& b)
{
    EXPECT_TRUE(std::ranges::equal(a.controlPoints, b.controlPoints));
    EXPECT_TRUE(std::ranges::equal(a.polygonVertexIndex, b.polygonVertexIndex));
    EXPECT_EQ(a.polygonStarts, b.polygonStarts);
    EXPECT_TRUE(std::ranges::equal(a.edges, b.edges));
    ASSERT_EQ(a.layerElements.size(), b.layerElements.size());
    for (size_t i = 0; i < a.layerElements.size(); ++i)
        expectSameElements(a.layerElements[i], b.layerElements[i]);
}

// Same objects (names, classes; twins exported separately have different ids), connections,
// hierarchy and mesh data.
void expectSameDocument(const Document& a, const Document& b)
{
    ASSERT_EQ(a.objects().size(), b.objects().size());
    for (size_t i = 0; i < a.objects().size(); ++i)
    {
        const Object& x = a.objects()[i];
        const Object& y = b.objects()[i];
        EXPECT_EQ(x.name, y.name);
        EXPECT_EQ(x.className, y.className);
        EXPECT_EQ(x.subClass, y.subClass);
        EXPECT_EQ(x.record->name, y.record->name);
        EXPECT_EQ(x.properties.size(), y.properties.size());
    }
    ASSERT_EQ(a.connections().size(), b.connections().size());
    for (size_t i = 0; i < a.connections().size(); ++i)
    {
        EXPECT_EQ(a.connections()[i].child, b.connections()[i].child);
        EXPECT_EQ(a.connections()[i].parent, b.connections()[i].parent);
        EXPECT_EQ(a.connections()[i].type, b.connections()[i].type);
    }
    ASSERT_EQ(a.nodes().size(), b.nodes().size());
    for (size_t i = 0; i < a.nodes().size(); ++i)
    {
        EXPECT_EQ(a.nodes()[i].name, b.nodes()[i].name);
        EXPECT_EQ(a.nodes()[i].attributeType, b.nodes()[i].attributeType);
        EXPECT_EQ(a.nodes()[i].children, b.nodes()[i].children);
    }
    ASSERT_EQ(a.meshes().size(), b.meshes().size());
    for (size_t i = 0; i < a.meshes().size(); ++i)
        expectSameMesh(a.meshes()[i], b.meshes()[i]);
    EXPECT_EQ(a.takes().size(), b.takes().size());
    EXPECT_EQ(a.currentTake(), b.currentTake());
}

void expectSameRecords(const Record& a, const Record& b)
{
    ASSERT_EQ(a.name, b.name);
    EXPECT_EQ(a.offset, b.offset);
    ASSERT_EQ(a.properties.size(), b.properties.size()) << a.name;
    for (size_t i = 0; i < a.properties.size(); ++i)
    {
        const Property& x = a.properties[i];
        const Property& y = b.properties[i];
        ASSERT_EQ(x.type(), y.type());
        EXPECT_EQ(x.toInt64(), y.toInt64());
        EXPECT_EQ(x.toString(), y.toString());
        ASSERT_EQ(x.count(), y.count());
        EXPECT_TRUE(std::ranges::equal(x.bytes(), y.bytes())) << a.name;
    }
    ASSERT_EQ(a.children.size(), b.children.size()) << a.name;
    for (size_t i = 0; i < a.children.size(); ++i)
        expectSameRecords(a.children[i], b.children[i]);
}

} // namespace

// How the reader is used: load a file, walk the node tree, read a mesh.
TEST(FbxReader, HelloCube)
{
    SKIP_WITHOUT_SAMPLES();
    Result<Document> doc = Document::load(samplePath("maya_cube_7400_binary.fbx"));
    ASSERT_TRUE(doc.ok()) << doc.error().text();

    // One node below the root: the cube, whose attribute is a mesh.
    ASSERT_EQ(doc->walkOrder().size(), 1u);
    const Node& cube = doc->nodes()[doc->walkOrder()[0]];
    EXPECT_EQ(cube.name, "pCube1");
    EXPECT_EQ(cube.attributeType, AttributeType::Mesh);
    ASSERT_GE(cube.mesh, 0);

    // Six quads over eight corners, the last corner of each written negative.
    const Mesh& mesh = doc->meshes()[cube.mesh];
    EXPECT_EQ(mesh.controlPointCount(), 8u);
    ASSERT_EQ(mesh.polygonCount(), 6u);
    for (size_t p = 0; p < 6; ++p)
        EXPECT_EQ(mesh.polygonSize(p), 4u);
    EXPECT_EQ(mesh.polygonVertexIndex[3], -3); // control point 2, closing the first quad
    EXPECT_EQ(mesh.polygonVertex(3), 2);

    // The positions are the ones Maya wrote to its OBJ export of the same cube.
    std::vector<std::array<double, 3>> obj = objPositions(samplePath("maya_cube.obj"));
    ASSERT_EQ(obj.size(), 8u);
    for (size_t i = 0; i < 8; ++i)
        for (int c = 0; c < 3; ++c)
            EXPECT_DOUBLE_EQ(mesh.controlPoints[i * 3 + c], obj[i][c]) << "point " << i;

    // Layer elements keep their mapping exactly as written.
    const LayerElement* normals = mesh.element(LayerElementKind::Normal, 0);
    ASSERT_NE(normals, nullptr);
    EXPECT_EQ(normals->mappingName, "ByPolygonVertex");
    EXPECT_EQ(normals->reference, ReferenceType::Direct);
    EXPECT_EQ(normals->direct.size(), 72u);
    const LayerElement* uvs = mesh.element(LayerElementKind::UV, 0);
    ASSERT_NE(uvs, nullptr);
    EXPECT_EQ(uvs->name, "map1");
    EXPECT_EQ(uvs->reference, ReferenceType::IndexToDirect);
    EXPECT_EQ(uvs->direct.size(), 28u);
    EXPECT_EQ(uvs->index.size(), 24u);
    EXPECT_EQ(mesh.textureUvIndex(2), uvs->index[2]);
    const LayerElement* smoothing = mesh.element(LayerElementKind::Smoothing, 0);
    ASSERT_NE(smoothing, nullptr);
    EXPECT_EQ(smoothing->mapping, MappingType::ByEdge);
    EXPECT_EQ(smoothing->directInts.size(), 12u);
    const LayerElement* material = mesh.element(LayerElementKind::Material, 0);
    ASSERT_NE(material, nullptr);
    EXPECT_EQ(material->mapping, MappingType::AllSame);
    EXPECT_EQ(material->index.size(), 1u);
}

TEST(FbxReader, EverySampleParsesExceptTheDepthBomb)
{
    SKIP_WITHOUT_SAMPLES();
    std::vector<std::string> names = sampleNames();
    EXPECT_GE(names.size(), 15u);
    for (const std::string& name : names)
    {
        Result<Document> doc = Document::load(samplePath(name));
        if (name == "synthetic_node_depth_fail_7400_binary.fbx")
        {
            EXPECT_FALSE(doc.ok()) << name;
        }
        else
        {
            EXPECT_TRUE(doc.ok()) << name << ": " << (doc ? "" : doc.error().text());
        }
    }
}

TEST(FbxReader, BinaryAndAsciiTwinsGiveTheSameDocument)
{
    SKIP_WITHOUT_SAMPLES();
    const std::pair<const char*, const char*> twins[] = {
        {"maya_cube_7400_binary.fbx", "maya_cube_7400_ascii.fbx"},
        {"maya_cube_6100_binary.fbx", "maya_cube_6100_ascii.fbx"},
        {"maya_cube_7400_binary.fbx", "maya_cube_7500_binary.fbx"}, // 64-bit record headers
        {"maya_cube_7400_binary.fbx",
         "maya_cube_big_endian_7400_binary.fbx"}, // every field big-endian
        {"maya_cube_7400_binary.fbx",
         "maya_zero_end_7400_binary.fbx"}, // leaf records with end offset 0
    };
    for (const auto& [first, second] : twins)
    {
        SCOPED_TRACE(std::string(first) + " vs " + second);
        std::optional<Document> a = loadSample(first);
        std::optional<Document> b = loadSample(second);
        ASSERT_TRUE(a && b);
        expectSameDocument(*a, *b);
    }
    // 6.1 keeps the mesh in the Model and has no ids, but it is the same cube.
    std::optional<Document> v6 = loadSample("maya_cube_6100_ascii.fbx");
    std::optional<Document> v7 = loadSample("maya_cube_7400_ascii.fbx");
    ASSERT_TRUE(v6 && v7);
    expectSameMesh(onlyMesh(*v6), onlyMesh(*v7));
}

TEST(FbxReader, BlenderCubeMatchesItsObjExport)
{
    SKIP_WITHOUT_SAMPLES();
    // Blender wrote the OBJ Y-up from its Z-up scene: OBJ (x, y, z) is FBX (x, z, -y).
    std::vector<std::array<double, 3>> obj = objPositions(samplePath("blender_279_default.obj"));
    for (const char* name :
         {"blender_279_default_7400_binary.fbx", "blender_279_default_6100_ascii.fbx"})
    {
        SCOPED_TRACE(name);
        std::optional<Document> doc = loadSample(name);
        ASSERT_TRUE(doc);
        const Mesh& mesh = onlyMesh(*doc);
        ASSERT_EQ(mesh.controlPointCount(), obj.size());
        for (const auto& o : obj)
        {
            bool found = false;
            for (size_t i = 0; i < mesh.controlPointCount() && !found; ++i)
            {
                const double* p = mesh.controlPoints.data() + i * 3;
                found = std::abs(p[0] - o[0]) < 1e-5 && std::abs(p[2] - o[1]) < 1e-5 &&
                        std::abs(-p[1] - o[2]) < 1e-5;
            }
            EXPECT_TRUE(found) << o[0] << " " << o[1] << " " << o[2];
        }
    }
}

TEST(FbxReader, NodeAttributeTypes)
{
    SKIP_WITHOUT_SAMPLES();
    for (const char* name :
         {"blender_279_default_7400_binary.fbx", "blender_279_default_6100_ascii.fbx"})
    {
        SCOPED_TRACE(name);
        std::optional<Document> doc = loadSample(name);
        ASSERT_TRUE(doc);
        // Connection order is child order: Blender connected the cube, the lamp, the camera.
        std::vector<std::string> names;
        for (int n : doc->walkOrder())
            names.push_back(doc->nodes()[n].name);
        EXPECT_EQ(names, (std::vector<std::string>{"Cube", "Lamp", "Camera"}));
        EXPECT_EQ(nodeNamed(*doc, "Cube")->attributeType, AttributeType::Mesh);
        EXPECT_EQ(nodeNamed(*doc, "Lamp")->attributeType, AttributeType::Light);
        EXPECT_EQ(nodeNamed(*doc, "Camera")->attributeType, AttributeType::Camera);
    }

    std::optional<Document> zoo = loadSample("maya_node_attribute_zoo_7500_binary.fbx");
    ASSERT_TRUE(zoo);
    const std::pair<const char*, AttributeType> expected[] = {
        {"Null", AttributeType::Null},
        {"Mesh", AttributeType::Mesh},
        {"Bone", AttributeType::Skeleton},
        {"Camera", AttributeType::Camera},
        {"Light", AttributeType::Light},
        {"StereoCamera", AttributeType::CameraStereo},
        {"NurbsCurve", AttributeType::NurbsCurve},
        {"NurbsSurface", AttributeType::NurbsSurface},
        {"NurbsTrim", AttributeType::TrimNurbsSurface},
        {"LodGroup", AttributeType::LodGroup},
        {"LOD_0", AttributeType::Null},
    };
    for (const auto& [name, type] : expected)
    {
        const Node* n = nodeNamed(*zoo, name);
        ASSERT_NE(n, nullptr) << name;
        EXPECT_TRUE(n->hasAttribute) << name;
        EXPECT_EQ(n->attributeType, type) << name;
    }
    // The LOD group's children, in order, each holding its own sphere.
    const Node* lod = nodeNamed(*zoo, "LodGroup");
    ASSERT_EQ(lod->children.size(), 2u);
    EXPECT_EQ(zoo->nodes()[lod->children[0]].name, "LOD_0");
    EXPECT_EQ(zoo->nodes()[lod->children[1]].name, "LOD_1");
    const Node& sphere = zoo->nodes()[zoo->nodes()[lod->children[1]].children.at(0)];
    EXPECT_EQ(sphere.name, "pSphere1");
    EXPECT_EQ(sphere.depth, 2);
    ASSERT_GE(sphere.mesh, 0);
    EXPECT_EQ(zoo->meshes()[sphere.mesh].polygonCount(), 20u);
    // "curve1" hangs off a NURBS surface, not off a node: it is not in the hierarchy.
    EXPECT_EQ(nodeNamed(*zoo, "curve1"), nullptr);
    EXPECT_EQ(zoo->walkOrder().size(), 14u);
}

TEST(FbxReader, Reads64BitRecordHeaders)
{
    SKIP_WITHOUT_SAMPLES();
    std::optional<Document> doc = loadSample("maya_cube_7500_binary.fbx");
    ASSERT_TRUE(doc);
    EXPECT_EQ(doc->version(), 7500u);
    EXPECT_EQ(doc->versionNumbers().major, 7);
    EXPECT_EQ(doc->versionNumbers().minor, 5);
    EXPECT_EQ(onlyMesh(*doc).polygonCount(), 6u);
}

TEST(FbxReader, ZeroEndRecordsAreLeavesNotListEnds)
{
    SKIP_WITHOUT_SAMPLES();
    // The Creator record in the header has end offset 0 but a name and a property.
    std::optional<Document> doc = loadSample("maya_zero_end_7400_binary.fbx");
    ASSERT_TRUE(doc);
    const Record* header = doc->root().child("FBXHeaderExtension");
    ASSERT_NE(header, nullptr);
    const Record* creator = header->child("Creator");
    ASSERT_NE(creator, nullptr);
    EXPECT_EQ(creator->properties.at(0).toString(), "FBX SDK/FBX Plugins version 2019.2");
    // The records after it in the same list are still read.
    EXPECT_NE(header->child("SceneInfo"), nullptr);
    EXPECT_NE(doc->root().child("Objects"), nullptr);
}

TEST(FbxReader, DocumentInfoAndThumbnail)
{
    SKIP_WITHOUT_SAMPLES();
    std::optional<Document> doc = loadSample("motionbuilder_thumbnail_7700_binary.fbx");
    ASSERT_TRUE(doc);
    EXPECT_EQ(doc->version(), 7700u);
    const DocumentInfo* info = doc->documentInfo();
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->title, "");
    ASSERT_TRUE(info->thumbnail.has_value());
    EXPECT_EQ(info->thumbnail->format, 1); // RGBA
    EXPECT_EQ(info->thumbnail->size, 128);
    EXPECT_EQ(info->thumbnail->data.size(), 128u * 128u * 4u);

    // The 6.1 file keeps its scene info among the objects; the Blender 6.1 file has none.
    std::optional<Document> v6 = loadSample("maya_cube_6100_ascii.fbx");
    ASSERT_TRUE(v6);
    EXPECT_NE(v6->documentInfo(), nullptr);
    EXPECT_FALSE(v6->documentInfo()->thumbnail.has_value());
    std::optional<Document> blender = loadSample("blender_279_default_6100_ascii.fbx");
    ASSERT_TRUE(blender);
    EXPECT_EQ(blender->documentInfo(), nullptr);
}

TEST(FbxReader, Takes)
{
    SKIP_WITHOUT_SAMPLES();
    std::optional<Document> mb = loadSample("motionbuilder_thumbnail_7700_binary.fbx");
    ASSERT_TRUE(mb);
    EXPECT_EQ(mb->currentTake(), "Take 001");
    ASSERT_EQ(mb->takes().size(), 1u);
    const Take& take = mb->takes()[0];
    EXPECT_EQ(take.name, "Take 001");
    EXPECT_EQ(take.importName, "Take 001");
    EXPECT_TRUE(take.importState);
    EXPECT_EQ(take.fileName, "Take_001.tak");
    EXPECT_EQ(take.localStart, 0);
    EXPECT_EQ(take.localStop, 230930790000);

    std::optional<Document> blender6 = loadSample("blender_279_default_6100_ascii.fbx");
    ASSERT_TRUE(blender6);
    EXPECT_EQ(blender6->currentTake(), "Default Take");
    ASSERT_EQ(blender6->takes().size(), 1u);
    EXPECT_EQ(blender6->takes()[0].localStop, 479181389250);

    // Blender 2.79's 7.4 exporter writes an empty Takes section.
    std::optional<Document> blender7 = loadSample("blender_279_default_7400_binary.fbx");
    ASSERT_TRUE(blender7);
    EXPECT_TRUE(blender7->takes().empty());
}

TEST(FbxReader, GeometricTransformsWithTemplateDefaults)
{
    SKIP_WITHOUT_SAMPLES();
    std::optional<Document> doc = loadSample("max_geometry_transform_7700_binary.fbx");
    ASSERT_TRUE(doc);
    const Node* box1 = nodeNamed(*doc, "Box001");
    const Node* box2 = nodeNamed(*doc, "Box002");
    ASSERT_TRUE(box1 && box2);
    EXPECT_EQ(doc->nodes()[box2->parent].name, "Box001");
    EXPECT_NEAR(box1->geometricTranslation[1], -2.1855696e-07, 1e-12);
    EXPECT_DOUBLE_EQ(box1->geometricTranslation[2], 10.0);
    EXPECT_DOUBLE_EQ(box1->geometricRotation[1], 90.0);
    EXPECT_EQ(box1->geometricScaling, (std::array<double, 3>{1, 1, 2}));
    // Box002 writes only a translation; rotation and scaling come from the FbxNode template.
    EXPECT_NEAR(box2->geometricTranslation[0], 10.0, 1e-5);
    EXPECT_EQ(box2->geometricRotation, (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(box2->geometricScaling, (std::array<double, 3>{1, 1, 1}));
    const PropertyValue* templ = doc->findProperty(*box2->model, "GeometricScaling");
    ASSERT_NE(templ, nullptr);
    EXPECT_EQ(templ->type, "Vector3D");
}

TEST(FbxReader, UvAndColourSetsOnTheirLayers)
{
    SKIP_WITHOUT_SAMPLES();
    std::optional<Document> doc = loadSample("maya_uv_and_color_sets_7500_binary.fbx");
    ASSERT_TRUE(doc);
    const Mesh& mesh = onlyMesh(*doc);
    std::vector<const LayerElement*> uvs = mesh.elements(LayerElementKind::UV);
    ASSERT_EQ(uvs.size(), 2u);
    EXPECT_EQ(uvs[0]->name, "UVA");
    EXPECT_EQ(uvs[0]->layer, 0);
    EXPECT_EQ(uvs[1]->name, "UVB");
    EXPECT_EQ(uvs[1]->layer, 1);
    EXPECT_EQ(uvs[1]->direct.size(), 48u);
    std::vector<const LayerElement*> colours = mesh.elements(LayerElementKind::Color);
    ASSERT_EQ(colours.size(), 2u);
    EXPECT_EQ(colours[0]->name, "ColorA");
    EXPECT_EQ(colours[1]->name, "ColorB");
    EXPECT_EQ(colours[1]->components, 4);
    EXPECT_EQ(colours[1]->referenceName, "IndexToDirect");
    EXPECT_EQ(colours[1]->index.size(), 24u);
}

TEST(FbxReader, ConnectionsByNameIn61)
{
    SKIP_WITHOUT_SAMPLES();
    for (const char* name : {"maya_cube_6100_ascii.fbx", "maya_cube_6100_binary.fbx"})
    {
        SCOPED_TRACE(name);
        std::optional<Document> doc = loadSample(name);
        ASSERT_TRUE(doc);
        EXPECT_EQ(doc->version(), 6100u);
        ASSERT_EQ(doc->connections().size(), 2u);
        const Connection& c = doc->connections()[0];
        EXPECT_EQ(c.childName, "Model::pCube1");
        EXPECT_EQ(c.parentName, "Model::Scene");
        EXPECT_EQ(c.parent, kRootObject);
        const Object* cube = doc->findObjectByName("Model::pCube1");
        ASSERT_NE(cube, nullptr);
        EXPECT_EQ(cube->subClass, "Mesh");
        EXPECT_EQ(onlyMesh(*doc).geometry, cube); // the mesh data sits in the Model
        const PropertyValue* visibility = doc->findProperty(*cube, "Visibility");
        ASSERT_NE(visibility, nullptr); // from Properties60
        EXPECT_DOUBLE_EQ(visibility->number(), 1.0);
    }
}

TEST(FbxReader, ObjectsByIdIn7x)
{
    SKIP_WITHOUT_SAMPLES();
    std::optional<Document> doc = loadSample("maya_cube_7400_ascii.fbx");
    ASSERT_TRUE(doc);
    const Object* geometry = doc->findObject(1907663073408);
    ASSERT_NE(geometry, nullptr);
    EXPECT_EQ(geometry->className, "Geometry");
    EXPECT_EQ(geometry->name, "");
    EXPECT_EQ(geometry->subClass, "Mesh");
    const Object* model = doc->findObject(1907292236800);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->fullName(), "Model::pCube1");
    // Own properties first, template defaults after.
    EXPECT_EQ(doc->findProperty(*model, "currentUVSet")->string(), "map1");
    EXPECT_EQ(doc->findProperty(*model, "Lcl Scaling")->vec3({0, 0, 0}),
              (std::array<double, 3>{1, 1, 1}));
    EXPECT_EQ(doc->findProperty(*model, "NoSuchProperty"), nullptr);
}

TEST(FbxReader, DepthBombIsAClearError)
{
    SKIP_WITHOUT_SAMPLES();
    Result<Document> doc = Document::load(samplePath("synthetic_node_depth_fail_7400_binary.fbx"));
    ASSERT_FALSE(doc.ok());
    EXPECT_GT(doc.error().offset, 0);
    EXPECT_NE(doc.error().path, "");
    EXPECT_NE(doc.error().text().find(" at byte "), std::string::npos) << doc.error().text();
}

TEST(FbxReader, DeepNestingIsCappedNotRecursedInto)
{
    // Binary: records nested 10000 deep with consistent end offsets.
    BinaryFbxWriter w;
    for (int i = 0; i < 10000; ++i)
        w.begin("A");
    std::vector<uint8_t> binary = w.finish();
    Result<RecordTree> b = parse(binary);
    ASSERT_FALSE(b.ok());
    EXPECT_NE(b.error().reason.find("nested deeper than 64"), std::string::npos)
        << b.error().text();
    EXPECT_EQ(b.error().path.substr(0, 6), "A/A/A/");

    // ASCII: a million opening braces.
    std::string ascii;
    for (int i = 0; i < 1000000; ++i)
        ascii += "A: {";
    Result<RecordTree> a = parse(bytesOf(ascii));
    ASSERT_FALSE(a.ok());
    EXPECT_NE(a.error().reason.find("nested deeper than 64"), std::string::npos)
        << a.error().text();

    // 64 levels are fine.
    BinaryFbxWriter ok;
    for (int i = 0; i < 64; ++i)
        ok.begin("A");
    EXPECT_TRUE(parse(ok.finish()).ok());
}

TEST(FbxReader, MissingNormalsAreAbsent)
{
    SKIP_WITHOUT_SAMPLES();
    // The layer lists a LayerElementNormal that the geometry does not have.
    std::optional<Document> doc = loadSample("synthetic_missing_normals_7400_ascii.fbx");
    ASSERT_TRUE(doc);
    const Mesh& mesh = onlyMesh(*doc);
    EXPECT_TRUE(mesh.elements(LayerElementKind::Normal).empty());
    EXPECT_NE(mesh.element(LayerElementKind::UV, 0), nullptr);

    // A normal element without its Normals array is absent too.
    AsciiMesh m;
    m.vertices = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    m.polygonVertices = {0, 1, -3};
    m.layerElements = layerElement("Normal", 0, "ByPolygonVertex", "Direct", "");
    m.layers = layerOf(0, {{"Normal", 0}});
    Result<Document> bare = Document::parse(bytesOf(asciiFile({m})));
    ASSERT_TRUE(bare.ok()) << bare.error().text();
    EXPECT_TRUE(bare->meshes().at(0).layerElements.empty());
}

TEST(FbxReader, MappingAndReferenceNamesAsWritten)
{
    AsciiMesh m;
    m.vertices = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    m.polygonVertices = {0, 1, -3};
    m.layerElements =
        layerElement("Normal", 0, "ByVertice", "Direct", "Normals: *9 {a: 0,0,1,0,0,1,0,0,1}") +
        layerElement("UV", 0, "ByPolygon", "Index", "UV: *2 {a: 0.5,0.5} UVIndex: *1 {a: 0}") +
        layerElement("Material", 0, "AllSame", "IndexToDirect", "Materials: *1 {a: 0}") +
        layerElement("PolygonGroup", 0, "ByPolygon", "Index", "PolygonGroup: *1 {a: 7}") +
        layerElement("Color", 0, "Sideways", "Backwards", "Colors: *4 {a: 1,0,0,1}");
    Result<Document> doc = Document::parse(bytesOf(asciiFile({m})));
    ASSERT_TRUE(doc.ok()) << doc.error().text();
    const Mesh& mesh = doc->meshes().at(0);
    const LayerElement* n = mesh.element(LayerElementKind::Normal, 0);
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(n->mappingName, "ByVertice");
    EXPECT_EQ(n->mapping, MappingType::ByControlPoint);
    const LayerElement* uv = mesh.element(LayerElementKind::UV, 0);
    EXPECT_EQ(uv->mapping, MappingType::ByPolygon);
    EXPECT_EQ(uv->reference, ReferenceType::Index);
    EXPECT_EQ(mesh.element(LayerElementKind::Material, 0)->mapping, MappingType::AllSame);
    EXPECT_EQ(mesh.element(LayerElementKind::PolygonGroup, 0)->index[0], 7);
    const LayerElement* colour = mesh.element(LayerElementKind::Color, 0);
    EXPECT_EQ(colour->mapping, MappingType::Unknown);
    EXPECT_EQ(colour->reference, ReferenceType::Unknown);
    EXPECT_EQ(colour->mappingName, "Sideways");
}

TEST(FbxReader, CompressedArraysMustInflateToTheirDeclaredSize)
{
    auto file = [](int64_t declared)
    {
        BinaryFbxWriter w;
        w.begin("Objects");
        w.begin("Geometry");
        w.int64(1);
        w.string(std::string("g\0\1Geometry", 11));
        w.string("Mesh");
        w.begin("Vertices");
        w.doubles(std::vector<double>(300, 0.25), true, declared);
        return w.finish();
    };
    Result<Document> good = Document::parse(file(-1));
    ASSERT_TRUE(good.ok()) << good.error().text();
    EXPECT_EQ(good->meshes().at(0).controlPointCount(), 100u);

    for (int64_t lie : {299, 301, 256})
    {
        Result<Document> bad = Document::parse(file(lie));
        ASSERT_FALSE(bad.ok());
        EXPECT_EQ(bad.error().path, "Objects/Geometry/Vertices");
        std::string expected =
            "compressed array does not inflate to " + std::to_string(lie * 8) + " bytes";
        EXPECT_EQ(bad.error().reason, expected);
        EXPECT_NE(bad.error().text().find("Objects/Geometry/Vertices at byte "), std::string::npos)
            << bad.error().text();
    }
}

TEST(FbxReader, AbsurdSizesAreRefusedBeforeAllocating)
{
    // Four billion doubles cannot come out of a few dozen compressed bytes.
    BinaryFbxWriter w;
    w.begin("Huge");
    w.doubles({1, 2, 3}, true, 0xFFFFFFFF);
    Result<RecordTree> huge = parse(w.finish());
    ASSERT_FALSE(huge.ok());
    EXPECT_NE(huge.error().reason.find("cannot inflate to 34359738360 bytes"), std::string::npos)
        << huge.error().text();

    // A raw array must hold exactly its declared bytes.
    BinaryFbxWriter raw;
    raw.begin("Raw");
    raw.doubles({1, 2, 3}, false, 4);
    EXPECT_FALSE(parse(raw.finish()).ok());

    // The memory budget applies to everything parsed.
    BinaryFbxWriter big;
    big.begin("Big");
    big.doubles(std::vector<double>(100000, 1.0), true);
    std::vector<uint8_t> bytes = big.finish();
    EXPECT_TRUE(parse(bytes).ok());
    ParseOptions tight;
    tight.memoryBudget = 500000;
    Result<RecordTree> over = parse(bytes, tight);
    ASSERT_FALSE(over.ok());
    EXPECT_NE(over.error().reason.find("memory budget"), std::string::npos);
}

TEST(FbxReader, RecordEndsMustLieInsideTheParentAndMoveForward)
{
    BinaryFbxWriter w;
    w.begin("Parent");
    w.begin("Child");
    w.int32(5);
    w.end();
    w.end();
    std::vector<uint8_t> good = w.finish();
    ASSERT_TRUE(parse(good).ok());

    // The child's end offset (its header follows the parent's 13-byte header and name) pointed past
    // its parent, then backwards.
    const size_t childHeader = 27 + 13 + 6;
    for (uint32_t end : {uint32_t(good.size()), uint32_t(childHeader)})
    {
        std::vector<uint8_t> bad = good;
        std::memcpy(bad.data() + childHeader, &end, 4);
        Result<RecordTree> r = parse(bad);
        ASSERT_FALSE(r.ok());
        EXPECT_EQ(r.error().path, "Parent/Child");
        EXPECT_EQ(r.error().offset, static_cast<int64_t>(childHeader));
    }
    // Cut short: no end-of-list record at the top.
    std::vector<uint8_t> cut(good.begin(), good.end() - 160 - 13);
    EXPECT_FALSE(parse(cut).ok());
}

TEST(FbxReader, ParallelInflationGivesTheSameTreeAndErrors)
{
    ParseOptions sequential;
    sequential.inflateThreads = 1;
    ParseOptions parallel;
    parallel.inflateThreads = 3;
    parallel.parallelInflateBytes = 1; // every compressed array goes to the threads
    auto same = [&](std::span<const uint8_t> bytes)
    {
        Result<RecordTree> a = parse(bytes, sequential);
        Result<RecordTree> b = parse(bytes, parallel);
        ASSERT_EQ(a.ok(), b.ok());
        if (a.ok())
            expectSameRecords(a->root, b->root);
        else
            EXPECT_EQ(a.error().text(), b.error().text());
    };

    BinaryFbxWriter w;
    w.begin("Arrays");
    for (int i = 0; i < 12; ++i)
    {
        w.begin("A" + std::to_string(i));
        std::vector<double> values(1000 + 300 * i);
        for (size_t k = 0; k < values.size(); ++k)
            values[k] = double(k % (7 + i));
        w.doubles(values, true);
        w.ints(std::vector<int32_t>(500, i), true);
        w.end();
    }
    std::vector<uint8_t> file = w.finish();
    same(file);
    // Corrupt streams, sizes and structure: the first error in file order either way.
    Random random(3);
    for (int i = 0; i < 600; ++i)
    {
        std::vector<uint8_t> bad = file;
        bad[random.below(bad.size())] ^= static_cast<uint8_t>(1 + random.below(255));
        same(bad);
    }
    if (haveSamples())
        for (const char* name :
             {"blender_279_default_7400_binary.fbx", "motionbuilder_thumbnail_7700_binary.fbx",
              "maya_cube_big_endian_7400_binary.fbx"})
            same(readBytes(samplePath(name)));
}

TEST(FbxReader, RecognisesOnlyFbx)
{
    EXPECT_FALSE(parse(bytesOf("")).ok());
    EXPECT_FALSE(parse(bytesOf("hello world")).ok());
    EXPECT_FALSE(parse(bytesOf("Kaydara FBX Bin")).ok());
    Result<FileInfo> ascii = sniff(bytesOf("; FBX 7.3.0 project file\nFBXHeaderExtension: {\n}\n"));
    ASSERT_TRUE(ascii.ok());
    EXPECT_EQ(ascii->format, Format::Ascii);
    EXPECT_EQ(ascii->version, 7300u);
    BinaryFbxWriter w(7100);
    Result<FileInfo> binary = sniff(w.finish());
    ASSERT_TRUE(binary.ok());
    EXPECT_EQ(binary->format, Format::Binary);
    EXPECT_EQ(binary->version, 7100u);
    Result<FileInfo> future = sniff(BinaryFbxWriter(9000).finish());
    ASSERT_FALSE(future.ok());
    EXPECT_EQ(future.error().reason, "unsupported FBX version 9000");
}

TEST(FbxReader, AsciiValuesOverSeveralLines)
{
    // 6.1 style: values continue after a trailing or leading comma, start on the next
    // line, and bare words and empty value lists occur.
    const char* text = "Key: \n"
                       "    1924423250,0.5,L,\n"
                       "    7,-2.5e3\n"
                       "   ,\"a &quot;quoted&quot; word\"\n"
                       "CameraIndexName:\n"
                       "Shading: T\n"
                       "Content: , \"abc\"\n"
                       "Big: 9000000000\n";
    Result<RecordTree> tree = parse(bytesOf(text));
    ASSERT_TRUE(tree.ok()) << tree.error().text();
    const Record& key = tree->root.children.at(0);
    ASSERT_EQ(key.properties.size(), 6u);
    EXPECT_EQ(key.properties[0].toInt64(), 1924423250);
    EXPECT_DOUBLE_EQ(key.properties[1].toDouble(), 0.5);
    EXPECT_EQ(key.properties[2].type(), PropertyType::Bool);
    EXPECT_EQ(key.properties[2].toInt64(), 'L');
    EXPECT_DOUBLE_EQ(key.properties[4].toDouble(), -2500.0);
    EXPECT_EQ(key.properties[5].toString(), "a \"quoted\" word");
    EXPECT_TRUE(tree->root.children.at(1).properties.empty());
    EXPECT_EQ(tree->root.children.at(2).properties.at(0).toInt64(), 'T');
    EXPECT_EQ(tree->root.children.at(3).properties.at(0).toString(), "abc");
    EXPECT_EQ(tree->root.children.at(4).properties.at(0).type(), PropertyType::Int64);
    EXPECT_EQ(tree->root.children.at(4).properties.at(0).toInt64(), 9000000000);
}

TEST(FbxReader, AsciiErrorsNameTheLineAndRecord)
{
    Result<RecordTree> r = parse(
        bytesOf("Objects: {\n  Geometry: 1, \"x\" {\n    Vertices: *3 {\n      a: 1,2,oops\n"));
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.error().path, "Objects/Geometry/Vertices");
    EXPECT_NE(r.error().reason.find("(line 4)"), std::string::npos) << r.error().text();
    Result<RecordTree> open = parse(bytesOf("Objects: {\n  Model: 1 {\n"));
    ASSERT_FALSE(open.ok());
    EXPECT_NE(open.error().reason.find("missing '}'"), std::string::npos);
}

TEST(FbxReader, PolygonIndicesMustNameControlPoints)
{
    AsciiMesh m;
    m.vertices = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    m.polygonVertices = {0, 1, -4}; // control point 3 of 3
    Result<Document> doc = Document::parse(bytesOf(asciiFile({m})));
    ASSERT_FALSE(doc.ok());
    EXPECT_EQ(doc.error().path, "Objects/Geometry/PolygonVertexIndex");

    // A last polygon without its end marker still counts as one.
    m.polygonVertices = {0, 1, -3, 2, 1, 0};
    Result<Document> open = Document::parse(bytesOf(asciiFile({m})));
    ASSERT_TRUE(open.ok()) << open.error().text();
    EXPECT_EQ(open->meshes().at(0).polygonCount(), 2u);
    EXPECT_EQ(open->meshes().at(0).polygonSize(1), 3u);
}

TEST(FbxReader, MissingFileIsAnError)
{
    Result<Document> doc = Document::load("/nonexistent/level.fbx");
    ASSERT_FALSE(doc.ok());
    EXPECT_EQ(doc.error().offset, -1);
    EXPECT_NE(doc.error().text().find("/nonexistent/level.fbx"), std::string::npos);
}
