// SPDX-License-Identifier: MIT
// Truncated and corrupted files: every prefix of two small samples, sampled prefixes of the
// others, and single-byte (and some four-byte) mutations of all of them and of a mesh made
// here. Each must give an error or a document, never a crash, a hang or a huge allocation.
// Run under AddressSanitizer+UBSan too (-DBLOTCH_SANITIZE=ON), where an out-of-bounds read
// fails the run; every case is its own exact-size allocation so that reading past its end
// is one. The counts are chosen to keep that run near a minute.

#include <cstdlib>
#include <new>
#include <random>

#include "FbxTestSupport.h"
#include "fbx/Document.h"
#include "import/FbxLoader.h"

using namespace fbx;
using namespace fbxtest;

// ---- the largest single allocation, watched while a test runs. The reader asks for its
// blocks with nothrow and aligned new (see fbx::allocateBlock); each new has its delete here
// so that the sanitizer's own operators never free what these allocated.

// They pair malloc with free on purpose; GCC only sees the free once a delete is inlined.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace
{
bool gWatching = false;
size_t gLargest = 0;

void* watched(std::size_t n, std::size_t align) noexcept
{
    if (gWatching && n > gLargest)
        gLargest = n;
    return align ? std::aligned_alloc(align, (n + align - 1) / align * align)
                 : std::malloc(n ? n : 1);
}
} // namespace

void* operator new(std::size_t n)
{
    if (void* p = watched(n, 0))
        return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t n, std::align_val_t a)
{
    if (void* p = watched(n, size_t(a)))
        return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept
{
    return watched(n, 0);
}
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept
{
    return watched(n, size_t(a));
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}

namespace
{

// A corrupted file of a few hundred kilobytes has no business asking for more at once.
const size_t MAX_ALLOCATION = 64u << 20;

// Reads every value of a document the way a consumer would, so that a broken invariant
// (an index past an array) reads out of bounds where the sanitizer sees it.
void touch(const Document& d)
{
    double sum = 0;
    for (const Mesh& m : d.meshes())
    {
        for (size_t p = 0; p < m.polygonCount(); ++p)
            for (uint32_t k = 0; k < m.polygonSize(p); ++k)
                sum += m.controlPoints[size_t(m.polygonVertex(m.polygonStart(p) + k)) * 3 + 2];
        for (const LayerElement& e : m.layerElements)
        {
            for (double v : e.direct)
                sum += v;
            for (int32_t i : e.index)
                sum += i;
        }
    }
    for (int n : d.walkOrder())
        sum += d.nodes()[n].geometricScaling[0];
    if (const DocumentInfo* info = d.documentInfo(); info && info->thumbnail)
        for (uint8_t b : info->thumbnail->data)
            sum += b;
    volatile double keep = sum;
    (void)keep;
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
    void check(std::vector<uint8_t> bytes, bool throughLoader)
    {
        Result<Document> d = Document::parse(bytes);
        ++cases_;
        if (d)
            touch(*d);
        else
            EXPECT_FALSE(d.error().reason.empty());
        if (!throughLoader)
            return;
        writeBytes(loaderFile_, bytes);
        testing::internal::CaptureStdout();
        FbxLoader loader;
        loader.verbose = true; // every report path too
        EXPECT_EQ(loader.load(loaderFile_), d.ok());
        loader.printMetaData();
        loader.printHierarchy();
        loader.convertNodes();
        testing::internal::GetCapturedStdout();
        ASSERT_EQ(loader.vertexCount % 3, 0);
        EXPECT_EQ(loader.vertices == nullptr, loader.vertexCount == 0);
        if (loader.vertexCount > 0)
        {
            EXPECT_EQ(loader.vertices[size_t(loader.vertexCount) * 4 - 1], 1.0f);
        }
    }

    // Cuts at every `step` bytes, and at each of the last `tail` bytes.
    void prefixes(const std::vector<uint8_t>& file, size_t step, size_t tail)
    {
        for (size_t n = 0; n < file.size(); n += step)
            check({file.begin(), file.begin() + n}, cases_ % 97 == 0);
        for (size_t n = file.size() - std::min(tail, file.size()); n < file.size(); ++n)
            check({file.begin(), file.begin() + n}, false);
    }

    void mutations(const std::vector<uint8_t>& file, int count, uint64_t seed)
    {
        static const uint8_t bytes[] = {0x00, 0x01, 0x7F, 0x80, 0xFF, '{', '}', '"', ',', ':',
                                        '*',  ';',  '\n', '-',  '.',  'e', '9', ' ', 'a', 0x1A};
        static const uint32_t words[] = {0,          1,      0x7FFFFFFF, 0x80000000,
                                         0xFFFFFFFF, 0xFFFF, 1032,       13};
        std::mt19937_64 random(seed); // the same cases on every machine
        for (int i = 0; i < count; ++i)
        {
            std::vector<uint8_t> bad = file;
            const size_t at = random() % bad.size();
            const uint64_t kind = random() % (file[0] == 'K' ? 4 : 2); // text: bytes only
            if (kind == 0)
                bad[at] = static_cast<uint8_t>(random());
            else if (kind == 1)
                bad[at] = bytes[random() % sizeof bytes];
            else // a whole header or size field: the byte-level cases rarely make one absurd
                std::memcpy(bad.data() + std::min(at, bad.size() - 4),
                            &words[random() % std::size(words)], 4);
            check(std::move(bad), i % 41 == 0);
        }
    }

    size_t cases_ = 0;
    std::string loaderFile_ = tempPath("robustness.fbx");
};

// Every prefix of the two small 6.1 files; about `cuts` evenly spaced prefixes of the others,
// and every one in the last `tail` bytes of the 7.5 cube, where its 64-bit end-of-list record
// and the footer are. The sanitizer makes each case some ten times dearer: there the counts
// keep the run near a minute, and without it the same time buys five times the mutations.
struct Plan
{
    const char* name;
    size_t cuts; // 0: every prefix
    size_t tail;
    int mutations;
};
const Plan plans[] = {
    {"maya_cube_6100_binary.fbx", 0, 0, 100},
    {"maya_cube_6100_ascii.fbx", 0, 0, 100},
    {"maya_cube_7400_binary.fbx", 150, 0, 300},
    {"maya_cube_7400_ascii.fbx", 100, 0, 150},
    {"maya_cube_7500_binary.fbx", 100, 200, 150},
    {"maya_cube_big_endian_7400_binary.fbx", 100, 0, 150},
    {"maya_zero_end_7400_binary.fbx", 50, 0, 50},
    {"maya_uv_and_color_sets_7500_binary.fbx", 100, 0, 100},
    {"maya_node_attribute_zoo_7500_binary.fbx", 50, 0, 50},
    {"max_geometry_transform_7700_binary.fbx", 50, 0, 100},
    {"blender_279_default_7400_binary.fbx", 50, 0, 100},
    {"blender_279_default_6100_ascii.fbx", 20, 0, 20},
    {"motionbuilder_thumbnail_7700_binary.fbx", 20, 0, 20},
    {"synthetic_missing_normals_7400_ascii.fbx", 50, 0, 100},
    {"synthetic_node_depth_fail_7400_binary.fbx", 100, 0, 200},
};
#if defined(__SANITIZE_ADDRESS__)
const int MUTATION_SCALE = 1;
#else
const int MUTATION_SCALE = 5;
#endif

class FbxRobustnessOfSamples : public FbxRobustness, public ::testing::WithParamInterface<size_t>
{
};

} // namespace

TEST_P(FbxRobustnessOfSamples, PrefixesAndMutations)
{
    SKIP_WITHOUT_SAMPLES();
    const Plan& plan = plans[GetParam()];
    std::vector<uint8_t> file = readBytes(samplePath(plan.name));
    ASSERT_FALSE(file.empty());
    prefixes(file, plan.cuts ? std::max<size_t>(1, file.size() / plan.cuts) : 1, plan.tail);
    mutations(file, plan.mutations * MUTATION_SCALE, GetParam() + 1);
}

INSTANTIATE_TEST_SUITE_P(Samples, FbxRobustnessOfSamples,
                         ::testing::Range<size_t>(0, std::size(plans)),
                         [](const ::testing::TestParamInfo<size_t>& info)
                         {
                             std::string name = plans[info.param].name;
                             return name.substr(0, name.find('.'));
                         });

TEST_F(FbxRobustness, MutationsOfAHandMadeMesh)
{
    // No samples needed: a binary mesh with compressed arrays (as the level has) and indexed
    // UVs, small enough for every byte to be mutated several times.
    BinaryFbxWriter w;
    w.begin("Objects");
    w.begin("Geometry", int64_t(1), std::string("g\0\1Geometry", 11), "Mesh");
    w.record("Vertices", std::vector<double>{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0});
    w.record("PolygonVertexIndex", std::vector<int32_t>{0, 1, 2, -4});
    w.begin("LayerElementUV", int32_t(0));
    w.record("MappingInformationType", "ByPolygonVertex");
    w.record("ReferenceInformationType", "IndexToDirect");
    w.record("UV", std::vector<double>{0, 0, 1, 1});
    w.begin("UVIndex");
    w.ints({0, 1, 1, 0}, false);
    w.end();
    w.end();
    w.end();
    w.record("Model", int64_t(2), std::string("m\0\1Model", 8), "Mesh");
    w.end();
    w.begin("Connections");
    w.record("C", "OO", int64_t(2), int64_t(0));
    w.record("C", "OO", int64_t(1), int64_t(2));
    std::vector<uint8_t> file = w.finish();
    Result<Document> d = Document::parse(file);
    ASSERT_TRUE(d.ok()) << d.error().text();
    ASSERT_EQ(d->nodes().size(), 2u);
    ASSERT_EQ(d->nodes()[1].mesh, 0);
    ASSERT_NE(d->meshes()[0].element(LayerElementKind::UV, 0), nullptr);
    mutations(file, 3000, 99);
}
