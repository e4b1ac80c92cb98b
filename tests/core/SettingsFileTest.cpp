// SPDX-License-Identifier: MIT
#include "core/SettingsFile.h"
#include "core/Settings.h"
#include "support/Fixtures.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace
{
// Every switch the game has, as the game defines them.
Settings& freshSettings()
{
    Settings::destroy();
    Settings& settings = Settings::instance();
    settings.defineDefaults();
    return settings;
}

// What the player can change, as one text: two readings that agree agree on all of it.
std::string snapshot(Settings& settings, const Preferences& preferences)
{
    return settingsfile::format(settings, preferences);
}

// A private folder for files, removed afterwards.
struct TempFolder
{
    TempFolder()
    {
        char pattern[] = "/tmp/blotch-settings-XXXXXX";
        path = mkdtemp(pattern);
    }
    ~TempFolder() { fs::remove_all(path); }
    std::string path;
};
} // namespace

TEST_ON(RegistryTest, SettingsFile, WhatIsWrittenIsReadBackAndTheGameStateIsNeverWritten)
{
    Settings& settings = freshSettings();
    settings.toggle("help");
    settings.toggle("framerate");
    settings.toggle("motionblur");
    settings.cycle("texture-mipmap");
    settings.cycle("texture-mipmap");
    settings.cycle("gamestate");
    settings.step("menu-pos", -1);
    Preferences chosen;
    chosen.fullscreen = true;
    chosen.windowWidth = 1600;
    chosen.windowHeight = 900;
    chosen.sensitivity = 0.35f;
    chosen.invertY = true;
    chosen.musicVolume = 0.125f;
    chosen.effectsVolume = 0.0f;
    const std::string text = settingsfile::format(settings, chosen);
    EXPECT_EQ(text.find("gamestate"), std::string::npos) << text;
    EXPECT_EQ(text.find("menu-pos"), std::string::npos) << text;

    Settings& again = freshSettings();
    Preferences read;
    std::string problem;
    ASSERT_TRUE(settingsfile::parse(text, again, read, problem)) << problem << "\n" << text;
    EXPECT_EQ(read, chosen);
    EXPECT_TRUE(again.getBool("help"));
    EXPECT_FALSE(again.getBool("framerate"));
    EXPECT_TRUE(again.getBool("motionblur"));
    EXPECT_EQ(again.getInt("texture-mipmap"), 2);
    EXPECT_EQ(again.getInt("gamestate"), 0);
    EXPECT_EQ(again.getInt("menu-pos"), 0);
}

TEST_ON(RegistryTest, SettingsFile, AShortFileChangesOnlyWhatItNames)
{
    Settings& settings = freshSettings();
    Preferences preferences;
    std::string problem;
    const char* text = "# mine\r\n\n; also a comment\n[input]\n  sensitivity=2.5  \r\n"
                       "[graphics]\nwireframe = true\n[window]\nwidth = 800";
    ASSERT_TRUE(settingsfile::parse(text, settings, preferences, problem)) << problem;
    EXPECT_FLOAT_EQ(preferences.sensitivity, 2.5f);
    EXPECT_EQ(preferences.windowWidth, 800);
    EXPECT_EQ(preferences.windowHeight, 768);
    EXPECT_TRUE(settings.getBool("wireframe"));
    EXPECT_TRUE(settings.getBool("vbo"));
    EXPECT_TRUE(settingsfile::parse("", settings, preferences, problem));
}

TEST_ON(RegistryTest, SettingsFile, ADamagedTextChangesNothingAndSaysWhatIsWrong)
{
    const struct
    {
        std::string text;
        const char* problem;
    } cases[] = {
        {"[graphics]\nhelp = maybe\n", "line 2: 'help' must be true or false"},
        {"[input]\nsensitivity = 9\n", "line 2: 'sensitivity' must be a number from 0.05 to 5"},
        {"[input]\nsensitivity = nan\n", "'sensitivity' must be a number"},
        {"[input]\nsensitivity = 1.0x\n", "'sensitivity' must be a number"},
        {"[graphics]\ntexture-mipmap = 3\n", "'texture-mipmap' must be a whole number from 0 to 2"},
        {"[window]\nwidth = 99999999999999\n", "'width' must be a whole number"},
        {"[graphics]\ngamestate = 1\n", "line 2: unknown setting 'gamestate' in [graphics]"},
        {"[graphics]\nmenu-pos = 1\n", "unknown setting 'menu-pos'"},
        {"help = true\n", "line 1: unknown setting 'help'"},
        {"[sound\nmusic-volume = 1\n", "line 1: unknown section '[sound'"},
        {"[window]\nfullscreen\n", "line 2: expected 'name = value', found 'fullscreen'"},
        {"[window]\nfull\0screen = true\n"s, "line 2: control characters in the text"},
        {"[sound]\n" + std::string(70000, '#') + "\n", "the file is larger than 64 KiB"},
    };
    for (const auto& c : cases)
    {
        Settings& settings = freshSettings();
        Preferences preferences;
        const std::string before = snapshot(settings, preferences);
        std::string problem;
        EXPECT_FALSE(settingsfile::parse(c.text, settings, preferences, problem)) << c.text;
        EXPECT_NE(problem.find(c.problem), std::string::npos) << problem;
        EXPECT_EQ(snapshot(settings, preferences), before) << c.text;
    }
}

// A reader of a file anyone can edit: every cut and every changed byte of a good file is either
// read or refused whole, never half applied, and never out of range.
TEST_ON(RegistryTest, SettingsFile, EveryCutAndChangedByteIsReadWholeOrRefusedWhole)
{
    Settings& written = freshSettings();
    written.toggle("help");
    Preferences chosen;
    chosen.fullscreen = true;
    chosen.sensitivity = 0.5f;
    const std::string good = settingsfile::format(written, chosen);
    const auto tryText = [](const std::string& text)
    {
        Settings& settings = freshSettings();
        Preferences preferences;
        const std::string before = snapshot(settings, preferences);
        std::string problem;
        if (settingsfile::parse(text, settings, preferences, problem))
        {
            EXPECT_GE(preferences.sensitivity, settingsfile::MIN_SENSITIVITY);
            EXPECT_LE(preferences.sensitivity, settingsfile::MAX_SENSITIVITY);
            EXPECT_GE(preferences.windowWidth, 200);
            EXPECT_GE(settings.getInt("texture-mipmap"), 0);
            EXPECT_LT(settings.getInt("texture-mipmap"), 3);
        }
        else
        {
            EXPECT_FALSE(problem.empty());
            EXPECT_EQ(snapshot(settings, preferences), before) << text;
        }
    };
    for (size_t length = 0; length <= good.size(); ++length)
    {
        tryText(good.substr(0, length));
    }
    const char replacements[] = {'\0', '\n', '=', '[', ']', '-', '9', 'x', '\xff', ' '};
    for (size_t at = 0; at < good.size(); ++at)
    {
        for (const char c : replacements)
        {
            std::string mutated = good;
            mutated[at] = c;
            tryText(mutated);
        }
    }
}

TEST_ON(RegistryTest, SettingsFile, AMissingFileIsTheDefaultsAndADamagedOneIsLeftAlone)
{
    TempFolder folder;
    const std::string path = folder.path + "/blotch/settings.ini";
    Settings& settings = freshSettings();
    Preferences preferences;
    EXPECT_EQ(settingsfile::load(path, settings, preferences), settingsfile::Loaded::Missing);

    // Saved into a folder made for it, with nothing left beside it.
    settings.toggle("wireframe");
    preferences.musicVolume = 0.25f;
    ASSERT_TRUE(settingsfile::save(path, settings, preferences));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path + "/blotch"), {}), 1);
    Settings& again = freshSettings();
    Preferences read;
    EXPECT_EQ(settingsfile::load(path, again, read), settingsfile::Loaded::Read);
    EXPECT_TRUE(again.getBool("wireframe"));
    EXPECT_FLOAT_EQ(read.musicVolume, 0.25f);

    // One line naming the file and the fault; the file stays as it was.
    const std::string damaged = "[sound]\nmusic-volume = loud\n";
    std::ofstream(path, std::ios::trunc) << damaged;
    testing::internal::CaptureStderr();
    Preferences defaults;
    EXPECT_EQ(settingsfile::load(path, freshSettings(), defaults), settingsfile::Loaded::Damaged);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said, "[ERROR] Ignoring the settings file " + path +
                        ": line 2: 'music-volume' must be a number from 0 to 1; using the "
                        "defaults\n");
    EXPECT_EQ(defaults, Preferences{});
    EXPECT_EQ(readFile(path), damaged);

    // A folder where the file should be is not read either.
    fs::remove(path);
    fs::create_directory(path);
    testing::internal::CaptureStderr();
    EXPECT_EQ(settingsfile::load(path, freshSettings(), defaults), settingsfile::Loaded::Damaged);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("not a regular file"), std::string::npos);
}

TEST_ON(RegistryTest, SettingsFile, AFileThatCannotBeWrittenIsSaidAndTheOldOneStays)
{
    TempFolder folder;
    // A file where the settings folder should be.
    std::ofstream(folder.path + "/blotch") << "not a folder";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(
        settingsfile::save(folder.path + "/blotch/settings.ini", freshSettings(), Preferences{}));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("[ERROR] Could not save the settings to " + folder.path +
                        "/blotch/settings.ini: "),
              std::string::npos)
        << said;
    EXPECT_EQ(readFile(folder.path + "/blotch"), "not a folder");
}

TEST_ON(RegistryTest, SettingsFile, ThePathFollowsXdgConfigHomeAndElseTheHomeFolder)
{
    const char* oldConfig = std::getenv("XDG_CONFIG_HOME");
    const char* oldHome = std::getenv("HOME");
    const std::string savedConfig = oldConfig ? oldConfig : "";
    const std::string savedHome = oldHome ? oldHome : "";

    setenv("HOME", "/home/player", 1);
    setenv("XDG_CONFIG_HOME", "/somewhere/config", 1);
    EXPECT_EQ(settingsfile::defaultPath(), "/somewhere/config/blotch/settings.ini");
    setenv("XDG_CONFIG_HOME", "relative/config", 1); // not absolute: ignored
    EXPECT_EQ(settingsfile::defaultPath(), "/home/player/.config/blotch/settings.ini");
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(settingsfile::defaultPath(), "/home/player/.config/blotch/settings.ini");

    oldConfig ? setenv("XDG_CONFIG_HOME", savedConfig.c_str(), 1) : unsetenv("XDG_CONFIG_HOME");
    oldHome ? setenv("HOME", savedHome.c_str(), 1) : unsetenv("HOME");
}
