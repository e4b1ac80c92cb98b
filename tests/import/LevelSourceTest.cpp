// SPDX-License-Identifier: MIT
// The level sources as the game picks them: paths that are no level file, and every FBX and
// glTF 2.0 model of another project's test suite (Debian's assimp-testmodels), each of which
// must play or be refused with a reason that names it.
#include "import/LevelSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
const char* const PEER_MODELS = "/usr/share/assimp/models";
const uid_t NOBODY = 65534;

struct Outcome
{
    int32_t vertices = 0;
    std::string error;
    bool finite = true; // every position, normal and texture coordinate handed over
};

// Reads PATH as a match does, with the import report (standard output) thrown away.
Outcome play(const std::string& path)
{
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int quiet = open("/dev/null", O_WRONLY);
    dup2(quiet, STDOUT_FILENO);
    close(quiet);

    Outcome outcome;
    std::unique_ptr<LevelSource> source = levelSourceFor(path);
    const LevelMesh mesh = source->read(path) ? source->takeMesh() : LevelMesh{};
    outcome.vertices = mesh.vertexCount;
    outcome.error = source->error();
    for (int32_t i = 0; i < mesh.vertexCount; ++i)
    {
        const float* values[] = {&mesh.vertices[i * 4], &mesh.normals[i * 3], &mesh.uvs[i * 2]};
        for (int k = 0; k < 8 && outcome.finite; ++k)
            outcome.finite = std::isfinite(k < 3 ? values[0][k] : k < 6 ? values[1][k - 3]
                                                                        : values[2][k - 6]);
    }

    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    return outcome;
}

// The peer models a level could be made from: FBX anywhere, glTF 2.0, and the invalid files.
std::vector<fs::path> peerModels()
{
    std::vector<fs::path> found;
    std::error_code error;
    for (const auto& entry : fs::recursive_directory_iterator(PEER_MODELS, error))
    {
        if (!entry.is_regular_file())
            continue;
        std::string ext = entry.path().extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
        const std::string relative = fs::relative(entry.path(), PEER_MODELS).string();
        const bool gltf2 = relative.rfind("glTF2/", 0) == 0 && (ext == ".gltf" || ext == ".glb");
        if (ext == ".fbx" || gltf2 || relative.rfind("invalid/", 0) == 0)
            found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end());
    return found;
}

class LevelSourceTest : public ::testing::Test
{
protected:
    fs::path dir = fs::temp_directory_path() / ("blotch-source-" + std::to_string(getpid()));
    void SetUp() override { fs::create_directories(dir); }
    void TearDown() override { fs::remove_all(dir); }
};
} // namespace

TEST_F(LevelSourceTest, PathsThatAreNoLevelFileAreRefusedSayingWhatTheyAre)
{
    const std::string pipe = (dir / "pipe.fbx").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::pair<std::string, std::string> cases[] = {
        {dir.string(), dir.string() + " is a directory, not a level file"},
        // Opening it would wait for a writer for ever.
        {pipe, pipe + " is a named pipe, not a level file"},
        {"/dev/zero", "/dev/zero is a character device, not a level file"},
        {(dir / "none.glb").string(),
         "cannot open " + (dir / "none.glb").string() + ": No such file or directory"},
    };
    for (const auto& [path, said] : cases)
    {
        const Outcome outcome = play(path);
        EXPECT_EQ(outcome.vertices, 0) << path;
        EXPECT_EQ(outcome.error, said);
    }
}

TEST_F(LevelSourceTest, AFileThatCannotBeReadIsRefusedWithTheReason)
{
    const std::string locked = (dir / "locked.fbx").string();
    std::ofstream(locked) << "; FBX 7.4.0 project file\n";
    ASSERT_EQ(chmod(locked.c_str(), 0), 0);
    ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
    // Root reads everything: the check runs as nobody in a child process.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        if (geteuid() == 0 && (setgid(NOBODY) != 0 || setuid(NOBODY) != 0))
            _exit(2);
        const Outcome outcome = play(locked);
        _exit(outcome.vertices == 0 &&
                      outcome.error == "cannot open " + locked + ": Permission denied"
                  ? 0
                  : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "not refused with \"Permission denied\" (2: no setuid)";
}

TEST_F(LevelSourceTest, EveryPeerModelPlaysOrIsRefusedNamingItsFile)
{
    if (!fs::is_directory(PEER_MODELS))
        GTEST_SKIP() << "no " << PEER_MODELS << " (Debian package assimp-testmodels)";
    const std::vector<fs::path> models = peerModels();
    ASSERT_GT(models.size(), 50u);

    int plays = 0;
    std::string table;
    for (const fs::path& model : models)
    {
        const std::string path = model.string();
        const Outcome outcome = play(path);
        const std::string name = fs::relative(model, PEER_MODELS).string();
        if (outcome.vertices > 0)
        {
            ++plays;
            table += "  plays " + std::to_string(outcome.vertices / 3) + " triangles  " + name +
                     "\n";
            EXPECT_EQ(outcome.vertices % 3, 0) << name;
            EXPECT_TRUE(outcome.error.empty()) << name << ": " << outcome.error;
            EXPECT_TRUE(outcome.finite) << name << " hands over values that are not finite";
        }
        else
        {
            // A file with nothing to walk on and no error is what the match reports as
            // "holds no triangles to walk on".
            table += "  refused  " + name + ": " +
                     (outcome.error.empty() ? "no triangles to walk on" : outcome.error) + "\n";
            if (!outcome.error.empty())
            {
                EXPECT_NE(outcome.error.find(path), std::string::npos)
                    << "the reason does not name the file: " << outcome.error;
            }
        }
    }
    std::printf("%zu peer models from %s, %d play:\n%s", models.size(), PEER_MODELS, plays,
                table.c_str());
    EXPECT_GT(plays, 20);

    // The ones whose refusal is a promise.
    const auto reason = [](const char* name) { return play(std::string(PEER_MODELS) + name).error; };
    EXPECT_NE(reason("/glTF2/draco/2CylinderEngine.gltf").find("(KHR_draco_mesh_compression)"),
              std::string::npos);
    EXPECT_NE(reason("/invalid/empty.obj").find("empty file"), std::string::npos);
}
