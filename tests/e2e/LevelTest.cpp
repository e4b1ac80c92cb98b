// SPDX-License-Identifier: MIT
// End-to-end: starting a match shows the level lit, then flat white; the camera answers the
// mouse and the keys.
#include "E2eTest.h"

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <set>

namespace
{

int levelTriangles()
{
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(std::string(BLOTCH_SOURCE_DIR) + "/data/fbx/level.fbx",
                                             aiProcess_Triangulate);
    if (!scene)
    {
        return -1;
    }
    int triangles = 0;
    for (unsigned i = 0; i < scene->mNumMeshes; ++i)
    {
        triangles += static_cast<int>(scene->mMeshes[i]->mNumFaces);
    }
    return triangles;
}

struct Tones
{
    double white = 0;   // share of pixels brighter than 250
    double black = 0;   // share darker than 5
    int greys = 0;      // distinct grey levels in between
    int greyPixels = 0; // pixels in between
};

Tones tones(const Image& image)
{
    Tones t;
    std::set<int> greys;
    const double total = static_cast<double>(image.width) * image.height;
    for (int y = 0; y < image.height; ++y)
    {
        for (int x = 0; x < image.width; ++x)
        {
            const uint8_t* p = image.pixel(x, y);
            const int v = (p[0] + p[1] + p[2]) / 3;
            if (v > 250)
            {
                t.white += 1.0 / total;
            }
            else if (v < 5)
            {
                t.black += 1.0 / total;
            }
            else
            {
                greys.insert(v);
                ++t.greyPixels;
            }
        }
    }
    t.greys = static_cast<int>(greys.size());
    return t;
}

bool isShaded(const Tones& t)
{
    return t.greys > 40 && t.white < 0.9;
}
bool isFlat(const Tones& t)
{
    return t.greys < 8 && t.white > 0.3 && t.white + t.black > 0.97;
}

class E2eLevel : public E2eTest
{
protected:
    void SetUp() override
    {
        E2eTest::SetUp();
        if (!IsSkipped())
        {
            ASSERT_TRUE(game.launch()) << game.errorText();
        }
    }

    // Takes pictures until one satisfies WANTED; returns its path, or "" after SECONDS.
    template <typename Wanted>
    std::string waitForPicture(const std::string& name, Wanted wanted, double seconds)
    {
        for (double waited = 0; waited < seconds; waited += 0.2)
        {
            const std::string path = shot(game, name);
            const Tones t = tones(worldView(loadImage(path)));
            if (wanted(t))
            {
                return path;
            }
            last = "white " + std::to_string(t.white) + " black " + std::to_string(t.black) +
                   " greys " + std::to_string(t.greys) + " in " + std::to_string(t.greyPixels) +
                   " pixels";
            game.waitExit(0.2);
        }
        return "";
    }

    GameProcess game;
    std::string last; // the tones of the last picture looked at
};
} // namespace

TEST_F(E2eLevel, ReturnImportsTheLevelShowsItLitThenFlatWhite)
{
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    const std::string lit = waitForPicture("lit", isShaded, 2.4);
    EXPECT_FALSE(lit.empty()) << "no shaded picture in the first seconds of the match";

    // The import report, then the vertex count on a line of its own.
    const std::string out = game.outputText();
    for (const char* line :
         {"-------FBX Loader-------------", "-------loading the scene", "Reading File succeeded",
          "File Format recognized", "Importing File succeeded", "Node is a Mesh", "Mesh Name: "})
    {
        EXPECT_NE(out.find(line), std::string::npos) << line;
    }
    const int triangles = levelTriangles();
    ASSERT_GT(triangles, 1000);
    EXPECT_NE(out.find("\n" + std::to_string(3 * triangles) + "\n"), std::string::npos)
        << "expected " << 3 * triangles << " vertices";

    const std::string flat = waitForPicture("flat", isFlat, 6.0);
    ASSERT_FALSE(flat.empty()) << "the level never turned flat white: " << last;
    const Tones flatTones = tones(worldView(loadImage(flat)));

    game.key("F3"); // wireframe: lines on black
    const std::string lines = waitForPicture(
        "lines", [&](const Tones& t) { return t.white < flatTones.white * 0.6; }, 5.0);
    EXPECT_FALSE(lines.empty());
    game.key("F3");
    ASSERT_FALSE(waitForPicture("filled", isFlat, 5.0).empty()) << "wireframe did not switch off";

    game.key("F6"); // vertex buffers off: the same picture from client memory
    ASSERT_TRUE(game.waitForError("Switching vbo...", 5.0));
    game.waitExit(0.5);
    const Image withoutBuffers = worldView(loadImage(waitForPicture("novbo", isFlat, 5.0)));
    EXPECT_LT(countDifferent(withoutBuffers, worldView(loadImage(flat)), 16), 1024 * 768 / 200);

    // Motion blur: standing still, the same picture; strafing, the edges smear into greys.
    game.key("F7");
    ASSERT_TRUE(game.waitForError("Switching motionblur...", 5.0));
    game.waitExit(0.5);
    const Image still = worldView(loadImage(waitForPicture("blurstill", isFlat, 5.0)));
    EXPECT_LT(countDifferent(still, worldView(loadImage(flat)), 16), 1024 * 768 / 200);
    const int stillGreys = tones(still).greyPixels;
    runCommand("xdotool keydown d");
    game.waitExit(0.4);
    const std::string smeared = waitForPicture(
        "smeared", [&](const Tones& t) { return t.greyPixels > stillGreys + 1500; }, 3.0);
    runCommand("xdotool keyup d");
    EXPECT_FALSE(smeared.empty()) << "no smeared edges while strafing with motion blur ("
                                  << stillGreys << " grey pixels standing): " << last;
    EXPECT_EQ(game.outputText().find("error with framebuffer"), std::string::npos);

    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}

TEST_F(E2eLevel, TheViewTurnsWithTheMouseAndWalksWithTheKeys)
{
    ASSERT_TRUE(game.startMatch(GameProcess::START_SECONDS));
    ASSERT_FALSE(waitForPicture("lit", isShaded, 2.0).empty());
    ASSERT_FALSE(waitForPicture("start", isFlat, 6.0).empty());
    const Image start = worldView(loadImage(shot(game, "start")));

    game.mouseMoveRelative(25, 0);
    game.waitExit(0.5);
    const Image turned = worldView(loadImage(shot(game, "turned")));
    EXPECT_GT(countDifferent(start, turned, 16), 1024 * 768 / 50)
        << "the mouse did not turn the view";

    // R levels the view and faces the start direction again. It acts while held, so hold it for
    // a few frames.
    runCommand("xdotool keydown r; sleep 0.4; xdotool keyup r");
    game.waitExit(0.5);
    EXPECT_LT(countDifferent(start, worldView(loadImage(shot(game, "reset"))), 16),
              1024 * 768 / 200);

    runCommand("xdotool keydown w; sleep 0.6; xdotool keyup w");
    game.waitExit(0.3);
    EXPECT_GT(countDifferent(start, worldView(loadImage(shot(game, "walked"))), 16),
              1024 * 768 / 100)
        << "holding W did not move the view";

    game.key("Escape");
    EXPECT_EQ(game.waitExit(10.0), 0);
}
