// SPDX-License-Identifier: MIT
#include "scene/LevelSource.h"

#include "scene/FbxLoader.h"
#include "scene/GltfLoader.h"

#include <cctype>
#include <cstring>
#include <fstream>

namespace
{
const size_t SNIFF_BYTES = 64; // enough for the FBX magic and leading white space before JSON

// FBX files through our own reader and the import's selection rules.
class FbxLevelSource : public LevelSource
{
public:
    bool read(const std::string& path) override { return loader.load(path); }

    LevelMesh takeMesh() override
    {
        loader.printMetaData();
        loader.printHierarchy();
        loader.convertNodes();
        LevelMesh mesh{std::move(loader.vertices), std::move(loader.normals), std::move(loader.uvs),
                       loader.vertexCount};
        loader.vertexCount = 0;
        return mesh;
    }

    const std::string& error() const override { return loader.error(); }

private:
    FbxLoader loader;
};

// glTF 2.0 files, binary or JSON, through tinygltf.
class GltfLevelSource : public LevelSource
{
public:
    bool read(const std::string& path) override { return loader.load(path); }
    LevelMesh takeMesh() override { return loader.convert(); }
    const std::string& error() const override { return loader.error(); }

private:
    GltfLoader loader;
};

// glTF by its binary magic or a JSON opening brace; everything else, ASCII FBX included, and a
// file that cannot be opened go to the FBX reader, which reports them.
bool looksLikeGltf(const std::string& path)
{
    char head[SNIFF_BYTES] = {};
    std::ifstream in(path, std::ios::binary);
    in.read(head, sizeof head);
    const size_t got = static_cast<size_t>(in.gcount());
    if (got >= 4 && std::memcmp(head, "glTF", 4) == 0)
        return true;
    for (size_t i = 0; i < got; ++i)
        if (!std::isspace(static_cast<unsigned char>(head[i])))
            return head[i] == '{';
    return false;
}
} // namespace

std::unique_ptr<LevelSource> levelSourceFor(const std::string& path)
{
    if (looksLikeGltf(path))
        return std::make_unique<GltfLevelSource>();
    return std::make_unique<FbxLevelSource>();
}
