// SPDX-License-Identifier: MIT
// End-to-end: the game installed and run from elsewhere, and its command line.
#include "E2eTest.h"

#include <cstdlib>
#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace
{
const char* const STARTED = "[SUCCESS] - Successfully started Main Loop\n";
const char* const FAILED = "Could not initialize Blotch - MAJOR PROBLEM";

// How many grey levels the world shows: the lit level is shaded, a black or flat frame is not.
int greyLevels(const Image& image)
{
    std::set<int> greys;
    for (int y = 0; y < image.height; ++y)
    {
        for (int x = 0; x < image.width; ++x)
        {
            const uint8_t* p = image.pixel(x, y);
            greys.insert((p[0] + p[1] + p[2]) / 3);
        }
    }
    return static_cast<int>(greys.size());
}

// A level in the form other tools export: a small decoy, then the floor the player stands on.
// Only the last mesh is played.
std::string twoMeshLevel()
{
    fbxtest::AsciiMesh decoy;
    decoy.name = "decoy";
    decoy.vertices = {50, 0, 50, 51, 0, 50, 50, 0, 51};
    decoy.polygonVertices = {0, 1, -3};
    return fbxtest::asciiFile({decoy, smallFloor()});
}

using E2eInstall = E2eTest;
} // namespace

TEST_F(E2eInstall, TheInstalledGamePlaysFromAnyWorkingDirectory)
{
    char pattern[] = "/tmp/blotch-install-XXXXXX";
    const std::string destdir = mkdtemp(pattern);
    int status = -1;
    const std::string log = runCommand("DESTDIR=" + destdir + " cmake --install " +
                                           BLOTCH_BUILD_DIR + " --prefix /opt/blotch 2>&1",
                                       &status);
    ASSERT_EQ(status, 0) << log;
    const std::string installed = destdir + "/opt/blotch/" + BLOTCH_INSTALL_BINDIR + "/blotch";

    GameProcess game(GameProcess::Data::None); // a working directory without data/
    game.setCommand(installed);
    ASSERT_TRUE(game.launch()) << game.errorText();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS)) << game.errorText();
    int greys = 0;
    for (int attempt = 0; attempt < 10 && greys <= 40; ++attempt)
    {
        const std::string path = game.workDir() + "/lit.png";
        ASSERT_TRUE(game.screenshot(path));
        greys = greyLevels(worldView(loadImage(path)));
    }
    EXPECT_GT(greys, 40) << "no shaded level on screen";

    const size_t before = game.errorText().size();
    game.click(1);
    EXPECT_TRUE(game.waitForError(")\n", 5.0)) << "no throw: " << game.errorText().substr(before);
    // Shaders, fonts and pictures all came from the installed data.
    EXPECT_EQ(game.errorText().find("[ERROR]"), std::string::npos) << game.errorText();
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
    fs::remove_all(destdir);
}

TEST_F(E2eInstall, PlaysTheLevelFileGivenOnTheCommandLine)
{
    // The data through BLOTCH_DATA, the level relative to the working directory.
    const std::string data = "BLOTCH_DATA=" + std::string(BLOTCH_SOURCE_DIR) + "/data";
    GameProcess game(GameProcess::Data::None);
    fs::create_directories(game.workDir() + "/some/other");
    fbxtest::writeBytes(game.workDir() + "/some/other/level.fbx", fbxtest::bytesOf(twoMeshLevel()));
    game.setCommand(BLOTCH_BINARY, {"some/other/level.fbx"});
    ASSERT_TRUE(game.start({data})) << game.errorText();
    ASSERT_TRUE(game.waitForError(STARTED, GameProcess::START_SECONDS)) << game.errorText();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS)) << game.errorText();
    EXPECT_NE(game.outputText().find("\n6\n"), std::string::npos) << "not the floor's 2 triangles";
    EXPECT_NE(
        game.errorText().find("The level file holds 2 meshes; playing only the last, \"floor\""),
        std::string::npos)
        << game.errorText();
    EXPECT_EQ(game.errorText().find("[ERROR]"), std::string::npos) << game.errorText();
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);

    // A file that is not there: the same report and empty match as a broken shipped level.
    GameProcess missing(GameProcess::Data::None);
    missing.setCommand(BLOTCH_BINARY, {"no/such/level.fbx"});
    ASSERT_TRUE(missing.start({data}));
    ASSERT_TRUE(missing.waitForError(STARTED, GameProcess::START_SECONDS)) << missing.errorText();
    ASSERT_TRUE(missing.startMatch(GameProcess::START_SECONDS));
    EXPECT_TRUE(missing.waitForError("[ERROR] There is no level to play on: ", 5.0));
    EXPECT_NE(missing.errorText().find("no/such/level.fbx"), std::string::npos)
        << missing.errorText();
    missing.key("Escape");
    EXPECT_EQ(missing.waitExit(10.0), 0);
}

TEST_F(E2eInstall, PlaysAGltfLevelGivenOnTheCommandLine)
{
    const std::string data = "BLOTCH_DATA=" + std::string(BLOTCH_SOURCE_DIR) + "/data";
    GameProcess game(GameProcess::Data::None);
    game.setCommand(BLOTCH_BINARY, {std::string(BLOTCH_SOURCE_DIR) + "/data/gltf/level.glb"});
    ASSERT_TRUE(game.start({data})) << game.errorText();
    ASSERT_TRUE(game.waitForError(STARTED, GameProcess::START_SECONDS)) << game.errorText();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS)) << game.errorText();
    // The glTF report's triangle count, and the game's vertex count line: three per triangle.
    const std::string out = game.outputText();
    const size_t report = out.find(" triangles\n");
    ASSERT_NE(report, std::string::npos) << out;
    const long triangles = std::stol(out.substr(out.rfind(' ', report - 1) + 1));
    EXPECT_GT(triangles, 1000);
    EXPECT_NE(out.find("\n" + std::to_string(3 * triangles) + "\n"), std::string::npos) << out;
    EXPECT_EQ(game.errorText().find("[ERROR]"), std::string::npos) << game.errorText();
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST(E2eCommandLine, HelpVersionAMisuseAndMissingDataAnswerWithoutAWindow)
{
    const std::string game = BLOTCH_BINARY;
    int status = -1;
    const std::string help = runCommand(game + " --help", &status);
    EXPECT_EQ(status, 0);
    for (const char* part : {"Usage: blotch [LEVEL]", "throw a paint ball", "Escape",
                             "$BLOTCH_DATA", "(in the working directory)"})
    {
        EXPECT_NE(help.find(part), std::string::npos) << part << " not in:\n" << help;
    }
    EXPECT_EQ(runCommand(game + " --version", &status),
              std::string("blotch ") + BLOTCH_VERSION + "\n");
    EXPECT_EQ(status, 0);

    const std::string misuse = runCommand(game + " --bogus 2>&1 >/dev/null", &status);
    EXPECT_EQ(status, 2);
    EXPECT_NE(misuse.find("unknown option '--bogus'"), std::string::npos) << misuse;
    EXPECT_NE(misuse.find("Usage: blotch"), std::string::npos) << misuse;

    // No data anywhere: one line names every place tried, and the start fails before a window.
    GameProcess nowhere(GameProcess::Data::None);
    ASSERT_TRUE(nowhere.start({"BLOTCH_DATA=/nonexistent/blotch-data"}));
    EXPECT_EQ(nowhere.waitExit(GameProcess::START_SECONDS), 0);
    const std::string err = nowhere.errorText();
    EXPECT_NE(err.find("[ERROR] Found no game data"), std::string::npos) << err;
    EXPECT_NE(err.find("/nonexistent/blotch-data, "), std::string::npos) << err;
    EXPECT_NE(err.find(fs::canonical(nowhere.workDir()).string() + "/data;"), std::string::npos)
        << err;
    EXPECT_EQ(err.substr(err.find('\n') + 1), FAILED) << err;
}
