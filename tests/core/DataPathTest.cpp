// SPDX-License-Identifier: MIT
#include "core/DataPath.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

TEST(DataPath, LooksBesideTheBinaryThenInTheInstallThenInTheWorkingDirectory)
{
    using Places = std::vector<std::string>;
    EXPECT_EQ(
        dataSearchOrder("/srv/paint", "/opt/blotch/bin/"),
        (Places{"/srv/paint", "/opt/blotch/bin/data", "/opt/blotch/share/blotch/data", "data"}));
    // An empty variable is not set, and without the binary's folder only the working one is left.
    EXPECT_EQ(dataSearchOrder("", ""), Places{"data"});
}

TEST(DataPath, ATreeHoldsDataOnlyWithEveryFolderTheGameReads)
{
    const fs::path root = fs::temp_directory_path() / ("blotch-data-" + std::to_string(getpid()));
    for (const char* folder : {"fbx", "shader", "textures", "fonts"})
    {
        fs::create_directories(root / folder);
    }
    EXPECT_FALSE(holdsData(root.string()));
    std::ofstream(root / "sound") << "a file, not a folder";
    EXPECT_FALSE(holdsData(root.string()));
    fs::remove(root / "sound");
    fs::create_directory(root / "sound");
    EXPECT_TRUE(holdsData(root.string()));
    EXPECT_EQ(dataFile("shader/menu.vert"), "data/shader/menu.vert"); // until locateData() runs
    fs::remove_all(root);
}

TEST(DataPath, AVariableThatHoldsNoDataIsWarnedAboutAndTheSearchGoesOn)
{
    // From the repository, whose data/ the search finds next.
    const fs::path before = fs::current_path();
    fs::current_path(BLOTCH_SOURCE_DIR);
    setenv("BLOTCH_DATA", "/nonexistent/blotch-data", 1);
    testing::internal::CaptureStderr();
    const bool found = locateData();
    const std::string said = testing::internal::GetCapturedStderr();
    unsetenv("BLOTCH_DATA");
    fs::current_path(before);
    EXPECT_TRUE(found);
    EXPECT_EQ(said, "[WARNING] BLOTCH_DATA is /nonexistent/blotch-data, which holds no game data "
                    "(folders fbx, shader, textures, fonts, sound); using " +
                        (fs::path(BLOTCH_SOURCE_DIR) / "data").lexically_normal().string() +
                        " instead\n");
    EXPECT_TRUE(fs::is_regular_file(fs::path(BLOTCH_SOURCE_DIR) / dataFile("shader/menu.vert")));
}
