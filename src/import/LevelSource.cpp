// SPDX-License-Identifier: MIT
#include "import/LevelSource.h"

#include "import/FbxLoader.h"
#include "import/GltfLoader.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

// A path that names no readable regular file: refused before any reader opens it, because
// opening a named pipe would wait for a writer for ever and a directory or a device holds no
// level. Prints the reading report's failure line as the readers do.
class RefusedLevelSource : public LevelSource
{
public:
    explicit RefusedLevelSource(std::string reason) : reason(std::move(reason)) {}
    bool read(const std::string&) override
    {
        std::printf("\n-------loading the scene\nReading File failed: %s\n", reason.c_str());
        return false;
    }
    LevelMesh takeMesh() override { return {}; }
    const std::string& error() const override { return reason; }

private:
    std::string reason;
};

const char* fileKind(mode_t mode)
{
    if (S_ISDIR(mode))
        return "a directory";
    if (S_ISFIFO(mode))
        return "a named pipe";
    if (S_ISSOCK(mode))
        return "a socket";
    if (S_ISCHR(mode))
        return "a character device";
    if (S_ISBLK(mode))
        return "a block device";
    return "not a file";
}

// Why PATH cannot be a level file, or "" when it is a regular file that can be opened.
std::string levelFileProblem(const std::string& path)
{
    struct stat info;
    if (::stat(path.c_str(), &info) != 0)
        return "cannot open " + path + ": " + std::strerror(errno);
    if (!S_ISREG(info.st_mode))
        return path + " is " + fileKind(info.st_mode) + ", not a level file";
    // A regular file never blocks on open: this is only the permission check, with the reason.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return "cannot open " + path + ": " + std::strerror(errno);
    ::close(fd);
    return {};
}

// glTF by its binary magic or a JSON opening brace; everything else, ASCII FBX included, goes
// to the FBX reader, which reports what it is not.
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
    std::string problem = levelFileProblem(path);
    if (!problem.empty())
        return std::make_unique<RefusedLevelSource>(std::move(problem));
    if (looksLikeGltf(path))
        return std::make_unique<GltfLevelSource>();
    return std::make_unique<FbxLevelSource>();
}
