// SPDX-License-Identifier: MIT
#pragma once

// Shared helpers of the FBX tests: the sample folder, files as bytes, a writer for small
// binary FBX files and a hand-made ASCII mesh file.

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

inline std::string samplesDir()
{
    return BLOTCH_FBX_SAMPLES;
}
inline bool haveSamples()
{
    return std::filesystem::is_directory(samplesDir());
}
inline std::string samplePath(const std::string& name)
{
    return samplesDir() + "/" + name;
}

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
//   BinaryFbxWriter w(7400); w.begin("Objects"); w.begin("Geometry", int64_t(1), "Mesh");
//   w.record("Vertices", std::vector<double>{...}); w.end(); std::vector<uint8_t> f = w.finish();
// Properties given to begin() and record() are 32- or 64-bit integers, strings, and arrays of
// doubles or 32-bit integers, which these compress.
class BinaryFbxWriter
{
public:
    explicit BinaryFbxWriter(uint32_t version = 7400);
    template <class... P> void begin(std::string_view name, const P&... properties)
    {
        open(name);
        (add(properties), ...);
    }
    void end();
    // A record without children.
    template <class... P> void record(std::string_view name, const P&... properties)
    {
        begin(name, properties...);
        end();
    }
    void int32(int32_t v) { scalar('I', &v, 4); }
    void int64(int64_t v) { scalar('L', &v, 8); }
    void string(std::string_view s);
    // An array of doubles; zlib-compressed when `compress`. `declaredCount` overrides the
    // element count written in the header (to make lying files).
    void doubles(const std::vector<double>& values, bool compress, int64_t declaredCount = -1)
    {
        array('d', values.data(), values.size(), 8, compress, declaredCount);
    }
    void ints(const std::vector<int32_t>& values, bool compress, int64_t declaredCount = -1)
    {
        array('i', values.data(), values.size(), 4, compress, declaredCount);
    }
    std::vector<uint8_t> finish();

private:
    struct Open
    {
        size_t header, properties, children = 0; // where they start; children 0: none yet
        uint64_t propertyCount = 0;
    };
    void open(std::string_view name);
    void add(int32_t v) { int32(v); }
    void add(int64_t v) { int64(v); }
    void add(std::string_view s) { string(s); }
    void add(const std::vector<double>& v) { doubles(v, true); }
    void add(const std::vector<int32_t>& v) { ints(v, true); }
    void put(const void* data, size_t size);
    void scalar(char code, const void* value, size_t size);
    void array(char code, const void* data, size_t count, size_t size, bool compress,
               int64_t declaredCount);

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

} // namespace fbxtest

#define SKIP_WITHOUT_SAMPLES()                                                                     \
    if (!fbxtest::haveSamples())                                                                   \
    GTEST_SKIP() << "no FBX samples at " << fbxtest::samplesDir()
