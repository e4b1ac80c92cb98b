#include "sound/SoundManager.h"
#include "support/GlContext.h"

#include <SDL.h>
#include <SDL_mixer.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
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

TEST_F(SoundManagerTest, PlaysMusicShotsAndSplashesOnADevice)
{
    SoundManager& sound = start("dummy"); // a real mixer on a device that plays into nothing
    ASSERT_TRUE(sound.hasOutput()) << startup;
    EXPECT_EQ(startup, "");

    testing::internal::CaptureStdout();
    sound.playMusic();
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_TRUE(sound.playShot());
    }
    sound.playSplash();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(sound.getLastResult(), 0);
    EXPECT_TRUE(Mix_PlayingMusic());
    ASSERT_GE(sound.getSplashChannel(), 0);
    EXPECT_TRUE(Mix_Playing(sound.getSplashChannel()));
    EXPECT_GE(Mix_Playing(-1), 3); // the throws overlap
}

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
