// SPDX-License-Identifier: MIT
#include "sound/SoundManager.h"
#include "support/Fixtures.h"

#include <SDL_mixer.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace
{
// Each test picks SDL's audio driver before the manager opens the audio subsystem.
class SoundManagerTest : public RegistryTest
{
protected:
    void TearDown() override
    {
        RegistryTest::TearDown();
        unsetenv("SDL_AUDIODRIVER");
    }

    // The manager on DRIVER; what it printed while starting goes to STARTUP.
    SoundManager& start(const char* driver)
    {
        setenv("SDL_AUDIODRIVER", driver, 1);
        testing::internal::CaptureStdout();
        SoundManager& sound = SoundManager::instance();
        startup = testing::internal::GetCapturedStdout();
        return sound;
    }

    std::string startup;
};
} // namespace

TEST_ON(SoundManagerTest, SoundManager, ANewSplashCutsOnlyThePreviousSplash)
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
    for (int i = 0; i < 300 && Mix_Playing(sound.getSplashChannel()); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_FALSE(Mix_Playing(sound.getSplashChannel()));
    const int stale = sound.getSplashChannel();
    sound.playShot();
    ASSERT_TRUE(Mix_Playing(stale)) << "the throw did not take the freed channel";
    sound.playSplash();
    EXPECT_TRUE(Mix_Playing(stale));
    EXPECT_NE(sound.getSplashChannel(), stale);
}

TEST_ON(SoundManagerTest, SoundManager, WithoutAnyDeviceEverythingIsSilent)
{
    SoundManager& sound = start("no-such-audio-driver");
    EXPECT_FALSE(sound.hasOutput());
    testing::internal::CaptureStdout();
    sound.playMusic();
    EXPECT_TRUE(sound.playShot());
    sound.playSplash();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_ON(SoundManagerTest, SoundManager, AStereoDeviceThatWillNotOpenLeavesTheGameSilentWithoutAWord)
{
    // The disk driver offers one stereo device, which cannot open a file in a missing folder.
    setenv("SDL_DISKAUDIOFILE", "/nonexistent-folder/sound.raw", 1);
    SoundManager& sound = start("disk");
    unsetenv("SDL_DISKAUDIOFILE");
    EXPECT_FALSE(sound.hasOutput());
    EXPECT_EQ(startup.find("FMOD error!"), std::string::npos) << startup;
    EXPECT_TRUE(sound.playShot());
}

TEST_ON(SoundManagerTest, SoundManager, MissingOrEmptyFilesReportAndTheGameGoesOn)
{
    for (const bool empty : {false, true})
    {
        ScratchDirectory scratch(false); // no data/, or empty files in it
        if (empty)
        {
            std::filesystem::create_directories("data/sound");
            for (const char* name : {"Serendipity.mp3", "shot1.mp3", "shot2.mp3", "splash.mp3"})
            {
                std::ofstream("data/sound/" + std::string(name));
            }
        }
        SoundManager& sound = start("dummy");
        ASSERT_TRUE(sound.hasOutput());
        EXPECT_EQ(startup, "FMOD error! (-1)FMOD error! (-1)FMOD error! (-1)FMOD error! (-1)");
        testing::internal::CaptureStdout();
        sound.playMusic();
        sound.playShot();
        sound.playSplash();
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "FMOD error! (-1)FMOD error! (-1)FMOD error! (-1)");
        SoundManager::destroy();
    }
}
