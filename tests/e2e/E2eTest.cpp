// SPDX-License-Identifier: MIT
#include "E2eTest.h"

#include <cstdlib>

void E2eTest::SetUp()
{
    if (!std::getenv("DISPLAY"))
    {
        GTEST_SKIP() << "no X display";
    }
}

std::string shot(GameProcess& game, const std::string& name)
{
    const std::string path = game.workDir() + "/" + name + ".png";
    EXPECT_TRUE(game.screenshot(path));
    return path;
}

Image expectedMenu(const std::string& picture)
{
    const Image stretched = stretchedRows(
        loadImage(std::string(BLOTCH_SOURCE_DIR) + "/data/textures/" + picture + ".png"), 772);
    Image visible;
    visible.width = 1024;
    visible.height = 768;
    visible.rgb.assign(stretched.rgb.begin() + 2 * 1024 * 3,
                       stretched.rgb.begin() + 770 * 1024 * 3);
    return visible;
}

fbxtest::AsciiMesh smallFloor()
{
    fbxtest::AsciiMesh floor;
    floor.name = "floor";
    floor.vertices = {-3, 3, -7, -3, 3, 13, 7, 3, 13, 7, 3, -7};
    floor.polygonVertices = {0, 1, 2, -4};
    return floor;
}
