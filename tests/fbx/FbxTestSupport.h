#pragma once

// Shared helpers of the FBX tests: the sample folder, files as bytes, a writer for small
// binary FBX files, a hand-made ASCII mesh file, and a way to silence or capture stdout.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fbx/Document.h"

namespace fbxtest
{

// SplitMix64: a fixed seed gives the same cases on every machine.
class Random
{
public:
    explicit Random(uint64_t seed) : s_(seed) {}
    uint64_t next()
    {
        uint64_t z = (s_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    size_t below(size_t n) { return static_cast<size_t>(next() % n); }

private:
    uint64_t s_;
};

std::string samplesDir();
bool haveSamples();
std::string samplePath(const std::string& name);
// Every .fbx file of the sample folder, sorted by name.
std::vector<std::string> sampleNames();

std::vector<uint8_t> readBytes(const std::string& path);
void writeBytes(const std::string& path, std::span<const uint8_t> bytes);
inline std::span<const uint8_t> bytesOf(std::string_view text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}
// A file path in the system's temporary folder, unique to this process.
std::string tempPath(const std::string& name);

// Parses a sample; fails the current test (and returns an empty optional) when it does not parse.
std::optional<fbx::Document> loadSample(const std::string& name);

// Writes a binary FBX file record by record:
//   BinaryFbxWriter w(7400); w.begin("Objects"); w.begin("Geometry"); w.int64(1); ...
//   w.end(); w.end(); std::vector<uint8_t> file = w.finish();
class BinaryFbxWriter
{
public:
    explicit BinaryFbxWriter(uint32_t version = 7400);
    void begin(std::string_view name);
    void end();
    void int32(int32_t v);
    void int64(int64_t v);
    void real(double v);
    void string(std::string_view s);
    // An array of doubles; zlib-compressed when `compress`. `declaredCount` overrides the
    // element count written in the header (to make lying files).
    void doubles(const std::vector<double>& values, bool compress, int64_t declaredCount = -1);
    void ints(const std::vector<int32_t>& values, bool compress, int64_t declaredCount = -1);
    std::vector<uint8_t> finish();

private:
    struct Open
    {
        size_t header;
        size_t propertiesStart;
        uint64_t propertyCount = 0;
        bool childrenStarted = false;
    };
    void closeProperties(Open& r);
    void putHeaderField(size_t at, uint64_t v);
    void arrayOf(char code, const void* data, size_t count, size_t size, bool compress,
                 int64_t declaredCount);
    template <class T> void put(T v)
    {
        const auto* p = reinterpret_cast<const uint8_t*>(&v);
        out_.insert(out_.end(), p, p + sizeof v);
    }

    uint32_t version_;
    bool wide_;
    std::vector<uint8_t> out_;
    std::vector<Open> open_;
};

// One mesh of a hand-made ASCII FBX 7.4 file. Element blocks are written as given, so a test
// can add any layer element text (a LayerElementNormal with ByVertice mapping, ...).
struct AsciiMesh
{
    std::string name = "mesh";
    std::vector<double> vertices;         // x, y, z per control point
    std::vector<int32_t> polygonVertices; // as in the file: last corner as -(i+1)
    std::string layerElements;            // raw records inside the Geometry
    std::string layers;                   // raw Layer records
};
// A file with those meshes, each on its own Model under the root, in that order.
std::string asciiFile(const std::vector<AsciiMesh>& meshes);
// A layer element record: kind "Normal", "UV", ...; data like "Normals: *3 {a: 0,0,1}".
std::string layerElement(const std::string& kind, int index, const std::string& mapping,
                         const std::string& reference, const std::string& data);
std::string layerOf(int layer, const std::vector<std::pair<std::string, int>>& elements);

// Redirects stdout (file descriptor 1) to /dev/null while it lives.
class StdoutSilencer
{
public:
    StdoutSilencer();
    ~StdoutSilencer();
    StdoutSilencer(const StdoutSilencer&) = delete;
    StdoutSilencer& operator=(const StdoutSilencer&) = delete;

private:
    int saved_ = -1;
};

} // namespace fbxtest

#define SKIP_WITHOUT_SAMPLES()                                                                     \
    if (!fbxtest::haveSamples())                                                                   \
    GTEST_SKIP() << "no FBX samples at " << fbxtest::samplesDir()
