// SPDX-License-Identifier: MIT
// End-to-end: paint on the flat white level, the shape of a splat on a wall, the overlay, and
// the "loading..." message.
#include "E2eTest.h"

#include <algorithm>
#include <cmath>
#include <regex>

namespace
{
const float PAINT[4][3] = {
    {1.0f, 0.617f, 0.0f}, {0.604f, 1.0f, 0.0f}, {0.988f, 0.0f, 1.0f}, {0.0f, 0.918f, 1.0f}};

// Which paint colour a pixel shows, or -1.
int paintOf(const uint8_t* p)
{
    for (int c = 0; c < 4; ++c)
    {
        if (std::abs(p[0] - PAINT[c][0] * 255) < 24 && std::abs(p[1] - PAINT[c][1] * 255) < 24 &&
            std::abs(p[2] - PAINT[c][2] * 255) < 24)
        {
            return c;
        }
    }
    return -1;
}

// The painted pixels and the box around them.
struct PaintBox
{
    int count = 0;
    int x0 = 1 << 20, y0 = 1 << 20, x1 = -1, y1 = -1;
    int width() const { return x1 - x0 + 1; }
    int height() const { return y1 - y0 + 1; }
};

PaintBox paintBox(const Image& image)
{
    PaintBox box;
    for (int y = 0; y < image.height; ++y)
    {
        for (int x = 0; x < image.width; ++x)
        {
            if (paintOf(image.pixel(x, y)) >= 0)
            {
                box = {box.count + 1, std::min(box.x0, x), std::min(box.y0, y), std::max(box.x1, x),
                       std::max(box.y1, y)};
            }
        }
    }
    return box;
}

// A floor at y = 3 around the start (2, 3) and, 6 m to its left, a wall facing +x. One mesh: the
// level is the file's last mesh.
std::string wallOnTheLeft()
{
    fbxtest::AsciiMesh level;
    level.name = "floor and wall";
    level.vertices = {-4, 3, -7,  -4, 3,  13,  8,  3,  13, 8,  3, -7,
                      -4, 0, -20, -4, 20, -20, -4, 20, 20, -4, 0, 20};
    level.polygonVertices = {0, 1, 2, -4, 4, 5, 6, -8};
    return fbxtest::asciiFile({level});
}

class E2ePaintHud : public E2eTest
{
protected:
    E2ePaintHud() : game(GameProcess::Data::Copy) {}

    void start() { ASSERT_TRUE(game.launch()) << game.errorText(); }
    Image shot(const std::string& name) { return loadImage(::shot(game, name)); }

    GameProcess game;
};
} // namespace

TEST_F(E2ePaintHud, ThrownBallsLeaveSplatsInTheirColoursOnTheWhiteLevel)
{
    start();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    game.waitExit(3.5); // past the lit start: only paint has colour now
    EXPECT_EQ(paintBox(worldView(shot("before"))).count, 0);

    for (int i = 0; i < 6; ++i)
    {
        game.mouseMoveRelative(i % 2 ? -3 : 3, 0);
        game.click(1);
        game.waitExit(0.35);
    }
    int painted = 0;
    for (int i = 0; i < 30 && painted <= 2000; ++i) // balls take a moment to land
    {
        game.waitExit(0.25);
        painted = paintBox(worldView(shot("after"))).count;
    }
    EXPECT_GT(painted, 2000) << "no splats to be seen";
    EXPECT_EQ(game.outputText().find("FMOD error"), std::string::npos) << "the splash failed";
    EXPECT_NE(game.outputText().find("Loaded Texture: paint0"), std::string::npos);
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2ePaintHud, ASplatOnAWallFacingXIsAboutAsTallAsItIsWide)
{
    game.writeData("fbx/level.fbx", wallOnTheLeft());
    start();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    game.waitExit(3.5);
    // A quarter turn to the left (3.5 degrees a pixel), in steps too small for the pointer's
    // acceleration.
    for (int i = 0; i < 13; ++i)
    {
        game.mouseMoveRelative(-2, 0);
    }
    game.waitExit(0.5);
    const size_t before = game.errorText().size();
    game.click(1);
    std::smatch aim;
    std::string line;
    for (int i = 0; i < 50 && aim.empty(); ++i)
    {
        game.waitExit(0.1);
        line = game.errorText().substr(before);
        std::regex_search(line, aim, std::regex(R"(\((-?[0-9.]+), (-?[0-9.]+), (-?[0-9.]+)\)\n)"));
    }
    ASSERT_FALSE(aim.empty()) << "no throw: " << line;
    ASSERT_LT(std::stof(aim[1].str()), -0.95f) << "the view did not turn to the wall: " << line;

    PaintBox box;
    for (int i = 0; i < 20 && box.height() < 150; ++i) // the ball takes a moment to land
    {
        game.waitExit(0.25);
        box = paintBox(worldView(shot("splat")));
    }
    EXPECT_GT(box.height(), 150) << "no splat on the wall 6 m ahead";
    const double ratio = static_cast<double>(box.width()) / box.height();
    EXPECT_GT(ratio, 0.6) << box.width() << " x " << box.height() << " pixels";
    EXPECT_LT(ratio, 1.7) << box.width() << " x " << box.height() << " pixels";
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2ePaintHud, TheOverlayShowsTheNextColourTheFrameRateAndTheHelpRow)
{
    start();
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    game.waitExit(3.5);

    // The disc at the bottom centre shows the next ball's colour.
    int first = -1;
    for (int i = 0; i < 20 && first < 0; ++i)
    {
        first = paintOf(shot("disc").pixel(512, 740));
        if (first < 0)
        {
            game.waitExit(0.25);
        }
    }
    EXPECT_GE(first, 0) << "the colour disc is missing";
    bool changed = false;
    for (int i = 0; i < 8 && !changed; ++i)
    {
        game.click(1);
        game.waitExit(0.4);
        int now = -1;
        for (int look = 0; look < 8 && now < 0; ++look)
        {
            now = paintOf(shot("disc").pixel(512, 740));
        }
        EXPECT_GE(now, 0);
        changed = now >= 0 && now != first;
    }
    EXPECT_TRUE(changed) << "the disc never changed colour over eight throws";

    // "framerate: N fps" and "game time: N sec" at the top left over the black sky; F1 adds the
    // help row and F2 takes the frame rate away. The camera stands still, so what changes between
    // two pictures is the overlay.
    const Image plain = shot("hud");
    game.key("F1");
    ASSERT_TRUE(game.waitForError("Switching help...", 5.0));
    auto column = [&](const Image& picture, int x)
    {
        return countDifferent(crop(plain, 512 + x - 40, 16, 512 + x + 40, 40),
                              crop(picture, 512 + x - 40, 16, 512 + x + 40, 40), 64);
    };
    Image help = shot("help");
    for (int look = 0; look < 20 && column(help, 450) <= 60; ++look)
    {
        game.waitExit(0.25);
        help = shot("help");
    }
    for (int x : {-280, -110, 30, 150, 300, 450}) // every column of the help row
    {
        EXPECT_GT(column(help, x), 60) << "column at " << x;
    }
    game.key("F2");
    ASSERT_TRUE(game.waitForError("Switching framerate...", 5.0));
    int gone = 0;
    for (int look = 0; look < 20 && gone <= 300; ++look)
    {
        game.waitExit(0.25);
        gone =
            countDifferent(crop(plain, 8, 14, 200, 54), crop(shot("norate"), 8, 14, 200, 54), 64);
    }
    EXPECT_GT(gone, 300) << "the frame rate and game time did not go away";
    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2ePaintHud, LoadingIsShownWhileTheMatchIsBuilt)
{
    // A big floor makes the build take long enough to look at the loading frame.
    fbxtest::AsciiMesh floor;
    floor.name = "floor";
    const int n = 250;
    for (int i = 0; i <= n; ++i)
    {
        for (int j = 0; j <= n; ++j)
        {
            floor.vertices.insert(floor.vertices.end(), {i * 0.5 - 60.0, 3.0, j * 0.5 - 60.0});
        }
    }
    for (int i = 0; i < n; ++i)
    {
        for (int j = 0; j < n; ++j)
        {
            const int a = i * (n + 1) + j;
            floor.polygonVertices.insert(floor.polygonVertices.end(),
                                         {a, a + 1, a + n + 2, ~(a + n + 1)});
        }
    }
    game.writeData("fbx/level.fbx", fbxtest::asciiFile({floor}));
    start();
    game.waitExit(1.0);
    const Image menu = shot("menu");
    // The loading frame stays up while the level builds: look until it shows.
    game.key("Return");
    const Image before = crop(menu, 400, 560, 624, 612);
    bool seen = false;
    int lettering = 0;
    double rest = 0.0;
    for (int i = 0; i < 40 && !seen && game.running(); ++i)
    {
        const Image loading = shot("loading");
        if (loading.empty())
        {
            continue;
        }
        // The text is centred 200 below the middle: dark letters over the light menu picture,
        // and the rest of the frame is still the menu.
        lettering = countDifferent(before, crop(loading, 400, 560, 624, 612), 64);
        rest = meanDifference(crop(menu, 0, 0, 1024, 500), crop(loading, 0, 0, 1024, 500));
        seen = lettering > 800 && rest < 3.0;
    }
    EXPECT_TRUE(seen) << "no \"loading...\" over the menu; last look: " << lettering
                      << " changed pixels where the text goes, " << rest
                      << " mean difference elsewhere";
    game.key("Escape");
    EXPECT_EQ(game.waitExit(20.0), 0);
}
