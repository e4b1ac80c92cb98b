// SPDX-License-Identifier: MIT
// The FBX reader against real files written by Maya, MotionBuilder, 3ds Max and Blender,
// and against small files made here to break it.

#include <random>
#include <sstream>

#include "FbxTestSupport.h"
#include "fbx/Document.h"
#include "fbx/Reader.h"

using namespace fbx;
using namespace fbxtest;

namespace
{

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

TEST(FbxDocument, TwinFilesGiveTheSameDocument)
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

// Hostile or broken files: each is an error naming the record and the byte, and none may
// allocate what its sizes claim before checking them.
TEST(FbxDocument, MalformedFilesAreErrorsNamingTheRecord)
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
        ErrorKind kind = ErrorKind::Corrupt;
    };
    const Case cases[] = {
        {array(300, true, 301), "V at byte ", "does not inflate to 2408 bytes"},
        {array(300, true, 299), "V at byte ", "does not inflate to 2392 bytes"},
        {array(3, true, 0xFFFFFFFF), "V at byte ", "cannot inflate to 34359738360 bytes"},
        {array(3, false, 4), "V at byte ", "needs 32 bytes but holds 24"},
        {array(3, false, 2), "V at byte ", "needs 16 bytes but holds 24"},
        {array(100000, true, -1), "V at byte ", "memory budget", 500000, ErrorKind::TooLarge},
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
        {BinaryFbxWriter(9000).finish(), "at byte ", "unsupported FBX version 9000",
         ParseOptions{}.memoryBudget, ErrorKind::Unsupported},
        {text("just words"), "at byte ", "not an FBX file", ParseOptions{}.memoryBudget,
         ErrorKind::NotFbx},
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
        EXPECT_EQ(r.error().kind, c.kind) << text;
    }
}

TEST(FbxDocument, ParallelInflationGivesTheSameTreeAndErrors)
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
