// SPDX-License-Identifier: MIT
#include "core/Settings.h"
#include "support/Fixtures.h"

TEST_ON(RegistryTest, Settings, DefinitionsNeverOverwriteAndUnknownKeysReadAsZero)
{
    Settings& settings = Settings::instance();
    settings.defineBool("vbo", true);
    settings.toggle("vbo");
    settings.defineBool("vbo", true);
    EXPECT_FALSE(settings.getBool("vbo"));
    settings.defineInt("gamestate", 3, 0);
    settings.cycle("gamestate");
    settings.defineInt("gamestate", 3, 0);
    EXPECT_EQ(settings.getInt("gamestate"), 1);

    EXPECT_FALSE(settings.getBool("nothing"));
    EXPECT_EQ(settings.getInt("nothing"), 0);
    // A key created by a read has no values: cycling or stepping it must not divide by zero, and
    // defining it afterwards does not replace it.
    settings.cycle("nothing");
    settings.step("nothing", -1);
    settings.defineInt("nothing", 2, 1);
    EXPECT_EQ(settings.getInt("nothing"), 0);
}

TEST_ON(RegistryTest, Settings, CycleWrapsAndStepKeepsTheTruncatingRemainder)
{
    Settings& settings = Settings::instance();
    settings.defineInt("gamestate", 3, 0);
    for (int expected : {1, 2, 0})
    {
        settings.cycle("gamestate");
        EXPECT_EQ(settings.getInt("gamestate"), expected);
    }
    // Anything below 1 steps down, and below the range is -1, as the menu always had it.
    settings.defineInt("menu-pos", 2, 0);
    for (auto [delta, expected] : {std::pair{-1, -1}, {-1, 0}, {0, -1}, {1, 0}, {5, 1}, {1, 0}})
    {
        settings.step("menu-pos", delta);
        EXPECT_EQ(settings.getInt("menu-pos"), expected) << "after a step of " << delta;
    }
}

TEST_ON(RegistryTest, Settings, ToggleReportsAndFlips)
{
    Settings& settings = Settings::instance();
    settings.defineBool("help", false);
    testing::internal::CaptureStderr();
    settings.toggle("help");
    EXPECT_TRUE(settings.getBool("help"));
    settings.toggle("help");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Switching help...\nSwitching help...\n");
    EXPECT_FALSE(settings.getBool("help"));
}
