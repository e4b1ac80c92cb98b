// SPDX-License-Identifier: MIT
// bench_fbx_load FILE.fbx [FILE.glb]
//
// Loads a binary FBX file five times with our reader (file read, parse, inflate, document),
// with Assimp, and with libdeflate alone inflating the same compressed arrays into fresh
// buffers (the floor any reader of this file has to pay), and prints the medians. The last
// line is machine-readable:
//   ours_ms=A assimp_ms=B inflate_ms=C
// Targets: ours at least 3x faster than Assimp, at most 1.25x the inflate time.
// Given the same level as binary glTF too, it times the game's glTF import (GltfLoader: read,
// parse, convert) beside FbxLoader's and ends with
//   glb_ms=A fbx_ms=B
// Target: A <= B.

#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <fcntl.h>
#include <libdeflate.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <vector>

#include "fbx/Document.h"
#include "fbx/Reader.h"
#include "import/FbxLoader.h"
#include "import/GltfLoader.h"

namespace
{

const int RUNS = 5;

double milliseconds(std::chrono::steady_clock::duration d)
{
    return std::chrono::duration<double, std::milli>(d).count();
}

// CPU time of the process (all threads, user and system, page faults included): unlike wall
// time it does not grow when other processes share the cores, so it still compares readers
// on a busy machine.
double cpuMs()
{
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

struct Timing
{
    double wallMs; // median
    double cpuMs;  // median
};

// Runs `work` RUNS times and returns the median times; `after` runs untimed after each
// (freeing what the run built, so every run starts from the same memory state).
Timing median(const std::function<void()>& work, const std::function<void()>& after)
{
    std::vector<double> wall, cpu;
    for (int i = 0; i < RUNS; ++i)
    {
        auto start = std::chrono::steady_clock::now();
        double cpuStart = cpuMs();
        work();
        cpu.push_back(cpuMs() - cpuStart);
        wall.push_back(milliseconds(std::chrono::steady_clock::now() - start));
        after();
    }
    std::sort(wall.begin(), wall.end());
    std::sort(cpu.begin(), cpu.end());
    return {wall[RUNS / 2], cpu[RUNS / 2]};
}

// median() with standard output sent to /dev/null: the loaders print their reports.
Timing silenced(const std::function<void()>& work, const std::function<void()>& after)
{
    std::fflush(stdout);
    int saved = dup(1);
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    Timing timing = median(work, after);
    std::fflush(stdout);
    dup2(saved, 1);
    close(null);
    close(saved);
    return timing;
}

struct CompressedArray
{
    const uint8_t* data;
    size_t stored;
    size_t bytes;
};

// Finds every zlib-compressed array of a binary FBX file. The file is the benchmark's own
// input, so this walker trusts it (the library is the one that must not).
class ArrayFinder
{
public:
    ArrayFinder(const uint8_t* data, size_t size) : d_(data), size_(size)
    {
        uint32_t version;
        std::memcpy(&version, d_ + 23, 4);
        wide_ = version >= 7500;
    }
    std::vector<CompressedArray> find()
    {
        list(27, size_);
        return arrays_;
    }

private:
    uint64_t field(size_t at) const
    {
        uint64_t v = 0;
        std::memcpy(&v, d_ + at, wide_ ? 8 : 4);
        return v;
    }
    void list(size_t at, size_t end)
    {
        const size_t header = wide_ ? 25 : 13;
        while (at + header <= end)
        {
            uint64_t recordEnd = field(at), count = field(at + (wide_ ? 8 : 4)),
                     propertyBytes = field(at + (wide_ ? 16 : 8));
            uint8_t nameLength = d_[at + header - 1];
            if (recordEnd == 0 && count == 0 && nameLength == 0)
                return;
            size_t p = at + header + nameLength, propertiesEnd = p + propertyBytes;
            for (uint64_t i = 0; i < count; ++i)
                p = property(p);
            if (recordEnd == 0)
                recordEnd = propertiesEnd;
            if (recordEnd > propertiesEnd)
                list(propertiesEnd, recordEnd);
            at = recordEnd;
        }
    }
    size_t property(size_t at)
    {
        char type = static_cast<char>(d_[at++]);
        switch (type)
        {
        case 'Y':
            return at + 2;
        case 'C':
            return at + 1;
        case 'I':
        case 'F':
            return at + 4;
        case 'D':
        case 'L':
            return at + 8;
        case 'S':
        case 'R':
        {
            uint32_t n;
            std::memcpy(&n, d_ + at, 4);
            return at + 4 + n;
        }
        default:
        {
            uint32_t count, encoding, stored;
            std::memcpy(&count, d_ + at, 4);
            std::memcpy(&encoding, d_ + at + 4, 4);
            std::memcpy(&stored, d_ + at + 8, 4);
            size_t element = (type == 'd' || type == 'l')   ? 8
                             : (type == 'f' || type == 'i') ? 4
                                                            : 1;
            if (encoding == 1)
                arrays_.push_back({d_ + at + 12, stored, size_t(count) * element});
            return at + 12 + stored;
        }
        }
    }

    const uint8_t* d_;
    size_t size_;
    bool wide_ = false;
    std::vector<CompressedArray> arrays_;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3)
    {
        std::fprintf(stderr, "usage: bench_fbx_load FILE.fbx [FILE.glb]\n");
        return 2;
    }
    const std::string path = argv[1];
    fbx::Result<fbx::FileBytes> file = fbx::readFile(path);
    if (!file)
    {
        std::fprintf(stderr, "%s\n", file.error().text().c_str());
        return 1;
    }
    fbx::Result<fbx::FileInfo> info = fbx::sniff(file->span());
    if (!info || info->format != fbx::Format::Binary || info->bigEndian)
    {
        std::fprintf(stderr, "%s: not a little-endian binary FBX file\n", path.c_str());
        return 1;
    }
    fbx::Result<fbx::Document> check = fbx::Document::parse(file->span());
    if (!check)
    {
        std::fprintf(stderr, "%s\n", check.error().text().c_str());
        return 1;
    }
    size_t triangles = 0;
    for (const fbx::Mesh& m : check->meshes())
        for (size_t p = 0; p < m.polygonCount(); ++p)
            triangles += m.polygonSize(p) >= 3 ? m.polygonSize(p) - 2 : 0;

    // libdeflate alone, into freshly allocated buffers as a reader would.
    std::vector<CompressedArray> arrays = ArrayFinder(file->data(), file->size).find();
    size_t inflatedBytes = 0;
    for (const CompressedArray& a : arrays)
        inflatedBytes += a.bytes;
    libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
    std::vector<void*> buffers;
    bool inflateOk = true;
    Timing inflate = median(
        [&]
        {
            for (const CompressedArray& a : arrays)
            {
                void* out = std::malloc(a.bytes + 1);
                inflateOk &= libdeflate_zlib_decompress(inflater, a.data, a.stored, out, a.bytes,
                                                        nullptr) == LIBDEFLATE_SUCCESS;
                buffers.push_back(out);
            }
        },
        [&]
        {
            for (void* b : buffers)
                std::free(b);
            buffers.clear();
        });
    libdeflate_free_decompressor(inflater);
    if (!inflateOk)
    {
        std::fprintf(stderr, "libdeflate failed on an array\n");
        return 1;
    }

    // Ours as the game reads: from the file on disk to the resolved document, the large arrays
    // inflated on one thread per core.
    std::optional<fbx::Document> doc;
    Timing ours =
        median([&] { doc = std::move(fbx::Document::load(path)).value(); }, [&] { doc.reset(); });
    // For reference: everything on the calling thread.
    fbx::ParseOptions oneThread;
    oneThread.inflateThreads = 1;
    Timing serial = median([&] { doc = std::move(fbx::Document::load(path, oneThread)).value(); },
                           [&] { doc.reset(); });
    // The parts of it, for reference.
    bool fileOk = true;
    Timing read = median([&] { fileOk = fileOk && fbx::readFile(path).ok(); }, [] {});
    if (!fileOk)
    {
        std::fprintf(stderr, "bench_fbx_load: cannot read %s\n", path.c_str());
        return 1;
    }
    std::optional<fbx::RecordTree> tree;
    Timing parse = median([&] { tree = std::move(fbx::parse(file->span(), oneThread)).value(); },
                          [&] { tree.reset(); });

    // The game's whole import (FbxLoader: load and convert to float arrays), report silenced.
    std::unique_ptr<FbxLoader> loader;
    Timing loaderTime = silenced(
        [&]
        {
            loader = std::make_unique<FbxLoader>();
            (void)loader->load(path);
            loader->convertNodes();
        },
        [&] { loader.reset(); });

    // Assimp, reading only (no post-processing: the file is already triangulated).
    bool assimpOk = true;
    Timing assimp = median(
        [&]
        {
            Assimp::Importer importer;
            assimpOk &= importer.ReadFile(path, 0) != nullptr;
        },
        [] {});

    std::printf("file: %s, %.1f MB, %zu triangles, %zu compressed arrays inflating to %.1f MB\n",
                path.c_str(), file->size / 1e6, triangles, arrays.size(), inflatedBytes / 1e6);
    std::printf("ours, wall ms: read %.1f, parse and inflate on one thread %.1f, whole document "
                "%.1f (all on one thread %.1f); FbxLoader import %.1f\n",
                read.wallMs, parse.wallMs, ours.wallMs, serial.wallMs, loaderTime.wallMs);
    if (!assimpOk)
        std::printf("assimp failed to read the file\n");
    std::printf(
        "cpu ms: ours %.1f, assimp %.1f, inflate %.1f; ours/inflate %.2f, assimp/ours %.1f\n",
        ours.cpuMs, assimp.cpuMs, inflate.cpuMs, ours.cpuMs / inflate.cpuMs,
        assimp.cpuMs / ours.cpuMs);
    std::printf("wall: ours/inflate %.2f, assimp/ours %.1f; all on one thread: ours/inflate %.2f, "
                "assimp/ours %.1f\n",
                ours.wallMs / inflate.wallMs, assimp.wallMs / ours.wallMs,
                serial.wallMs / inflate.wallMs, assimp.wallMs / serial.wallMs);
    std::printf("ours_ms=%.1f assimp_ms=%.1f inflate_ms=%.1f\n", ours.wallMs, assimp.wallMs,
                inflate.wallMs);
    if (argc == 2)
        return 0;

    // The same level as binary glTF, through the game's glTF import.
    const std::string glb = argv[2];
    int32_t glbVertices = 0;
    std::unique_ptr<GltfLoader> gltf;
    Timing gltfTime = silenced(
        [&]
        {
            gltf = std::make_unique<GltfLoader>();
            glbVertices = gltf->load(glb) ? gltf->convert().vertexCount : 0;
        },
        [&] { gltf.reset(); });
    if (glbVertices == 0)
    {
        std::fprintf(stderr, "bench_fbx_load: no triangles from %s\n", glb.c_str());
        return 1;
    }
    std::printf("glTF import of %s (%d triangles), wall ms %.1f, cpu ms %.1f; FbxLoader import "
                "wall ms %.1f, cpu ms %.1f\n",
                glb.c_str(), glbVertices / 3, gltfTime.wallMs, gltfTime.cpuMs, loaderTime.wallMs,
                loaderTime.cpuMs);
    std::printf("glb_ms=%.1f fbx_ms=%.1f\n", gltfTime.wallMs, loaderTime.wallMs);
    return 0;
}
