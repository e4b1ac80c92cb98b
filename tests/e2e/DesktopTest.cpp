// SPDX-License-Identifier: MIT
// End-to-end: the game as a desktop program. Any window size and fullscreen, settings kept
// between runs, a gamepad (SDL's virtual joystick, fed through BLOTCH_VIRTUAL_PAD), pausing when
// another window takes the focus, and screenshots.
#include "E2eTest.h"
#include "support/Fixtures.h"

#include <X11/Xlib.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
void wait(double seconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

size_t count(const std::string& text, const std::string& part)
{
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    {
        ++n;
    }
    return n;
}

// Pixels that stand out from the region's top-left pixel: text on a plain background.
int ink(const Image& region)
{
    int n = 0;
    const uint8_t* background = region.pixel(0, 0);
    for (size_t i = 0; i < region.rgb.size(); i += 3)
    {
        n += std::abs(region.rgb[i] - background[0]) > 60 ||
             std::abs(region.rgb[i + 1] - background[1]) > 60;
    }
    return n;
}

// The window's size as the X server has it.
std::pair<int, int> windowSize(unsigned long window)
{
    const std::string geometry =
        runCommand("xdotool getwindowgeometry " + std::to_string(window) + " 2>/dev/null");
    std::smatch size;
    if (std::regex_search(geometry, size, std::regex(R"(Geometry: (\d+)x(\d+))")))
    {
        return {std::stoi(size[1]), std::stoi(size[2])};
    }
    return {0, 0};
}

bool waitForWindowSize(unsigned long window, int width, int height, double seconds = 10.0)
{
    for (double waited = 0.0; waited < seconds; waited += 0.1)
    {
        if (windowSize(window) == std::pair{width, height})
        {
            return true;
        }
        wait(0.1);
    }
    return false;
}

// The small floor with pillars 9 m ahead of the start: shapes whose widths show any stretching.
// The outer two are seen only in a window wider than 4:3. One mesh, as a level has.
fbxtest::AsciiMesh floorWithPillars()
{
    fbxtest::AsciiMesh mesh = smallFloor();
    for (const auto& [x0, x1] :
         {std::pair{-4.3, -3.8}, {-2.0, -1.5}, {0.0, 1.0}, {4.0, 4.6}, {7.5, 8.0}})
    {
        const int first = static_cast<int>(mesh.vertices.size() / 3);
        mesh.vertices.insert(mesh.vertices.end(),
                             {x0, 3.0, -6.0, x1, 3.0, -6.0, x1, 6.0, -6.0, x0, 6.0, -6.0});
        mesh.polygonVertices.insert(mesh.polygonVertices.end(),
                                    {first, first + 1, first + 2, -(first + 3) - 1});
    }
    return mesh;
}

// Another X client's window, to take the focus from the game as a player switching windows does.
class OtherWindow
{
public:
    OtherWindow()
    {
        x = XOpenDisplay(nullptr);
        if (!x)
        {
            return;
        }
        window = XCreateSimpleWindow(x, DefaultRootWindow(x), 0, 0, 200, 100, 0, 0, 0);
        XMapWindow(x, window);
        XSync(x, False);
    }
    ~OtherWindow()
    {
        if (x)
        {
            XDestroyWindow(x, window);
            XCloseDisplay(x);
        }
    }
    OtherWindow(const OtherWindow&) = delete;
    OtherWindow& operator=(const OtherWindow&) = delete;

    void takeFocus()
    {
        runCommand("timeout 5 xdotool windowfocus --sync " + std::to_string(window));
    }
    // Whether this client can take the pointer, as no one else holds it.
    bool pointerFree()
    {
        const int grabbed = XGrabPointer(x, window, False, 0, GrabModeAsync, GrabModeAsync, None,
                                         None, CurrentTime);
        if (grabbed == GrabSuccess)
        {
            XUngrabPointer(x, CurrentTime);
        }
        XSync(x, False);
        return grabbed == GrabSuccess;
    }

private:
    Display* x = nullptr;
    Window window = 0;
};

// A window manager on the current display while it lives: fullscreen is the window manager's
// to grant.
class WindowManager
{
public:
    WindowManager()
    {
        pid = fork();
        if (pid == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int nullFd = open("/dev/null", O_RDWR);
            dup2(nullFd, 1);
            dup2(nullFd, 2);
            execlp("openbox", "openbox", static_cast<char*>(nullptr));
            _exit(127);
        }
        wait(1.0);
    }
    ~WindowManager()
    {
        if (pid > 0)
        {
            ::kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
    }
    WindowManager(const WindowManager&) = delete;
    WindowManager& operator=(const WindowManager&) = delete;

private:
    int pid = -1;
};

class E2eDesktop : public E2eTest
{
protected:
    // The small floor with pillars, as the level of GAME.
    static void usePillarLevel(GameProcess& game)
    {
        game.writeData("fbx/level.fbx", fbxtest::asciiFile({floorWithPillars()}));
    }
    static std::string settingsFile(const GameProcess& game)
    {
        return game.configDir() + "/blotch/settings.ini";
    }
    // Environment entries that give a game the home and config folders of GAME.
    static std::vector<std::string> sameHomeAs(const GameProcess& game)
    {
        return {"HOME=" + game.homeDir(), "XDG_CONFIG_HOME=" + game.configDir()};
    }
    // Appends LINES to the virtual pad's command file.
    static void pad(const std::string& path, const std::string& lines)
    {
        std::ofstream(path, std::ios::app) << lines;
    }
};
} // namespace

TEST_F(E2eDesktop, AWideWindowShowsTheLevelUndistortedAndTheOverlayScaledToFit)
{
    PrivateDisplay display("1920x1080x24"); // room for a 1600 x 900 window
    ASSERT_TRUE(display.ready());
    GameProcess game(GameProcess::Data::Copy);
    usePillarLevel(game);
    ASSERT_TRUE(game.launch()) << game.errorText();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    game.waitExit(3.5); // past the lit start: a white level on black
    const Image usual = loadImage(shot(game, "usual"));
    ASSERT_EQ(usual.width, 1024);

    const std::string window = std::to_string(game.window());
    runCommand("xdotool windowmove " + window + " 0 0 windowsize " + window + " 1600 900");
    ASSERT_TRUE(waitForWindowSize(game.window(), 1600, 900));
    game.waitExit(1.0);
    const Image wide = loadImage(shot(game, "wide"));
    ASSERT_EQ(wide.width, 1600);
    ASSERT_EQ(wide.height, 900);

    // The middle 4:3 of the wide picture, brought back to 1024 x 768, is the usual picture: the
    // same vertical field of view, the pillars as wide as they were, the text where it was.
    const Image middle = scaled(crop(wide, 200, 0, 1400, 900), 1024, 768);
    EXPECT_LT(meanDifference(worldView(usual), worldView(middle)), 4.0);
    EXPECT_LT(countDifferent(worldView(usual), worldView(middle), 128), 1024 * 612 / 100);
    const Image labels = crop(usual, 10, 16, 76, 50); // "framerate:" and "game time:"
    EXPECT_GT(ink(labels), 150);
    EXPECT_LT(meanDifference(labels, crop(middle, 10, 16, 76, 50)), 25.0) << "the text moved";
    // The level also fills the sides, with the outer pillars only a wide view shows.
    EXPECT_GT(meanChannel(wide, 0, 55, 650, 85, 800), 200.0);
    EXPECT_GT(meanChannel(wide, 0, 1480, 650, 1510, 800), 200.0);

    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
    EXPECT_NE(readFile(settingsFile(game)).find("width = 1600\nheight = 900\n"), std::string::npos)
        << readFile(settingsFile(game));
}

TEST_F(E2eDesktop, FullscreenFillsTheScreenWithTheMenuLetterboxedAndIsRemembered)
{
    if (runCommand("command -v openbox").empty())
    {
        GTEST_SKIP() << "no openbox to grant fullscreen";
    }
    PrivateDisplay display; // a window manager of its own, on a 1280 x 1024 screen
    ASSERT_TRUE(display.ready());
    WindowManager manager;
    GameProcess game;
    ASSERT_TRUE(game.launch()) << game.errorText();
    game.waitExit(1.0);
    game.key("F11");
    ASSERT_TRUE(waitForWindowSize(game.window(), 1280, 1024)) << windowSize(game.window()).first;
    game.waitExit(1.0);
    const Image screen = loadImage(shot(game, "fullscreen"));
    ASSERT_EQ(screen.width, 1280);
    ASSERT_EQ(screen.height, 1024);
    // The 1024 x 768 picture at 1.25 times its size, black bars above and below.
    EXPECT_LT(meanChannel(screen, 0, 0, 0, 1280, 31), 2.0);
    EXPECT_LT(meanChannel(screen, 0, 0, 993, 1280, 1024), 2.0);
    const Image box = scaled(crop(screen, 0, 32, 1280, 992), 1024, 768);
    EXPECT_LT(meanDifference(box, expectedMenu("menu01")), 6.0);
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
    EXPECT_NE(readFile(settingsFile(game)).find("fullscreen = true"), std::string::npos);

    // The next start is fullscreen; Alt+Return gives the window back.
    GameProcess again;
    ASSERT_TRUE(again.launch(sameHomeAs(game))) << again.errorText();
    EXPECT_TRUE(waitForWindowSize(again.window(), 1280, 1024));
    again.key("alt+Return");
    EXPECT_TRUE(waitForWindowSize(again.window(), 1024, 768));
    again.key("Escape");
    EXPECT_EQ(again.waitExit(10.0), 0);
    const std::string settings = readFile(settingsFile(game));
    EXPECT_NE(settings.find("fullscreen = false"), std::string::npos) << settings;
    EXPECT_NE(settings.find("width = 1024\nheight = 768\n"), std::string::npos) << settings;
}

TEST_F(E2eDesktop, SwitchesSetWithKeysSurviveARestart)
{
    GameProcess first;
    ASSERT_TRUE(first.launch()) << first.errorText();
    EXPECT_FALSE(fs::exists(settingsFile(first))) << "nothing changed, nothing written";
    first.key("F1");
    first.key("F9");
    first.key("Escape");
    EXPECT_EQ(first.waitExit(10.0), 0);
    const std::string written = readFile(settingsFile(first));
    EXPECT_NE(written.find("help = true"), std::string::npos) << written;
    EXPECT_NE(written.find("transparency = false"), std::string::npos) << written;

    // The help row is there from the start of the next run.
    GameProcess second(GameProcess::Data::Copy);
    usePillarLevel(second);
    ASSERT_TRUE(second.launch(sameHomeAs(first))) << second.errorText();
    ASSERT_TRUE(second.startMatch(GameProcess::START_SECONDS));
    second.waitExit(3.5);
    const Image withHelp = crop(loadImage(shot(second, "help")), 200, 16, 1010, 50);
    second.key("F1");
    second.waitExit(0.5);
    const Image withoutHelp = crop(loadImage(shot(second, "nohelp")), 200, 16, 1010, 50);
    EXPECT_GT(ink(withHelp), 1000);
    EXPECT_LT(ink(withoutHelp), 20);
    second.key("Escape");
    EXPECT_EQ(second.waitExit(10.0), 0);
    EXPECT_NE(readFile(settingsFile(first)).find("help = false"), std::string::npos);
}

TEST_F(E2eDesktop, ADamagedSettingsFileIsReportedOnceAndLeftAloneAndResetStartsFromDefaults)
{
    GameProcess game;
    const std::string damaged = "[graphics]\nhelp = maybe\n";
    fs::create_directories(game.configDir() + "/blotch");
    std::ofstream(settingsFile(game)) << damaged;
    ASSERT_TRUE(game.launch()) << game.errorText();
    EXPECT_TRUE(game.waitForError("[ERROR] Ignoring the settings file " + settingsFile(game) +
                                      ": line 2: 'help' must be true or false; using the "
                                      "defaults\n",
                                  5.0))
        << game.errorText();
    EXPECT_EQ(count(game.errorText(), "settings file"), 1u);
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
    EXPECT_EQ(readFile(settingsFile(game)), damaged);

    // With --reset-settings the file is not read: F1 turns help on from its default, off.
    std::ofstream(settingsFile(game), std::ios::trunc) << "[graphics]\nhelp = true\n";
    GameProcess reset;
    reset.setCommand(BLOTCH_BINARY, {"--reset-settings"});
    ASSERT_TRUE(reset.launch(sameHomeAs(game))) << reset.errorText();
    reset.key("F1");
    reset.key("Escape");
    EXPECT_EQ(reset.waitExit(10.0), 0);
    EXPECT_NE(readFile(settingsFile(game)).find("help = true"), std::string::npos);
}

TEST_F(E2eDesktop, AVirtualPadDrivesTheMenuWalksLooksAndThrows)
{
    GameProcess game(GameProcess::Data::Copy);
    usePillarLevel(game);
    const std::string commands = game.workDir() + "/pad";
    std::ofstream(commands).flush();
    ASSERT_TRUE(game.start({"BLOTCH_VIRTUAL_PAD=" + commands}));
    ASSERT_TRUE(game.waitForError("[SUCCESS] - Successfully started Main Loop",
                                  GameProcess::START_SECONDS));
    ASSERT_NE(game.window(), 0u);

    pad(commands, "attach\n");
    ASSERT_TRUE(game.waitForError("Gamepad connected: Blotch virtual pad\n", 5.0));
    pad(commands, "button dpdown 1\nbutton dpdown 0\nbutton start 1\nbutton start 0\n");
    ASSERT_TRUE(game.waitForMatch(GameProcess::START_SECONDS)) << game.errorText();
    game.waitExit(3.5);

    // The right stick turns the view, and only while it is pushed.
    const Image before = worldView(loadImage(shot(game, "before")));
    pad(commands, "axis rightx 32767\n");
    game.waitExit(0.3);
    pad(commands, "axis rightx 0\n");
    game.waitExit(0.3);
    const Image turned = worldView(loadImage(shot(game, "turned")));
    game.waitExit(0.5);
    const Image still = worldView(loadImage(shot(game, "still")));
    EXPECT_GT(countDifferent(before, turned, 8), 5000) << "the right stick did not look";
    EXPECT_LT(countDifferent(turned, still, 8), 50) << "the view turned on without the stick";

    // A and the right trigger each throw one ball per press, however long they are held.
    const auto throws = [&] { return count(game.errorText(), ")\n"); };
    const size_t none = throws();
    pad(commands, "button a 1\n");
    EXPECT_TRUE(game.waitForError(")\n", 5.0));
    game.waitExit(0.5);
    EXPECT_EQ(throws(), none + 1);
    pad(commands, "button a 0\naxis righttrigger 32767\n");
    game.waitExit(1.0);
    EXPECT_EQ(throws(), none + 2);
    pad(commands, "axis righttrigger 0\n");

    // Pulled out and plugged in again while the match runs.
    pad(commands, "detach\n");
    EXPECT_TRUE(game.waitForError("Gamepad disconnected: Blotch virtual pad\n", 5.0));
    pad(commands, "attach\n");
    for (int i = 0; i < 50 && count(game.errorText(), "Gamepad connected") < 2; ++i)
    {
        game.waitExit(0.1);
    }
    EXPECT_EQ(count(game.errorText(), "Gamepad connected: Blotch virtual pad\n"), 2u);

    // The left stick walks: backwards, off the floor, to the end picture. Not forwards: how far
    // the right stick turned depends on how fast the machine ran, and a pillar stands ahead at
    // some of those angles; behind the start there is only the floor's edge.
    pad(commands, "axis lefty 32767\n");
    const Image end = expectedMenu("menu02");
    double difference = 1e9;
    for (int i = 0; i < 120 && difference > 6.0; ++i) // a busy machine walks slowly
    {
        game.waitExit(0.25);
        difference = meanDifference(loadImage(shot(game, "end")), end);
    }
    EXPECT_LT(difference, 6.0) << "the left stick did not walk off the floor";

    pad(commands, "button back 1\n"); // quits, as Escape does
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2eDesktop, AnotherWindowTakingTheFocusPausesTheMatchUntilTheFocusComesBack)
{
    GameProcess game(GameProcess::Data::Copy);
    usePillarLevel(game);
    ASSERT_TRUE(game.launch()) << game.errorText();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    game.focus();
    game.waitExit(1.0);
    EXPECT_EQ(game.errorText().find("Paused"), std::string::npos) << "paused with the focus";

    OtherWindow other;
    EXPECT_FALSE(other.pointerFree()) << "the game does not hold the mouse while it plays";
    other.takeFocus();
    ASSERT_TRUE(game.waitForError("Paused at ", 5.0));
    game.waitExit(0.2);
    EXPECT_TRUE(other.pointerFree()) << "the paused game still holds the mouse";
    game.waitExit(0.5);
    const Image paused1 = loadImage(shot(game, "paused1"));
    game.waitExit(1.5);
    const Image paused2 = loadImage(shot(game, "paused2"));
    // The game time on the overlay stands still, and the middle of the screen says so.
    EXPECT_LT(countDifferent(crop(paused1, 0, 0, 1024, 60), crop(paused2, 0, 0, 1024, 60), 8), 10);
    EXPECT_GT(ink(crop(paused1, 420, 360, 610, 410)), 300) << "no \"paused\"";

    game.focus();
    ASSERT_TRUE(game.waitForError("Resumed at ", 5.0));
    std::smatch at;
    const std::string said = game.errorText();
    ASSERT_TRUE(std::regex_search(said, at,
                                  std::regex(R"(Paused at ([0-9.]+) s of game time\nResumed at )"
                                             R"(([0-9.]+) s of game time\n)")))
        << said;
    EXPECT_NEAR(std::stod(at[2]), std::stod(at[1]), 0.1) << "the game time jumped";
    game.waitExit(1.2);
    const Image running1 = loadImage(shot(game, "running1"));
    game.waitExit(1.2);
    const Image running2 = loadImage(shot(game, "running2"));
    EXPECT_GT(countDifferent(crop(running1, 0, 0, 1024, 60), crop(running2, 0, 0, 1024, 60), 8), 10)
        << "the game time does not run again";
    EXPECT_LT(ink(crop(running2, 420, 360, 610, 410)), 10);
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2eDesktop, F12SavesThePictureOnScreenOrSaysWhyNot)
{
    GameProcess game;
    std::ofstream(game.configDir() + "/user-dirs.dirs") << "XDG_PICTURES_DIR=\"$HOME/Shots\"\n";
    const std::string folder = game.homeDir() + "/Shots/Blotch";
    std::ofstream(game.homeDir() + "/Shots") << "a file where the folder should be";
    ASSERT_TRUE(game.launch()) << game.errorText();
    game.waitExit(1.0);

    game.key("F12");
    EXPECT_TRUE(game.waitForError("[ERROR] Could not save a screenshot in " + folder + ": ", 5.0))
        << game.errorText();
    fs::remove(game.homeDir() + "/Shots");
    game.key("F12");
    ASSERT_TRUE(game.waitForError("Screenshot saved to " + folder + "/blotch-", 5.0))
        << game.errorText();
    std::smatch saved;
    const std::string said = game.errorText();
    ASSERT_TRUE(std::regex_search(said, saved, std::regex("Screenshot saved to (.*)\n")));
    const Image picture = loadImage(saved[1]);
    const Image screen = loadImage(shot(game, "screen"));
    ASSERT_EQ(picture.width, 1024);
    ASSERT_EQ(picture.height, 768);
    EXPECT_LT(meanDifference(picture, screen), 1.0);
    EXPECT_LT(meanDifference(picture, expectedMenu("menu01")), 6.0);
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

namespace
{
// The first lit row from the top in column X of the world: the top of a pillar.
int topOfPillar(const Image& picture, int x)
{
    for (int y = 60; y < picture.height; ++y)
    {
        if (picture.pixel(x, y)[0] > 200)
        {
            return y;
        }
    }
    return picture.height;
}

// The first lit column from the left in row Y: the left edge of the leftmost pillar.
int leftEdge(const Image& picture, int y)
{
    for (int x = 0; x < picture.width; ++x)
    {
        if (picture.pixel(x, y)[0] > 200)
        {
            return x;
        }
    }
    return picture.width;
}
} // namespace

// The mouse turns the view by the sensitivity times 0.0609 radians a pixel, and invert-y makes
// moving it forward (down the screen) look up instead of down.
TEST_F(E2eDesktop, TheSensitivityScalesTheMouseAndInvertYFlipsTheVerticalLook)
{
    const int pillarColumn = 357; // the middle of the 1 m pillar, left of the centre
    struct Run
    {
        const char* settings;
        int horizontalChange; // pixels of the world view changed by 20 pixels of mouse motion
        int edgeMoved;        // columns the leftmost pillar moved by them
        int pillarMoved;      // rows the pillar's top moved by 20 pixels down
    };
    std::vector<Run> runs = {{"", 0, 0, 0},
                             {"[input]\nsensitivity = 0.05\ninvert-y = true\n", 0, 0, 0}};
    for (Run& run : runs)
    {
        GameProcess game(GameProcess::Data::Copy);
        usePillarLevel(game);
        if (*run.settings)
        {
            fs::create_directories(game.configDir() + "/blotch");
            std::ofstream(settingsFile(game)) << run.settings;
        }
        ASSERT_TRUE(game.launch()) << game.errorText();
        ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
        game.waitExit(3.5);
        const Image level = loadImage(shot(game, "level"));
        game.mouseMoveRelative(0, 20);
        game.waitExit(0.5);
        const Image vertical = loadImage(shot(game, "vertical"));
        run.pillarMoved = topOfPillar(vertical, pillarColumn) - topOfPillar(level, pillarColumn);
        game.mouseMoveRelative(20, 0);
        game.waitExit(0.5);
        const Image turned = loadImage(shot(game, "turned"));
        run.horizontalChange = countDifferent(worldView(vertical), worldView(turned), 8);
        run.edgeMoved = leftEdge(vertical, 650) - leftEdge(turned, 650);
        game.key("Escape");
        EXPECT_EQ(game.waitExit(10.0), 0);
    }
    const Run& usual = runs[0];
    const Run& slowInverted = runs[1];
    // Looking down lifts the pillar on screen; the look is clamped to 3.5 degrees either way
    // (about 60 rows), which both runs reach.
    EXPECT_LT(usual.pillarMoved, -30);
    EXPECT_GT(slowInverted.pillarMoved, 30);
    // 20 pixels turn the usual view by 70 degrees: the pillars are out of sight. At 0.05 times
    // that it is 3.5 degrees: they move left by about 56 pixels.
    EXPECT_GT(usual.horizontalChange, 20000);
    EXPECT_GT(slowInverted.edgeMoved, 30);
    EXPECT_LT(slowInverted.edgeMoved, 90);
}
