#include "sound/SoundManager.h"
#include "support/GlContext.h"

#include <SDL.h>
#include <SDL_mixer.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

namespace
{
// Each test picks SDL's audio driver before the manager opens the audio subsystem.
class SoundManagerTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        SoundManager::destroy();
        unsetenv("SDL_AUDIODRIVER");
    }

    SoundManager& start(const char* driver)
    {
        setenv("SDL_AUDIODRIVER", driver, 1);
        testing::internal::CaptureStdout();
        SoundManager& sound = SoundManager::instance();
        startup = testing::internal::GetCapturedStdout();
        return sound;
    }

    static bool waitUntilQuiet(int channel)
    {
        for (int i = 0; i < 300 && Mix_Playing(channel); ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return !Mix_Playing(channel);
    }

    std::string startup;
};
} // namespace

TEST_F(SoundManagerTest, ANewSplashCutsOnlyThePreviousSplash)
{
    SoundManager& sound = start("dummy");
    ASSERT_TRUE(sound.hasOutput());
    std::srand(7); // rand() >= 70: the kept-channel-less throw sound
    sound.playSplash();
    const int first = sound.getSplashChannel();
    sound.playShot();
    int shotChannel = -1;
    for (int c = 0; c < Mix_AllocateChannels(-1); ++c)
    {
        if (c != first && Mix_Playing(c))
        {
            shotChannel = c;
        }
    }
    ASSERT_GE(shotChannel, 0);
    sound.playSplash();
    EXPECT_TRUE(Mix_Playing(shotChannel));
    EXPECT_TRUE(Mix_Playing(sound.getSplashChannel()));
    EXPECT_EQ(Mix_Playing(-1), 2); // the first splash is gone

    // Once a splash has ended its channel is handed out again; a later splash must not cut the
    // throw that now plays there.
    Mix_HaltChannel(shotChannel);
    ASSERT_TRUE(waitUntilQuiet(sound.getSplashChannel()));
    const int stale = sound.getSplashChannel();
    sound.playShot();
    ASSERT_TRUE(Mix_Playing(stale)) << "the throw did not take the freed channel";
    sound.playSplash();
    EXPECT_TRUE(Mix_Playing(stale));
    EXPECT_NE(sound.getSplashChannel(), stale);
}

TEST_F(SoundManagerTest, WithoutAnyDeviceEverythingIsSilent)
{
    SoundManager& sound = start("no-such-audio-driver");
    EXPECT_FALSE(sound.hasOutput());
    testing::internal::CaptureStdout();
    sound.playMusic();
    EXPECT_TRUE(sound.playShot());
    sound.playSplash();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(SoundManagerTest, AStereoDeviceThatWillNotOpenLeavesTheGameSilentWithoutAWord)
{
    // The disk driver offers one stereo device, which cannot open a file in a missing folder.
    setenv("SDL_DISKAUDIOFILE", "/nonexistent-folder/sound.raw", 1);
    SoundManager& sound = start("disk");
    unsetenv("SDL_DISKAUDIOFILE");
    EXPECT_FALSE(sound.hasOutput());
    EXPECT_EQ(startup.find("FMOD error!"), std::string::npos) << startup;
    EXPECT_TRUE(sound.playShot());
}

TEST_F(SoundManagerTest, MissingFilesReportAndTheGameGoesOn)
{
    ScratchDirectory empty(false); // no data/ at all
    SoundManager& sound = start("dummy");
    ASSERT_TRUE(sound.hasOutput());
    EXPECT_EQ(startup, "FMOD error! (-1)FMOD error! (-1)FMOD error! (-1)FMOD error! (-1)");
    testing::internal::CaptureStdout();
    sound.playMusic();
    sound.playSplash();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "FMOD error! (-1)FMOD error! (-1)");
}

TEST_F(SoundManagerTest, DamagedFilesAreRefusedOrPlayedNeverCrashOrHang)
{
    const std::string names[] = {"Serendipity.mp3", "shot1.mp3", "shot2.mp3", "splash.mp3"};
    std::string originals[4];
    for (int i = 0; i < 4; ++i)
    {
        std::ifstream in(std::string(BLOTCH_SOURCE_DIR) + "/data/sound/" + names[i],
                         std::ios::binary);
        originals[i].assign(std::istreambuf_iterator<char>(in), {});
        ASSERT_GT(originals[i].size(), 1000u) << names[i];
    }
    // Each way of damaging a file, applied to all four at once.
    const std::function<std::string(const std::string&)> damages[] = {
        [](const std::string& s) { return s.substr(0, 0); },
        [](const std::string& s) { return s.substr(0, 200); },
        [](const std::string& s) { return s.substr(0, s.size() / 2); },
        [](const std::string& s)
        {
            std::string d = s;
            for (size_t i = 0; i < d.size(); i += 61)
                d[i] = static_cast<char>(d[i] ^ 0xa5);
            return d;
        },
        [](const std::string& s)
        {
            std::string d = s;
            for (size_t i = 4; i < d.size(); i += 7)
                d[i] = static_cast<char>(i * 131);
            return d;
        },
        [](const std::string& s) { return s.substr(0, 4) + std::string(20000, '\xff'); },
    };
    for (size_t k = 0; k < std::size(damages); ++k)
    {
        SCOPED_TRACE("damage " + std::to_string(k));
        ScratchDirectory scratch(false);
        std::filesystem::create_directories("data/sound");
        for (int i = 0; i < 4; ++i)
        {
            std::ofstream("data/sound/" + names[i], std::ios::binary) << damages[k](originals[i]);
        }
        SoundManager& sound = start("dummy");
        testing::internal::CaptureStdout();
        sound.playMusic();
        sound.playShot();
        sound.playShot();
        sound.playSplash();
        // Let the mixer's thread decode and play for a while.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        const std::string out = testing::internal::GetCapturedStdout();
        if (k == 0)
        {
            // Empty files cannot be loaded: reported like missing ones.
            EXPECT_EQ(startup, "FMOD error! (-1)FMOD error! (-1)FMOD error! (-1)FMOD error! (-1)");
            EXPECT_EQ(out, startup); // each of the four plays reports too
        }
        SoundManager::destroy();
    }
}
