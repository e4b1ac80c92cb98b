// The FBX reader against real files written by Maya, MotionBuilder, 3ds Max and Blender,
// and against small files made here to break it.

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <regex>
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

// Everything a record tree holds, as text: names, values and children, not where they sit.
void describe(const Record& r, std::ostream& out)
{
    out << r.name << " {";
    for (const Property& p : r.properties)
        out << ' ' << char(p.type()) << p.toInt64() << '/' << p.toDouble() << '/' << p.count()
            << '/'
            << std::string_view(reinterpret_cast<const char*>(p.bytes().data()), p.bytes().size());
    for (const Record& child : r.children)
        describe(child, out << '\n');
    out << "}";
}

std::string describe(const Record& r)
{
    std::ostringstream out;
    out.precision(17);
    describe(r, out);
    return out.str();
}

// The meshes of a document, or with `all` the whole scene: objects by name and class (twins
// exported separately have other ids), connections, hierarchy, meshes and takes.
std::string describe(const Document& d, bool all)
{
    std::ostringstream s;
    s.precision(17);
    auto list = [&](const auto& values)
    {
        for (auto v : values)
            s << v + 0.0 << ','; // -0 and 0 are the same value
        s << '\n';
    };
    for (const Mesh& m : d.meshes())
    {
        list(m.controlPoints);
        list(m.polygonVertexIndex);
        for (const LayerElement& e : m.layerElements)
        {
            s << int(e.kind) << e.layer << e.name << e.mappingName << e.referenceName << '\n';
            list(e.direct);
            list(e.directInts);
            list(e.index);
        }
    }
    if (!all)
        return s.str();
    for (const Object& o : d.objects())
        s << o.fullName() << ' ' << o.subClass << ' ' << o.properties.size() << '\n';
    for (const Connection& c : d.connections())
        s << c.type << ' ' << c.child << ' ' << c.parent << '\n';
    for (const Node& n : d.nodes())
    {
        s << n.name << ' ' << int(n.attributeType) << ':';
        list(n.children);
    }
    s << d.takes().size() << ' ' << d.currentTake();
    return s.str();
}

} // namespace

TEST(FbxReader, EverySampleParsesAtTheVersionInItsName)
{
    SKIP_WITHOUT_SAMPLES();
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(samplesDir()))
    {
        const std::string name = entry.path().filename().string();
        if (entry.path().extension() != ".fbx")
            continue;
        ++count;
        Result<Document> doc = Document::load(samplePath(name));
        if (name == "synthetic_node_depth_fail_7400_binary.fbx")
        {
            // Absurd nesting: an error naming the record and the byte, not a stack overflow.
            EXPECT_TRUE(!doc && doc.error().text().find(" at byte ") != std::string::npos);
            continue;
        }
        ASSERT_TRUE(doc.ok()) << name << ": " << doc.error().text();
        std::smatch version;
        ASSERT_TRUE(std::regex_search(name, version, std::regex("_([0-9]{4})_")));
        EXPECT_EQ(doc->version(), std::stoul(version[1])) << name;
    }
    EXPECT_GE(count, 15);
}

TEST(FbxReader, TwinFilesGiveTheSameDocument)
{
    SKIP_WITHOUT_SAMPLES();
    // The same scene, or with `records` even the same record tree.
    const std::tuple<const char*, const char*, bool> twins[] = {
        {"maya_cube_7400_binary.fbx", "maya_cube_7400_ascii.fbx", false},
        {"maya_cube_6100_binary.fbx", "maya_cube_6100_ascii.fbx", false},
        {"maya_cube_7400_binary.fbx", "maya_cube_7500_binary.fbx", false}, // 64-bit headers
        {"maya_cube_7400_binary.fbx", "maya_cube_big_endian_7400_binary.fbx", true},
        {"maya_cube_7400_binary.fbx", "maya_zero_end_7400_binary.fbx", true}, // leaves ending 0
    };
    for (const auto& [first, second, records] : twins)
    {
        std::optional<Document> a = loadSample(first);
        std::optional<Document> b = loadSample(second);
        ASSERT_TRUE(a && b);
        EXPECT_EQ(records ? describe(a->root()) : describe(*a, true),
                  records ? describe(b->root()) : describe(*b, true))
            << first << " vs " << second;
    }
    // 6.1 keeps the mesh in the Model and has no ids, but it is the same cube.
    EXPECT_EQ(describe(loadSample("maya_cube_6100_ascii.fbx").value(), false),
              describe(loadSample("maya_cube_7400_ascii.fbx").value(), false));
}

TEST(FbxReader, PositionsMatchTheObjExports)
{
    SKIP_WITHOUT_SAMPLES();
    // Blender wrote its OBJ Y-up from its Z-up scene: OBJ (x, y, z) is FBX (x, z, -y).
    const std::tuple<const char*, const char*, bool> files[] = {
        {"maya_cube_7400_binary.fbx", "maya_cube.obj", false},
        {"blender_279_default_7400_binary.fbx", "blender_279_default.obj", true},
        {"blender_279_default_6100_ascii.fbx", "blender_279_default.obj", true},
    };
    for (const auto& [fbxName, objName, zUp] : files)
    {
        std::optional<Document> doc = loadSample(fbxName);
        ASSERT_TRUE(doc && doc->meshes().size() == 1) << fbxName;
        const ArrayRef<double>& points = doc->meshes()[0].controlPoints;
        std::vector<std::array<double, 3>> obj; // the "v x y z" lines
        std::ifstream in(samplePath(objName));
        for (std::string tag; in >> tag; in.ignore(1 << 20, '\n'))
            if (tag == "v")
                in >> obj.emplace_back()[0] >> obj.back()[1] >> obj.back()[2];
        ASSERT_EQ(points.size(), obj.size() * 3) << fbxName;
        for (size_t i = 0; i < points.size(); i += 3)
        {
            const std::array<double, 3> p{points[i], points[i + (zUp ? 2 : 1)],
                                          zUp ? -points[i + 1] : points[i + 2]};
            double nearest = 1;
            for (const std::array<double, 3>& o : obj)
                nearest = std::min(nearest, std::abs(o[0] - p[0]) + std::abs(o[1] - p[1]) +
                                                std::abs(o[2] - p[2]));
            EXPECT_LT(nearest, 1e-5) << fbxName << " point " << i / 3;
        }
    }
}

TEST(FbxReader, NodesInWalkOrderWithTheirAttributeTypes)
{
    SKIP_WITHOUT_SAMPLES();
    using A = AttributeType;
    // Names indented by depth. Connection order is child order; "curve1" hangs off a NURBS
    // surface, not off a node, so it is not in the hierarchy.
    const std::vector<std::string> zooNames = {
        "Null",         "Mesh",       "Bone",         "Camera",    "Light",
        "StereoCamera", "NurbsCurve", "NurbsSurface", "NurbsTrim", "LodGroup",
        " LOD_0",       "  pSphere1", " LOD_1",       "  pSphere1"};
    const std::vector<A> zooTypes = {
        A::Null,       A::Mesh,         A::Skeleton,         A::Camera,   A::Light, A::CameraStereo,
        A::NurbsCurve, A::NurbsSurface, A::TrimNurbsSurface, A::LodGroup, A::Null,  A::Mesh,
        A::Null,       A::Mesh};
    const std::vector<std::string> blenderNames = {"Cube", "Lamp", "Camera"};
    const std::vector<A> blenderTypes = {A::Mesh, A::Light, A::Camera};
    const std::tuple<const char*, std::vector<std::string>, std::vector<A>> files[] = {
        {"blender_279_default_7400_binary.fbx", blenderNames, blenderTypes},
        {"blender_279_default_6100_ascii.fbx", blenderNames, blenderTypes},
        {"maya_node_attribute_zoo_7500_binary.fbx", zooNames, zooTypes},
    };
    for (const auto& [name, expectedNames, expectedTypes] : files)
    {
        std::optional<Document> doc = loadSample(name);
        ASSERT_TRUE(doc);
        std::vector<std::string> names;
        std::vector<A> types;
        for (int n : doc->walkOrder())
        {
            const Node& node = doc->nodes()[n];
            names.push_back(std::string(node.depth, ' ') + node.name);
            types.push_back(node.hasAttribute ? node.attributeType : A::Unknown);
        }
        EXPECT_EQ(names, expectedNames) << name;
        EXPECT_EQ(types, expectedTypes) << name;
    }
}

TEST(FbxReader, ThumbnailAndTakes)
{
    SKIP_WITHOUT_SAMPLES();
    std::optional<Document> mb = loadSample("motionbuilder_thumbnail_7700_binary.fbx");
    ASSERT_TRUE(mb && mb->documentInfo() && mb->documentInfo()->thumbnail);
    const Thumbnail& thumbnail = *mb->documentInfo()->thumbnail;
    EXPECT_EQ(thumbnail.format, 1); // RGBA
    EXPECT_EQ(thumbnail.size, 128);
    EXPECT_EQ(thumbnail.data.size(), 128u * 128u * 4u);

    // Blender 2.79's 7.4 exporter writes an empty Takes section.
    const std::tuple<const char*, std::string, size_t, int64_t> takes[] = {
        {"motionbuilder_thumbnail_7700_binary.fbx", "Take 001", 1, 230930790000},
        {"blender_279_default_6100_ascii.fbx", "Default Take", 1, 479181389250},
        {"blender_279_default_7400_binary.fbx", "", 0, 0},
    };
    for (const auto& [name, current, count, stop] : takes)
    {
        std::optional<Document> doc = loadSample(name);
        ASSERT_TRUE(doc);
        EXPECT_EQ(doc->currentTake(), current) << name;
        ASSERT_EQ(doc->takes().size(), count) << name;
        for (const Take& take : doc->takes())
            EXPECT_EQ(std::tie(take.name, take.localStop), std::tie(current, stop)) << name;
    }
}

TEST(FbxReader, GeometricTransformsWithTemplateDefaults)
{
    SKIP_WITHOUT_SAMPLES();
    std::optional<Document> doc = loadSample("max_geometry_transform_7700_binary.fbx");
    ASSERT_TRUE(doc);
    const Node* box1 = nodeNamed(*doc, "Box001");
    const Node* box2 = nodeNamed(*doc, "Box002");
    ASSERT_TRUE(box1 && box2);
    EXPECT_NEAR(box1->geometricTranslation[1], -2.1855696e-07, 1e-12);
    EXPECT_DOUBLE_EQ(box1->geometricTranslation[2], 10.0);
    EXPECT_DOUBLE_EQ(box1->geometricRotation[1], 90.0);
    EXPECT_EQ(box1->geometricScaling, (std::array<double, 3>{1, 1, 2}));
    // Box002 writes only a translation; rotation and scaling come from the FbxNode template.
    EXPECT_NEAR(box2->geometricTranslation[0], 10.0, 1e-5);
    EXPECT_EQ(box2->geometricRotation, (std::array<double, 3>{0, 0, 0}));
    EXPECT_EQ(box2->geometricScaling, (std::array<double, 3>{1, 1, 1}));
    EXPECT_NE(doc->findProperty(*box2->model, "GeometricScaling"), nullptr);
}

TEST(FbxReader, MissingNormalsAreAbsent)
{
    SKIP_WITHOUT_SAMPLES();
    // The layer lists a LayerElementNormal that the geometry does not have.
    std::optional<Document> doc = loadSample("synthetic_missing_normals_7400_ascii.fbx");
    ASSERT_TRUE(doc);
    EXPECT_TRUE(doc->meshes().at(0).elements(LayerElementKind::Normal).empty());
    EXPECT_NE(doc->meshes().at(0).element(LayerElementKind::UV, 0), nullptr);

    // A normal element without its Normals array is absent too.
    AsciiMesh m{"mesh",
                {0, 0, 0, 1, 0, 0, 0, 1, 0},
                {0, 1, -3},
                layerElement("Normal", 0, "ByPolygonVertex", "Direct", ""),
                layerOf(0, {{"Normal", 0}})};
    Result<Document> bare = Document::parse(bytesOf(asciiFile({m})));
    ASSERT_TRUE(bare.ok()) << bare.error().text();
    EXPECT_TRUE(bare->meshes().at(0).layerElements.empty());
}

// Hostile or broken files: each is an error naming the record and the byte, and none may
// allocate what its sizes claim before checking them.
TEST(FbxReader, MalformedFilesAreErrorsNamingTheRecord)
{
    auto array = [](size_t count, bool compress, int64_t declared)
    {
        BinaryFbxWriter w;
        w.begin("V");
        w.doubles(std::vector<double>(count, 0.25), compress, declared);
        return w.finish();
    };
    auto nested = [](int depth)
    {
        BinaryFbxWriter w;
        for (int i = 0; i < depth; ++i)
            w.begin("A");
        return w.finish();
    };
    BinaryFbxWriter parent;
    parent.begin("Parent");
    parent.record("Child", int32_t(5));
    const std::vector<uint8_t> good = parent.finish();
    ASSERT_TRUE(Document::parse(good).ok());
    const size_t child = 27 + 13 + 6; // after the file header and the parent's header and name
    auto childEnd = [&](uint32_t end)
    {
        std::vector<uint8_t> bad = good;
        std::memcpy(bad.data() + child, &end, 4);
        return bad;
    };
    auto text = [](std::string_view s) { return std::vector<uint8_t>(s.begin(), s.end()); };
    std::string braces;
    for (int i = 0; i < 1000000; ++i)
        braces += "A: {";
    AsciiMesh pastTheEnd{"mesh", {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, -4}, "", ""}; // 3 of 3
    struct Case
    {
        std::vector<uint8_t> bytes;
        std::string where, reason; // the error text starts with `where` and holds `reason`
        uint64_t memoryBudget = ParseOptions{}.memoryBudget;
    };
    const Case cases[] = {
        {array(300, true, 301), "V at byte ", "does not inflate to 2408 bytes"},
        {array(300, true, 299), "V at byte ", "does not inflate to 2392 bytes"},
        {array(3, true, 0xFFFFFFFF), "V at byte ", "cannot inflate to 34359738360 bytes"},
        {array(3, false, 4), "V at byte ", "needs 32 bytes but holds 24"},
        {array(3, false, 2), "V at byte ", "needs 16 bytes but holds 24"},
        {array(100000, true, -1), "V at byte ", "memory budget", 500000},
        {childEnd(uint32_t(good.size())), "Parent/Child at byte 46", "lies outside"},
        {childEnd(uint32_t(child)), "Parent/Child at byte 46", "lies outside"},
        {{good.begin(), good.end() - 160 - 13}, "at byte ", "truncated"},
        {nested(10000), "A/A/A/A/", "nested deeper than 64"},
        {text(braces), "A/A/A/A/", "nested deeper than 64"},
        {text("Objects: {\n Geometry: 1, \"x\" {\n  Vertices: *3 {\n   a: 1,2,oops\n"),
         "Objects/Geometry/Vertices at byte ", "(line 4)"},
        {text("Objects: {\n  Model: 1 {\n"), "Objects/Model at byte ", "missing '}'"},
        {text(asciiFile({pastTheEnd})), "Objects/Geometry/PolygonVertexIndex at byte ",
         "names control point 3 of 3"},
        {BinaryFbxWriter(9000).finish(), "at byte ", "unsupported FBX version 9000"},
    };
    for (const Case& c : cases)
    {
        ParseOptions options;
        options.memoryBudget = c.memoryBudget;
        Result<Document> r = Document::parse(c.bytes, options);
        ASSERT_FALSE(r.ok()) << c.where << c.reason;
        const std::string text = r.error().text();
        EXPECT_EQ(text.rfind(c.where, 0), 0u) << text;
        EXPECT_NE(text.find(c.reason), std::string::npos) << text;
    }
}

TEST(FbxReader, ParallelInflationGivesTheSameTreeAndErrors)
{
    ParseOptions sequential;
    ParseOptions parallel;
    parallel.inflateThreads = 3;
    parallel.parallelInflateBytes = 1; // every compressed array goes to the threads
    auto same = [&](std::span<const uint8_t> bytes)
    {
        Result<RecordTree> a = parse(bytes, sequential);
        Result<RecordTree> b = parse(bytes, parallel);
        EXPECT_EQ(a ? describe(a->root) : a.error().text(),
                  b ? describe(b->root) : b.error().text());
    };
    BinaryFbxWriter w;
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
    std::mt19937_64 random(3);
    for (int i = 0; i < 100; ++i)
    {
        std::vector<uint8_t> bad = file;
        bad[random() % bad.size()] ^= static_cast<uint8_t>(1 + random() % 255);
        same(bad);
    }
    if (haveSamples())
        for (const char* name :
             {"blender_279_default_7400_binary.fbx", "maya_node_attribute_zoo_7500_binary.fbx"})
            same(readBytes(samplePath(name)));
}
