// Truncated and corrupted files: every prefix of a sample, and thousands of single-byte
// (and some four-byte) mutations, binary and ASCII. Each must give an error or a document,
// never a crash, a hang or a huge allocation. Run under AddressSanitizer+UBSan too
// (-DBLOTCH_SANITIZE=ON), where an out-of-bounds read fails the run.

#include <cstdlib>
#include <new>

#include "FbxTestSupport.h"
#include "fbx/Document.h"
#include "scene/FbxLoader.h"

using namespace fbx;
using namespace fbxtest;

// ---- the largest single allocation, watched while a test asks for it

namespace
{
bool gWatching = false;
size_t gLargest = 0;

void* allocate(std::size_t n)
{
    if (gWatching && n > gLargest)
        gLargest = n;
    void* p = std::malloc(n ? n : 1);
    if (!p)
        throw std::bad_alloc();
    return p;
}
} // namespace

void* operator new(std::size_t n)
{
    return allocate(n);
}
void* operator new[](std::size_t n)
{
    return allocate(n);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept
{
    try
    {
        return allocate(n);
    }
    catch (...)
    {
        return nullptr;
    }
}
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept
{
    try
    {
        return allocate(n);
    }
    catch (...)
    {
        return nullptr;
    }
}
// The reader asks for large blocks 2 MiB-aligned (see fbx::allocateBlock).
void* operator new(std::size_t n, std::align_val_t a)
{
    if (gWatching && n > gLargest)
        gLargest = n;
    size_t align = static_cast<size_t>(a);
    void* p = std::aligned_alloc(align, (n + align - 1) / align * align);
    if (!p)
        throw std::bad_alloc();
    return p;
}
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept
{
    try
    {
        return operator new(n, a);
    }
    catch (...)
    {
        return nullptr;
    }
}
void operator delete(void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}

namespace
{

// A corrupted file of a few hundred kilobytes has no business asking for more at once.
const size_t MAX_ALLOCATION = 64u << 20;

// Reads every value of a document the way a consumer would, so that a broken invariant
// (an index past an array) reads out of bounds where the sanitizer sees it.
double touch(const Document& d)
{
    double sum = 0;
    for (const Mesh& m : d.meshes())
    {
        for (size_t p = 0; p < m.polygonCount(); ++p)
            for (uint32_t k = 0; k < m.polygonSize(p); ++k)
            {
                int32_t point = m.polygonVertex(m.polygonStart(p) + k);
                sum += m.controlPoints[size_t(point) * 3 + 2];
            }
        for (const LayerElement& e : m.layerElements)
            sum += double(e.direct.size() + e.index.size() + e.directInts.size());
    }
    for (int n : d.walkOrder())
        sum += d.nodes()[n].geometricScaling[0];
    if (const DocumentInfo* info = d.documentInfo())
        if (info->thumbnail)
            sum += double(info->thumbnail->data.size());
    return sum;
}

class FbxRobustness : public ::testing::Test
{
protected:
    void SetUp() override
    {
        gLargest = 0;
        gWatching = true;
    }
    void TearDown() override
    {
        gWatching = false;
        EXPECT_LE(gLargest, MAX_ALLOCATION) << "largest single allocation";
        std::remove(loaderFile_.c_str());
    }

    // One case: the reader directly, and now and then the whole level import on top.
    void check(std::span<const uint8_t> bytes, bool throughLoader)
    {
        Result<Document> d = Document::parse(bytes);
        if (d)
        {
            ++documents_;
            touch(*d);
        }
        else
        {
            ++errors_;
            EXPECT_FALSE(d.error().reason.empty());
        }
        if (throughLoader)
            runLoader(bytes, d.ok());
    }

    void runLoader(std::span<const uint8_t> bytes, bool parses)
    {
        writeBytes(loaderFile_, bytes);
        StdoutSilencer quiet;
        FbxLoader loader;
        loader.verbose = true; // every report path too
        bool ok = loader.load(loaderFile_);
        loader.printMetaData();
        loader.printHierarchy();
        loader.convertNodes();
        EXPECT_EQ(ok, parses);
        EXPECT_EQ(loader.vertexCount % 3, 0);
        if (!ok)
        {
            EXPECT_EQ(loader.vertexCount, 0);
            EXPECT_EQ(loader.vertices, nullptr);
        }
        else if (loader.vertexCount > 0)
        {
            EXPECT_NE(loader.vertices, nullptr);
            EXPECT_EQ(loader.vertices[size_t(loader.vertexCount) * 4 - 1], 1.0f);
        }
    }

    // Every prefix length in [from, to) with the given step.
    void prefixes(const std::vector<uint8_t>& file, size_t from, size_t to, size_t step,
                  size_t loaderEvery)
    {
        size_t n = 0;
        for (size_t length = from; length < to && length < file.size(); length += step, ++n)
            check(std::span<const uint8_t>(file.data(), length), n % loaderEvery == 0);
    }

    void mutations(const std::vector<uint8_t>& file, bool binary, int cases, uint64_t seed,
                   size_t loaderEvery)
    {
        static const uint8_t interestingBytes[] = {0x00, 0x01, 0x7F, 0x80, 0xFF, '{',  '}',
                                                   '"',  ',',  ':',  '*',  ';',  '\n', '-',
                                                   '.',  'e',  '9',  ' ',  'a',  0x1A};
        static const uint32_t interestingWords[] = {0,          1,      0x7FFFFFFF, 0x80000000,
                                                    0xFFFFFFFF, 0xFFFF, 1032,       13};
        Random random(seed);
        std::vector<uint8_t> bytes;
        for (int i = 0; i < cases; ++i)
        {
            bytes = file;
            size_t at = random.below(bytes.size());
            switch (random.below(binary ? 4 : 2))
            {
            case 0:
                bytes[at] = static_cast<uint8_t>(random.next());
                break;
            case 1:
                bytes[at] = interestingBytes[random.below(sizeof interestingBytes)];
                break;
            default:
            {
                // A whole header or size field: the byte-level cases rarely make one absurd.
                uint32_t word = interestingWords[random.below(std::size(interestingWords))];
                at = std::min(at, bytes.size() - 4);
                std::memcpy(bytes.data() + at, &word, 4);
            }
            }
            check(bytes, i % loaderEvery == 0);
        }
    }

    std::vector<uint8_t> sample(const std::string& name)
    {
        std::vector<uint8_t> bytes = readBytes(samplePath(name));
        EXPECT_FALSE(bytes.empty()) << name;
        return bytes;
    }

    int documents_ = 0;
    int errors_ = 0;
    std::string loaderFile_ = tempPath("robustness.fbx");
};

} // namespace

TEST_F(FbxRobustness, EveryPrefixOfABinaryFile)
{
    SKIP_WITHOUT_SAMPLES();
    std::vector<uint8_t> file = sample("maya_cube_7400_binary.fbx");
    prefixes(file, 0, file.size(), 1, 97);
    // Everything short of the top-level end-of-list record is a truncated file: an error.
    // Only cuts inside the footer (the last 176 bytes or so) leave the records whole.
    EXPECT_GE(errors_, static_cast<int>(file.size()) - 200);
}

TEST_F(FbxRobustness, DensePrefixesOfA64BitHeaderFile)
{
    SKIP_WITHOUT_SAMPLES();
    // Every third length: the same structure as the 7.4 file, with 64-bit record headers.
    std::vector<uint8_t> file = sample("maya_cube_7500_binary.fbx");
    prefixes(file, 0, file.size(), 3, 211);
    EXPECT_GE(errors_, static_cast<int>(file.size() - 200) / 3);
}

TEST_F(FbxRobustness, EveryPrefixOfAnAsciiFile)
{
    SKIP_WITHOUT_SAMPLES();
    // A text cut between two records is a smaller but valid file, so both outcomes occur.
    std::vector<uint8_t> file = sample("maya_cube_7400_ascii.fbx");
    prefixes(file, 0, file.size(), 1, 97);
    EXPECT_GT(errors_, 0);
    EXPECT_GT(documents_, 0);
}

TEST_F(FbxRobustness, SampledPrefixesOfLargerFiles)
{
    SKIP_WITHOUT_SAMPLES();
    for (const char* name :
         {"motionbuilder_thumbnail_7700_binary.fbx", "blender_279_default_6100_ascii.fbx",
          "blender_279_default_7400_binary.fbx", "maya_cube_6100_binary.fbx",
          "maya_cube_big_endian_7400_binary.fbx", "maya_node_attribute_zoo_7500_binary.fbx"})
    {
        SCOPED_TRACE(name);
        std::vector<uint8_t> file = sample(name);
        prefixes(file, 0, file.size(), std::max<size_t>(1, file.size() / 400), 53);
        prefixes(file, file.size() - std::min<size_t>(file.size(), 300), file.size(), 1, 1000000);
    }
}

TEST_F(FbxRobustness, SingleByteMutationsOfBinaryFiles)
{
    SKIP_WITHOUT_SAMPLES();
    uint64_t seed = 1;
    for (const char* name :
         {"maya_cube_7400_binary.fbx", "maya_cube_7500_binary.fbx", "maya_cube_6100_binary.fbx",
          "blender_279_default_7400_binary.fbx", "maya_cube_big_endian_7400_binary.fbx",
          "maya_uv_and_color_sets_7500_binary.fbx"})
    {
        SCOPED_TRACE(name);
        mutations(sample(name), true, 2000, seed++, 41);
    }
    std::vector<uint8_t> large = sample("motionbuilder_thumbnail_7700_binary.fbx");
    mutations(large, true, 400, seed++, 1000000);
    EXPECT_GT(errors_, 1000);
    EXPECT_GT(documents_, 1000); // most bytes are data, and data may change
}

TEST_F(FbxRobustness, SingleByteMutationsOfAsciiFiles)
{
    SKIP_WITHOUT_SAMPLES();
    uint64_t seed = 100;
    for (const char* name : {"maya_cube_7400_ascii.fbx", "maya_cube_6100_ascii.fbx",
                             "synthetic_missing_normals_7400_ascii.fbx"})
    {
        SCOPED_TRACE(name);
        mutations(sample(name), false, 2000, seed++, 41);
    }
    mutations(sample("blender_279_default_6100_ascii.fbx"), false, 800, seed++, 1000000);
    EXPECT_GT(errors_, 500);
    EXPECT_GT(documents_, 500);
}

TEST_F(FbxRobustness, MutationsOfAHandMadeMesh)
{
    // No samples needed: a compressed binary mesh made here, mutated everywhere.
    BinaryFbxWriter w;
    w.begin("Objects");
    w.begin("Geometry");
    w.int64(1);
    w.string(std::string("g\0\1Geometry", 11));
    w.string("Mesh");
    w.begin("Vertices");
    w.doubles({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}, true);
    w.end();
    w.begin("PolygonVertexIndex");
    w.ints({0, 1, 2, -4}, true);
    w.end();
    w.begin("LayerElementUV");
    w.int32(0);
    w.begin("MappingInformationType");
    w.string("ByPolygonVertex");
    w.end();
    w.begin("ReferenceInformationType");
    w.string("IndexToDirect");
    w.end();
    w.begin("UV");
    w.doubles({0, 0, 1, 1}, true);
    w.end();
    w.begin("UVIndex");
    w.ints({0, 1, 1, 0}, false);
    w.end();
    w.end();
    w.end();
    w.begin("Model");
    w.int64(2);
    w.string(std::string("m\0\1Model", 8));
    w.string("Mesh");
    w.end();
    w.end();
    w.begin("Connections");
    w.begin("C");
    w.string("OO");
    w.int64(2);
    w.int64(0);
    w.end();
    w.begin("C");
    w.string("OO");
    w.int64(1);
    w.int64(2);
    w.end();
    w.end();
    std::vector<uint8_t> file = w.finish();
    Result<Document> d = Document::parse(file);
    ASSERT_TRUE(d.ok()) << d.error().text();
    ASSERT_EQ(d->nodes().size(), 2u);
    EXPECT_EQ(d->nodes()[1].mesh, 0);
    mutations(file, true, 3000, 7, 5);
}
