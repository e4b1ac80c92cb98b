#include "core/Settings.h"

#include <gtest/gtest.h>

namespace
{
class SettingsTest : public ::testing::Test
{
protected:
    void SetUp() override { Settings::destroy(); }
    void TearDown() override { Settings::destroy(); }
    Settings& settings() { return Settings::instance(); }
};
} // namespace

TEST_F(SettingsTest, DefinesNeverOverwrite)
{
    settings().defineBool("vbo", true);
    settings().toggle("vbo");
    settings().defineBool("vbo", true);
    EXPECT_FALSE(settings().getBool("vbo"));

    settings().defineInt("gamestate", 3, 0);
    settings().cycle("gamestate");
    settings().defineInt("gamestate", 3, 0);
    EXPECT_EQ(settings().getInt("gamestate"), 1);
}

TEST_F(SettingsTest, UnknownKeysReadAsZeroAndStayHarmless)
{
    EXPECT_FALSE(settings().getBool("nothing"));
    EXPECT_EQ(settings().getInt("nothing"), 0);
    // A key created by a read has no values: cycling or stepping it must not divide by zero.
    settings().cycle("nothing");
    settings().step("nothing", -1);
    EXPECT_EQ(settings().getInt("nothing"), 0);
    // And defining it afterwards does not replace the implicit entry.
    settings().defineInt("nothing", 2, 1);
    EXPECT_EQ(settings().getInt("nothing"), 0);
}

TEST_F(SettingsTest, CycleWrapsAround)
{
    settings().defineInt("gamestate", 3, 0);
    settings().cycle("gamestate");
    settings().cycle("gamestate");
    EXPECT_EQ(settings().getInt("gamestate"), 2);
    settings().cycle("gamestate");
    EXPECT_EQ(settings().getInt("gamestate"), 0);
}

TEST_F(SettingsTest, StepKeepsTheTruncatingRemainder)
{
    settings().defineInt("menu-pos", 2, 0);
    settings().step("menu-pos", -1);
    EXPECT_EQ(settings().getInt("menu-pos"), -1); // below the range, as the menu always had it
    settings().step("menu-pos", -1);
    EXPECT_EQ(settings().getInt("menu-pos"), 0);
    settings().step("menu-pos", 0); // anything below 1 steps down
    EXPECT_EQ(settings().getInt("menu-pos"), -1);
    settings().step("menu-pos", 1);
    settings().step("menu-pos", 5);
    EXPECT_EQ(settings().getInt("menu-pos"), 1);
    settings().step("menu-pos", 1);
    EXPECT_EQ(settings().getInt("menu-pos"), 0);
}

TEST_F(SettingsTest, ToggleReportsAndFlips)
{
    settings().defineBool("help", false);
    testing::internal::CaptureStderr();
    settings().toggle("help");
    settings().toggle("help");
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "Switching help...\nSwitching help...\n");
    EXPECT_FALSE(settings().getBool("help"));
}
