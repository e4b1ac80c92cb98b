// SPDX-License-Identifier: MIT
#include "sound/SoundManager.h"

#include "core/DataPath.h"

#include <SDL.h>
#include <SDL_mixer.h>

#include <cstdio>
#include <cstdlib>

namespace
{
// The oldest mixer with MP3 decoding and device selection that we rely on.
const unsigned int REQUIRED_VERSION = 0x020600;
const int MIXING_CHANNELS = 100; // plenty for overlapping throws and splashes
const int FREQUENCY = 44100;
const int SIGMATEL_FREQUENCY = 48000; // those codecs resample badly from 44.1 kHz
const int CHUNK_SIZE = 1024;          // samples per mix: low latency for throws
const int SHOT1_THRESHOLD = 70;       // rand() below this picks the rarer throw sound

unsigned int packVersion(const SDL_version* v)
{
    return (static_cast<unsigned>(v->major) << 16) | (static_cast<unsigned>(v->minor) << 8) |
           v->patch;
}
} // namespace

SoundManager::SoundManager()
{
    version = packVersion(Mix_Linked_Version());
    if (version < REQUIRED_VERSION)
    {
        std::printf(
            "Error!  You are using an old version of FMOD %08x.  This program requires %08x\n",
            version, REQUIRED_VERSION);
    }
    audioStarted = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
    numDrivers = audioStarted ? SDL_GetNumAudioDevices(0) : 0;
    if (numDrivers > 0)
    {
        openDevice();
    }
    if (output)
    {
        loadSounds();
    }
    std::fflush(stdout);
}

SoundManager::~SoundManager()
{
    if (output)
    {
        Mix_HaltChannel(-1);
        Mix_HaltMusic();
        Mix_FreeMusic(music);
        for (Mix_Chunk* chunk : {shot1, shot2, splash})
        {
            Mix_FreeChunk(chunk);
        }
        Mix_CloseAudio();
    }
    if (audioStarted)
    {
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
    }
}

void SoundManager::openDevice()
{
    const char* name = SDL_GetAudioDeviceName(0, 0);
    driverName = name ? name : "";
    SDL_AudioSpec spec{};
    int channels = 2;
    if (SDL_GetAudioDeviceSpec(0, 0, &spec) == 0 && spec.channels > 0)
    {
        channels = spec.channels; // use the layout the system is set up for
    }
    int frequency = FREQUENCY;
    Uint16 format = MIX_DEFAULT_FORMAT;
    if (driverName.find("SigmaTel") != std::string::npos)
    {
        frequency = SIGMATEL_FREQUENCY;
        format = AUDIO_F32SYS;
    }
    const int changes = SDL_AUDIO_ALLOW_FREQUENCY_CHANGE | SDL_AUDIO_ALLOW_FORMAT_CHANGE;
    int result = Mix_OpenAudioDevice(frequency, format, channels, CHUNK_SIZE, name, changes);
    if (result != 0 && channels != 2)
    {
        // The card does not take that speaker layout: plain stereo always works. Only this
        // second try is reported; a first try that fails otherwise leaves the game silent without
        // a word, as it always has.
        result = Mix_OpenAudioDevice(frequency, format, 2, CHUNK_SIZE, name, changes);
        check(result);
    }
    output = result == 0;
    if (output)
    {
        Mix_AllocateChannels(MIXING_CHANNELS);
    }
}

void SoundManager::loadSounds()
{
    music = Mix_LoadMUS(dataFile("sound/Serendipity.mp3").c_str());
    check(music ? 0 : -1);
    shot1 = Mix_LoadWAV(dataFile("sound/shot1.mp3").c_str());
    check(shot1 ? 0 : -1);
    shot2 = Mix_LoadWAV(dataFile("sound/shot2.mp3").c_str());
    check(shot2 ? 0 : -1);
    splash = Mix_LoadWAV(dataFile("sound/splash.mp3").c_str());
    check(splash ? 0 : -1);
}

void SoundManager::check(int result)
{
    if (result != 0)
    {
        lastResult = result;
        std::printf("FMOD error! (%d)", result);
        std::fflush(stdout);
    }
}

bool SoundManager::stillPlays(int channel, const Mix_Chunk* chunk)
{
    return channel >= 0 && chunk && Mix_Playing(channel) && Mix_GetChunk(channel) == chunk;
}

void SoundManager::playMusic()
{
    if (!output)
    {
        return;
    }
    if (!music)
    {
        check(-1);
        return;
    }
    applyMusicVolume();
    check(Mix_PlayMusic(music, -1) == 0 ? 0 : -1);
}

bool SoundManager::playShot()
{
    if (!output)
    {
        return true;
    }
    if (stillPlays(shotChannel, shot1))
    {
        Mix_HaltChannel(shotChannel);
    }
    if (std::rand() < SHOT1_THRESHOLD)
    {
        shotChannel = shot1 ? Mix_PlayChannel(-1, shot1, 0) : -1;
        check(shotChannel >= 0 ? 0 : -1);
    }
    else
    {
        // This channel is not kept: quick throws overlap.
        check(shot2 && Mix_PlayChannel(-1, shot2, 0) >= 0 ? 0 : -1);
    }
    if (stillPlays(shotChannel, shot1))
    {
        Mix_Volume(shotChannel, effectVolume(1.0f));
    }
    return true;
}

void SoundManager::setVolumes(float music, float effects)
{
    musicVolume = music;
    effectsVolume = effects;
    if (output)
    {
        applyMusicVolume();
        Mix_Volume(-1, effectVolume(1.0f));
    }
}

void SoundManager::toggleMusicMuted()
{
    musicMuted = !musicMuted;
    std::fprintf(stderr, "Music %s\n", musicMuted ? "muted" : "on");
    if (output)
    {
        applyMusicVolume();
    }
}

void SoundManager::applyMusicVolume()
{
    Mix_VolumeMusic(musicMuted ? 0 : static_cast<int>(musicVolume * MIX_MAX_VOLUME + 0.5f));
}

int SoundManager::effectVolume(float volume) const
{
    return static_cast<int>(volume * effectsVolume * MIX_MAX_VOLUME + 0.5f);
}

void SoundManager::playSplash()
{
    if (!output)
    {
        return;
    }
    if (stillPlays(splashChannel, splash))
    {
        Mix_HaltChannel(splashChannel);
    }
    splashChannel = splash ? Mix_PlayChannel(-1, splash, 0) : -1;
    check(splashChannel >= 0 ? 0 : -1);
}
