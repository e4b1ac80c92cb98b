// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

struct SDL_Window;

// Suites are named after the class they test (Level.ASplatPaintsOnlyFacesTurnedTowardsTheHit),
// and TEST_F would name the suite after the fixture, which cannot take the class's name without
// hiding the class. A test of SUITE on FIXTURE, through GTEST_TEST_, which TEST and TEST_F expand
// to (gtest 1.10 and later):
#define TEST_ON(fixture, suite, name)                                                              \
    GTEST_TEST_(suite, name, fixture, ::testing::internal::GetTypeId<fixture>())
// A test of SUITE with a GL context (see GlTest).
#define GL_TEST(suite, name) TEST_ON(GlTest, suite, name)

// Destroys the process-wide registries after the test, whether it passed or not, in an order
// that is safe whichever of them exist: the fonts before the shaders and textures they use, the
// physics world before the settings.
class RegistryTest : public ::testing::Test
{
protected:
    void TearDown() override;
};

// For tests that need GL: a hidden window with a GL 3.2 compatibility context made as the game
// makes it (the test is skipped without one), no audio device (balls are thrown faster than
// their sounds end, and CI machines have none), and the game's switches at their defaults.
class GlTest : public RegistryTest
{
protected:
    GlTest();
    ~GlTest() override; // after TearDown: the registries' GL objects go while the context lives
    void SetUp() override;
    void TearDown() override;

    // GL errors the test makes on purpose; any other fails it.
    int expectedGlErrors = 0;

private:
    std::string why; // there is no context
    int glErrorsBefore = 0;
    SDL_Window* window = nullptr;
    void* context = nullptr;
};

// A 1024 x 768 RGBA framebuffer with a depth buffer (one pixel per screen unit, like the game's
// window), bound and made the viewport while it lives; for reading back what was drawn.
class OffscreenTarget
{
public:
    static constexpr int WIDTH = 1024;
    static constexpr int HEIGHT = 768;

    // With a stencil, as the game's window has, or (STENCIL false) depth alone.
    explicit OffscreenTarget(bool stencil = true);
    ~OffscreenTarget();
    OffscreenTarget(const OffscreenTarget&) = delete;
    OffscreenTarget& operator=(const OffscreenTarget&) = delete;

private:
    unsigned int framebuffer = 0;
    unsigned int colour = 0;
    unsigned int depth = 0;
};

struct Image;

// The colours of the bound framebuffer's 1024 x 768 pixels at the bottom left.
Image readFramebuffer();
// How many triangles GL made while DRAW ran.
unsigned trianglesDrawn(const std::function<void()>& draw);

// Runs the test body from a fresh temporary directory, holding a link to the repository's data/
// when LINKDATA, so relative data paths resolve and the test may add files of its own. Restores
// the old working directory and removes the temporary one afterwards.
class ScratchDirectory
{
public:
    explicit ScratchDirectory(bool linkData = true);
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

private:
    std::string dir;
    std::string previous;
};

// The bytes of a file; empty when it cannot be read.
std::string readFile(const std::string& path);
// A file of the repository, by its path from the top: "data/fonts/bankgothic-black.fnt".
std::string sourceFile(const std::string& relative);
