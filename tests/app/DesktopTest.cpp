// SPDX-License-Identifier: MIT
// The desktop side of the game that needs no window: the command line's new options, the
// screenshot folder and names, the gamepad sticks and the screen box of the 2D layout.
#include "app/CommandLine.h"
#include "app/Gamepads.h"
#include "app/Screenshot.h"
#include "render/ScreenBox.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <vector>

namespace fs = std::filesystem;

namespace
{
CommandLine parse(std::vector<const char*> args)
{
    args.insert(args.begin(), "blotch");
    return parseCommandLine(static_cast<int>(args.size()), args.data());
}
} // namespace

TEST(CommandLine, SensitivityTakesAFactorInRangeAndResetNeedsNoValue)
{
    const CommandLine line = parse({"--sensitivity", "0.5", "--reset-settings", "level.fbx"});
    EXPECT_EQ(line.action, CommandLine::Action::Play);
    EXPECT_FLOAT_EQ(line.sensitivity, 0.5f);
    EXPECT_TRUE(line.resetSettings);
    EXPECT_EQ(line.levelFile, "level.fbx");

    const CommandLine plain = parse({});
    EXPECT_EQ(plain.sensitivity, 0.0f); // the remembered one
    EXPECT_FALSE(plain.resetSettings);
    EXPECT_FLOAT_EQ(parse({"--sensitivity", "0.05"}).sensitivity, 0.05f);
    EXPECT_FLOAT_EQ(parse({"--sensitivity", "5"}).sensitivity, 5.0f);

    for (const std::vector<const char*>& bad : {std::vector<const char*>{"--sensitivity"},
                                                {"--sensitivity", "0.04"},
                                                {"--sensitivity", "6"},
                                                {"--sensitivity", "fast"},
                                                {"--sensitivity", ""},
                                                {"--sensitivity", "1x"},
                                                {"--sensitivity", "nan"}})
    {
        const CommandLine line = parse(bad);
        EXPECT_EQ(line.action, CommandLine::Action::Misuse) << bad.back();
        EXPECT_EQ(line.problem, "--sensitivity takes a factor from 0.05 to 5");
    }
}

TEST(Screenshot, ThePicturesFolderComesFromUserDirsWithHomeFilledIn)
{
    const std::string home = "/home/player";
    EXPECT_EQ(picturesFolderFrom("# written by xdg-user-dirs-update\n"
                                 "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                                 "XDG_PICTURES_DIR=\"$HOME/Bilder\"\n",
                                 home),
              "/home/player/Bilder");
    EXPECT_EQ(picturesFolderFrom("XDG_PICTURES_DIR=\"/srv/shots\"", home), "/srv/shots");
    // Commented out, unquoted, relative or absent: none.
    for (const char* text : {"#XDG_PICTURES_DIR=\"$HOME/P\"\n", "XDG_PICTURES_DIR=$HOME/P\n",
                             "XDG_PICTURES_DIR=\"P\"\n", "XDG_PICTURES_DIR=\"", ""})
    {
        EXPECT_EQ(picturesFolderFrom(text, home), "") << text;
    }
}

TEST(Screenshot, NamesTellTheTimeAndNeverReplaceAnEarlierPicture)
{
    char pattern[] = "/tmp/blotch-shots-XXXXXX";
    const std::string folder = mkdtemp(pattern);
    std::tm when{};
    when.tm_year = 2026 - 1900;
    when.tm_mon = 10;
    when.tm_mday = 25;
    when.tm_hour = 18;
    when.tm_min = 5;
    when.tm_sec = 9;
    when.tm_isdst = -1;
    const long long now = static_cast<long long>(std::mktime(&when));
    const std::string first = screenshotPath(folder, now);
    EXPECT_EQ(first, folder + "/blotch-2026-11-25-180509.png");
    std::ofstream(first) << "taken";
    const std::string second = screenshotPath(folder, now);
    EXPECT_EQ(second, folder + "/blotch-2026-11-25-180509-2.png");
    std::ofstream(second) << "taken";
    EXPECT_EQ(screenshotPath(folder, now), folder + "/blotch-2026-11-25-180509-3.png");
    fs::remove_all(folder);
}

TEST(Gamepads, SticksReadNothingInTheDeadZoneAndAllTheWayAtTheEdge)
{
    const float deadZone = 0.25f;
    EXPECT_EQ(stickValue(0, deadZone), 0.0f);
    EXPECT_EQ(stickValue(8000, deadZone), 0.0f);
    EXPECT_EQ(stickValue(-8000, deadZone), 0.0f);
    EXPECT_FLOAT_EQ(stickValue(32767, deadZone), 1.0f);
    EXPECT_FLOAT_EQ(stickValue(-32768, deadZone), -1.0f); // one further than the other side
    // Just past the dead zone motion starts from nothing, and grows with the stick.
    const float justPast = stickValue(8300, deadZone);
    EXPECT_GT(justPast, 0.0f);
    EXPECT_LT(justPast, 0.02f);
    float previous = 0.0f;
    for (int raw = 8200; raw <= 32767; raw += 1000)
    {
        EXPECT_GT(stickValue(raw, deadZone), previous);
        EXPECT_FLOAT_EQ(stickValue(-raw, deadZone), -stickValue(raw, deadZone));
        previous = stickValue(raw, deadZone);
    }
}

TEST(ScreenBox, TheLayoutKeepsItsAspectCentredInAnyWindow)
{
    const struct
    {
        int width, height;
        Viewport box;
    } cases[] = {
        {1024, 768, {0, 0, 1024, 768}},   // the layout's own size: all of it
        {1600, 900, {200, 0, 1200, 900}}, // wide: bars left and right
        {1280, 1024, {0, 32, 1280, 960}}, // tall: bars above and below
        {2048, 1536, {0, 0, 2048, 1536}}, // a high-DPI drawable of the same shape
        {801, 600, {0, 0, 800, 600}},     // rounding never leaves the drawable
        {1, 1, {0, 0, 1, 1}},             // never empty
    };
    for (const auto& c : cases)
    {
        const Viewport box = screenBox(c.width, c.height);
        EXPECT_EQ(box.x, c.box.x) << c.width << "x" << c.height;
        EXPECT_EQ(box.y, c.box.y) << c.width << "x" << c.height;
        EXPECT_EQ(box.width, c.box.width) << c.width << "x" << c.height;
        EXPECT_EQ(box.height, c.box.height) << c.width << "x" << c.height;
    }
}
