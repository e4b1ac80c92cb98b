// SPDX-License-Identifier: MIT
// The glTF level import on arbitrary bytes: tinygltf's parsing, the accessor checks and the
// conversion to triangle arrays. The import goes through a file, as in the game.
#include "import/GltfLoader.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace
{
std::string inputPath()
{
    return "/dev/shm/blotch-fuzz-" + std::to_string(getpid()) + ".glb";
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The report goes to standard output; the fuzzer's own output is on standard error.
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

    GltfLoader loader;
    if (!loader.load(path))
        return 0;
    const LevelMesh mesh = loader.convert();
    // Touch every converted value, so a wrong count shows up as a read past the arrays.
    volatile float sum = 0.0f;
    for (int32_t i = 0; i < mesh.vertexCount * 4; ++i)
        sum = sum + mesh.vertices[i];
    for (int32_t i = 0; i < mesh.vertexCount * 3; ++i)
        sum = sum + mesh.normals[i];
    for (int32_t i = 0; i < mesh.vertexCount * 2; ++i)
        sum = sum + mesh.uvs[i];
    return 0;
}
