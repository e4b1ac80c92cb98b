// SPDX-License-Identifier: MIT
// The whole level import on arbitrary bytes: reading, the document, and FbxLoader's conversion
// to triangle arrays with every report line. The import goes through a file, as in the game.
#include "import/FbxLoader.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace
{
std::string inputPath()
{
    return "/dev/shm/blotch-fuzz-" + std::to_string(getpid()) + ".fbx";
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The report is long; the fuzzer's own output is on standard error.
    if (!std::freopen("/dev/null", "w", stdout))
        return 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string path = inputPath();
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);

    FbxLoader loader;
    loader.verbose = (size % 7) == 0; // now and then the per-vertex lines too
    loader.load(path);
    loader.printMetaData();
    loader.printHierarchy();
    loader.convertNodes();
    // Touch every converted value, so a wrong count shows up as a read past the arrays.
    volatile float sum = 0.0f;
    for (int32_t i = 0; i < loader.vertexCount * 4; ++i)
        sum = sum + loader.vertices[i];
    for (int32_t i = 0; i < loader.vertexCount * 3; ++i)
        sum = sum + loader.normals[i];
    for (int32_t i = 0; i < loader.vertexCount * 2; ++i)
        sum = sum + loader.uvs[i];
    return 0;
}
