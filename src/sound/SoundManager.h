// SPDX-License-Identifier: MIT
#pragma once

#include "core/Singleton.h"

#include <string>

struct Mix_Chunk;
typedef struct _Mix_Music Mix_Music;

// All sound: a looping background track, two throw sounds and a splash, mixed by SDL_mixer.
// Created on first use; a machine without an audio device gets no output at all and every play
// is a silent no-op. Failures print "FMOD error! (%d)" (the game's long-standing sound error
// line) and never stop the game.
class SoundManager : public Singleton<SoundManager>
{
    friend class Singleton<SoundManager>;

public:
    virtual ~SoundManager();

    // Starts the background track, looping, at half volume.
    void playMusic();
    // Plays a throw sound; always true.
    bool playShot();
    // Plays the splash, cutting the previous splash if it is still sounding.
    void playSplash();

    // The player's volumes, each 0..1: the music's (0.5 unless changed) and the effects' (1).
    void setVolumes(float music, float effects);
    // M: silences the music or lets it play on at its volume.
    void toggleMusicMuted();
    bool isMusicMuted() const { return musicMuted; }

    bool hasOutput() const { return output; }
    int getSplashChannel() const { return splashChannel; }
    int getShotChannel() const { return shotChannel; }
    const std::string& getDeviceName() const { return driverName; }
    int getLastResult() const { return lastResult; }

protected:
    SoundManager();

private:
    void openDevice();
    void loadSounds();
    // Reports a failed call; RESULT is the mixer's return value.
    void check(int result);
    void applyMusicVolume();
    // A channel's volume for a sound the design plays at VOLUME (0..1).
    int effectVolume(float volume) const;
    // True while CHANNEL still plays CHUNK: the mixer hands channel numbers out again, so a kept
    // channel may meanwhile carry an unrelated sound.
    static bool stillPlays(int channel, const Mix_Chunk* chunk);

    int lastResult = 0;
    unsigned int version = 0; // 0xMMmmpp of the linked mixer
    int numDrivers = 0;
    std::string driverName; // output device 0
    bool audioStarted = false;
    bool output = false; // a device is open

    Mix_Music* music = nullptr;
    Mix_Chunk* shot1 = nullptr;
    Mix_Chunk* shot2 = nullptr;
    Mix_Chunk* splash = nullptr;
    float musicVolume = 0.5f;   // 0..1
    float effectsVolume = 1.0f; // 0..1, scales every effect
    bool musicMuted = false;
    int shotChannel = -1;   // kept from the last shot1
    int splashChannel = -1; // the last splash
};
