// SPDX-License-Identifier: MIT
// End-to-end: what the game plays really comes out of the mixer. SDL's disk driver writes the
// mixed output to a file (16-bit stereo at 44.1 kHz, in real time), so the test can listen.
#include "FbxTestSupport.h"
#include "support/GameProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

namespace
{
const int RATE = 44100;    // frames per second
const int WINDOW = 2205;   // 50 ms
const int FRAME_BYTES = 4; // two 16-bit channels

// A floor around the start and a wall 25 m ahead, facing the player: a ball thrown straight
// ahead strikes it about three quarters of a second after the throw.
std::string floorAndWall()
{
    fbxtest::AsciiMesh mesh;
    mesh.vertices = {-3,  3, -7,  -3, 3, 13,  7,  3,  13,  7,   3,  -7,
                     -30, 0, -22, 30, 0, -22, 30, 30, -22, -30, 30, -22};
    mesh.polygonVertices = {0, 1, -3, 0, 2, -4, 4, 5, -7, 4, 6, -8};
    return fbxtest::asciiFile({mesh});
}

// Root mean square of each 50 ms window of the recording.
std::vector<double> loudness(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
    std::vector<double> windows;
    const size_t count = bytes.size() / 2;
    const auto* s = reinterpret_cast<const int16_t*>(bytes.data());
    for (size_t start = 0; start + WINDOW * 2 <= count; start += WINDOW * 2)
    {
        double sum = 0.0;
        for (size_t i = start; i < start + WINDOW * 2; ++i)
        {
            sum += double(s[i]) * s[i];
        }
        windows.push_back(std::sqrt(sum / (WINDOW * 2)));
    }
    return windows;
}

double peak(const std::vector<double>& w, size_t from, size_t to)
{
    return *std::max_element(w.begin() + std::min(from, w.size() - 1),
                             w.begin() + std::min(to, w.size()));
}
} // namespace

TEST(E2eSound, TheMusicPlaysAndAThrowAndItsSplashRiseAboveIt)
{
    if (!std::getenv("DISPLAY"))
    {
        GTEST_SKIP() << "no X display";
    }
    GameProcess game(GameProcess::Data::Copy);
    game.writeData("fbx/level.fbx", floorAndWall());
    const std::string audio = game.workDir() + "/mixed.raw";
    ASSERT_TRUE(game.start({"SDL_AUDIODRIVER=disk", "SDL_DISKAUDIOFILE=" + audio}));
    ASSERT_TRUE(game.waitForError("[SUCCESS] - Successfully started Main Loop",
                                  GameProcess::START_SECONDS));
    ASSERT_NE(game.window(), 0u);
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS)) << game.errorText();
    game.waitExit(1.0);

    const size_t throwAt = std::filesystem::file_size(audio) / FRAME_BYTES / WINDOW;
    game.click(1);
    ASSERT_TRUE(game.waitForError(")\n", 5.0));
    game.waitExit(2.5);
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);

    const std::vector<double> w = loudness(audio);
    ASSERT_GT(w.size(), throwAt + 40) << "the recording stops too soon";
    // The music, from the first second on, before the throw.
    std::vector<double> before(w.begin() + 20, w.begin() + throwAt);
    std::sort(before.begin(), before.end());
    const double music = before[before.size() / 2];
    const double shot = peak(w, throwAt, throwAt + 8);         // within 0.4 s of the click
    const double splash = peak(w, throwAt + 12, throwAt + 30); // 0.6 to 1.5 s after it
    std::string curve;
    for (size_t i = throwAt - 4; i < throwAt + 40 && i < w.size(); ++i)
    {
        curve += std::to_string(int(w[i])) + " ";
    }
    EXPECT_GT(music, 100.0) << "no music: " << curve;
    EXPECT_GT(shot, 1.5 * music) << "no throw sound: " << curve;
    EXPECT_GT(splash, 1.5 * music) << "no splash: " << curve;
    // Two sounds, not one long one: the music alone is heard between them.
    const double between = *std::min_element(w.begin() + throwAt + 8, w.begin() + throwAt + 16);
    EXPECT_LT(between, 1.3 * music) << "the throw and the splash run together: " << curve;
}

TEST(E2eSound, MSilencesTheMusicAndBringsItBack)
{
    if (!std::getenv("DISPLAY"))
    {
        GTEST_SKIP() << "no X display";
    }
    GameProcess game;
    const std::string audio = game.workDir() + "/mixed.raw";
    ASSERT_TRUE(game.start({"SDL_AUDIODRIVER=disk", "SDL_DISKAUDIOFILE=" + audio}));
    ASSERT_TRUE(game.waitForError("[SUCCESS] - Successfully started Main Loop",
                                  GameProcess::START_SECONDS));
    ASSERT_NE(game.window(), 0u);
    game.waitExit(1.5);
    const auto now = [&] { return std::filesystem::file_size(audio) / FRAME_BYTES / WINDOW; };
    const size_t muted = now();
    game.key("m");
    ASSERT_TRUE(game.waitForError("Music muted\n", 5.0));
    game.waitExit(2.0);
    const size_t unmuted = now();
    game.key("m");
    ASSERT_TRUE(game.waitForError("Music on\n", 5.0));
    game.waitExit(2.0);
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);

    // Windows of 50 ms: a little slack either side of each key for the mixer's buffer.
    const std::vector<double> w = loudness(audio);
    ASSERT_GT(w.size(), unmuted + 30) << "the recording stops too soon";
    EXPECT_GT(peak(w, 5, muted - 2), 100.0) << "no music before M";
    EXPECT_LT(peak(w, muted + 6, unmuted - 1), 1.0) << "the music still plays after M";
    EXPECT_GT(peak(w, unmuted + 6, unmuted + 30), 100.0) << "the music did not come back";
}
