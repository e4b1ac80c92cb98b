// SPDX-License-Identifier: MIT
// End-to-end: every file the game reads, in turn missing, empty, cut in half and replaced by
// random bytes. Each time a short match is played (Return, a throw, its splash): the game must
// not crash or hang, must say what is wrong where it is told to, and must exit 0 on Escape.
#include "E2eTest.h"

#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>

namespace
{
enum class Damage
{
    Missing,
    Empty,
    Half,
    Random
};

const char* damageName(Damage damage)
{
    switch (damage)
    {
    case Damage::Missing:
        return "missing";
    case Damage::Empty:
        return "empty";
    case Damage::Half:
        return "cut in half";
    case Damage::Random:
        return "random bytes";
    }
    return "";
}

struct DataFile
{
    std::string path; // below data/
    // What the game prints (standard error or output) when the file is damaged, on one line.
    std::string says;
    // The damages after which the game rightly says nothing: a missing picture leaves a texture
    // black without a word, and the first half of an MP3 is a shorter MP3.
    bool quietMissing = false;
    bool quietHalf = false;
    // The game reads the file only when the command line names it (another level).
    bool onCommandLine = false;
};

const DataFile FILES[] = {
    {"fbx/level.fbx", "[ERROR] There is no level to play on: "},
    {"gltf/level.glb", "[ERROR] There is no level to play on: ", false, false, true},
    {"textures/menu01.png", "[ERROR] Texture 'menu01': ", true},
    {"textures/menu02.png", "[ERROR] Texture 'menu02': ", true},
    {"textures/paint01.png", "[ERROR] Texture 'paint01': ", true},
    {"textures/paint02.png", "[ERROR] Texture 'paint02': ", true},
    {"textures/paint03.png", "[ERROR] Texture 'paint03': ", true},
    {"textures/paint04.png", "[ERROR] Texture 'paint04': ", true},
    {"textures/paint05.png", "[ERROR] Texture 'paint05': ", true},
    // The first half of a descriptor still describes the characters in it.
    {"fonts/bankgothic-black.fnt", "[ERROR] Could not read font 'bankgothic-black' from ", false,
     true},
    {"fonts/bankgothic-black_0.tga", "[ERROR] Texture 'bankgothic-black': ", true},
    {"fonts/bankgothic-black-small.fnt",
     "[ERROR] Could not read font 'bankgothic-black-small' from ", false, true},
    {"fonts/bankgothic-black-small_0.tga", "[ERROR] Texture 'bankgothic-black-small': ", true},
    {"sound/Serendipity.mp3", "FMOD error! (", false, true},
    {"sound/shot1.mp3", "FMOD error! (", false, true},
    {"sound/shot2.mp3", "FMOD error! (", false, true},
    {"sound/splash.mp3", "FMOD error! (", false, true},
};

const char* const SHADERS[] = {"decal",           "font",    "hud",     "level",
                               "mbpostprocess",   "mbpreprocess", "menu",    "minimal",
                               "minimal_nolight", "unicolor-hud", "unicolor"};

std::vector<std::string> allFiles()
{
    std::vector<std::string> paths;
    for (const DataFile& file : FILES)
    {
        paths.push_back(file.path);
    }
    for (const char* shader : SHADERS)
    {
        paths.push_back(std::string("shader/") + shader + ".vert");
        paths.push_back(std::string("shader/") + shader + ".frag");
    }
    return paths;
}

DataFile describe(const std::string& path)
{
    for (const DataFile& file : FILES)
    {
        if (path == file.path)
        {
            return file;
        }
    }
    // Shaders: shader/NAME.vert or shader/NAME.frag.
    const std::string name = path.substr(7, path.rfind('.') - 7);
    return {path, "[ERROR] There is a problem with the '" + name + "' shader program"};
}

// A floor around the start and a wall 4 m ahead: every ball strikes the wall at once, so a short
// match lays paint (each splat takes one of the five pictures) and plays the splash.
std::string floorAndNearWall()
{
    fbxtest::AsciiMesh mesh;
    mesh.vertices = {-3, 3, -7, -3, 3, 13, 7, 3, 13, 7,  3, -7,
                     -3, 0, -1, 7,  0, -1, 7, 9, -1, -3, 9, -1};
    mesh.polygonVertices = {0, 1, -3, 0, 2, -4, 4, 5, -7, 4, 6, -8};
    return fbxtest::asciiFile({mesh});
}

std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class E2eBadFile : public E2eTest, public ::testing::WithParamInterface<std::string>
{
protected:
    void SetUp() override
    {
        E2eTest::SetUp();
        if (IsSkipped())
        {
            return;
        }
        display = std::make_unique<PrivateDisplay>();
        ASSERT_TRUE(display->ready()) << "Xvfb did not start";
    }
    void TearDown() override { display.reset(); }

    std::unique_ptr<PrivateDisplay> display; // each test on its own X server

    void damage(GameProcess& game, const std::string& path, Damage how)
    {
        const std::string original = readAll(game.dataPath(path));
        ASSERT_FALSE(original.empty()) << path;
        switch (how)
        {
        case Damage::Missing:
            game.removeData(path);
            break;
        case Damage::Empty:
            game.writeData(path, "");
            break;
        case Damage::Half:
            game.writeData(path, original.substr(0, original.size() / 2));
            break;
        case Damage::Random:
        {
            std::mt19937 random(static_cast<unsigned>(std::hash<std::string>()(path)));
            std::string bytes(original.size(), '\0');
            for (char& byte : bytes)
            {
                byte = static_cast<char>(random() & 0xff);
            }
            game.writeData(path, bytes);
            break;
        }
        }
    }

    // Plays a short match with PATH damaged HOW and checks what the game did.
    void play(const DataFile& file, Damage how)
    {
        SCOPED_TRACE(file.path + " " + damageName(how));
        GameProcess game(GameProcess::Data::Copy);
        const bool levelFile = file.path.rfind("fbx/", 0) == 0 || file.onCommandLine;
        if (!levelFile)
        {
            game.writeData("fbx/level.fbx", floorAndNearWall());
        }
        damage(game, file.path, how);
        if (file.onCommandLine)
        {
            game.setCommand(BLOTCH_BINARY, {game.dataPath(file.path)});
        }
        // The disk driver gives the game an audio device, so that it reads its sounds.
        const std::string audio = "SDL_DISKAUDIOFILE=" + game.workDir() + "/audio.raw";
        ASSERT_TRUE(game.start({"SDL_AUDIODRIVER=disk", audio}));
        ASSERT_TRUE(game.waitForError("Successfully started Main Loop", GameProcess::START_SECONDS))
            << game.errorText();
        ASSERT_NE(game.window(), 0ul);

        // Return until the match is built, or the game says there is nothing to build.
        bool built = false;
        bool noLevel = false;
        for (int attempt = 0; attempt < 6 && !built && !noLevel && game.running(); ++attempt)
        {
            game.key("Return");
            built = game.waitForMatch(5.0);
            noLevel = game.errorText().find("There is no level to play on") != std::string::npos;
        }
        ASSERT_TRUE(built || noLevel) << "no match after Return";
        game.waitExit(0.2);
        noLevel = game.errorText().find("There is no level to play on") != std::string::npos;
        if (!noLevel)
        {
            // Throws and their splashes. A paint picture is read when the first splat that
            // takes it is laid; the pictures follow the same sequence on every run, and twelve
            // splats take all five.
            const int throws = file.path.rfind("textures/paint", 0) == 0 ? 12 : 1;
            const size_t before = game.errorText().size();
            for (int i = 0; i < throws; ++i)
            {
                game.click(1);
                game.waitExit(0.3);
            }
            game.waitExit(levelFile ? 1.0 : 0.3);
            EXPECT_NE(game.errorText().find('(', before), std::string::npos) << "no ball thrown";
        }
        else
        {
            game.waitExit(1.0);
        }
        ASSERT_TRUE(game.running()) << "the game ended by itself:\n" << game.errorText();
        game.key("Escape");
        const std::optional<int> status = game.waitExit(20.0);
        ASSERT_TRUE(status.has_value()) << "the game hangs after Escape";
        EXPECT_EQ(*status, 0);

        const std::string text = game.errorText() + "\n" + game.outputText();
        const bool quiet = (how == Damage::Missing && file.quietMissing) ||
                           (how == Damage::Half && file.quietHalf);
        if (!quiet)
        {
            EXPECT_NE(text.find(file.says), std::string::npos)
                << "expected \"" << file.says << "\" in\n"
                << game.errorText();
        }
    }
};

TEST_P(E2eBadFile, TheGameSaysWhatIsWrongAndCarriesOn)
{
    const DataFile file = describe(GetParam());
#ifdef BLOTCH_SANITIZED
    // Under the sanitizers, the damages that give the readers something to read.
    const Damage damages[] = {Damage::Half, Damage::Random};
#else
    const Damage damages[] = {Damage::Missing, Damage::Empty, Damage::Half, Damage::Random};
#endif
    for (Damage how : damages)
    {
        play(file, how);
    }
}

std::string testName(const ::testing::TestParamInfo<std::string>& info)
{
    std::string name;
    for (char c : info.param)
    {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(EveryDataFile, E2eBadFile, ::testing::ValuesIn(allFiles()), testName);
} // namespace
