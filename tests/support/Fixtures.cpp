// SPDX-License-Identifier: MIT
#include "support/Fixtures.h"

#include "core/Settings.h"
#include "physics/PhysicsWorld.h"
#include "render/FontManager.h"
#include "render/GlDebug.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "scene/Frustum.h"
#include "sound/SoundManager.h"
#include "support/Image.h"

#include <GL/glew.h>
#include <SDL.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

void RegistryTest::TearDown()
{
    FontManager::destroy();
    ShaderManager::destroy();
    TextureManager::destroy();
    Frustum::destroy();
    SoundManager::destroy();
    PhysicsWorld::destroy();
    Settings::destroy();
}

GlTest::GlTest()
{
    if (SDL_Init(SDL_INIT_VIDEO) < 0)
    {
        why = SDL_GetError();
        return;
    }
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 2);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_COMPATIBILITY);
    SDL_GL_SetAttribute(SDL_GL_DEPTH_SIZE, 24);
    SDL_GL_SetAttribute(SDL_GL_STENCIL_SIZE, 8);
    window =
        SDL_CreateWindow("Blotch GL test", 0, 0, 64, 64, SDL_WINDOW_OPENGL | SDL_WINDOW_HIDDEN);
    context = window ? SDL_GL_CreateContext(window) : nullptr;
    if (!context)
    {
        why = SDL_GetError();
        return;
    }
    glewExperimental = GL_TRUE;
    if (glewInit() != GLEW_OK)
    {
        why = "GLEW cannot load the GL functions";
        SDL_GL_DeleteContext(context);
        context = nullptr;
        return;
    }
    glGetError(); // glewInit may leave one behind
    gldebug::install();
}

GlTest::~GlTest()
{
    if (context)
    {
        SDL_GL_DeleteContext(context);
    }
    if (window)
    {
        SDL_DestroyWindow(window);
    }
    SDL_Quit();
}

void GlTest::SetUp()
{
    if (!context)
    {
        GTEST_SKIP() << "no GL 3.2 context: " << why;
    }
    setenv("SDL_AUDIODRIVER", "no-such-audio-driver", 1);
    Settings::instance().defineDefaults();
    glErrorsBefore = gldebug::errorCount();
}

void GlTest::TearDown()
{
    EXPECT_EQ(gldebug::errorCount() - glErrorsBefore, expectedGlErrors)
        << "GL errors: see the [GL] lines above";
    RegistryTest::TearDown();
    unsetenv("SDL_AUDIODRIVER");
}

OffscreenTarget::OffscreenTarget(bool stencil)
{
    glGenFramebuffers(1, &framebuffer);
    glGenRenderbuffers(1, &colour);
    glBindRenderbuffer(GL_RENDERBUFFER, colour);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, WIDTH, HEIGHT);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, colour);
    glGenRenderbuffers(1, &depth);
    glBindRenderbuffer(GL_RENDERBUFFER, depth);
    glRenderbufferStorage(GL_RENDERBUFFER, stencil ? GL_DEPTH24_STENCIL8 : GL_DEPTH_COMPONENT24,
                          WIDTH, HEIGHT);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER,
                              stencil ? GL_DEPTH_STENCIL_ATTACHMENT : GL_DEPTH_ATTACHMENT,
                              GL_RENDERBUFFER, depth);
    glViewport(0, 0, WIDTH, HEIGHT);
}

OffscreenTarget::~OffscreenTarget()
{
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteRenderbuffers(1, &colour);
    glDeleteRenderbuffers(1, &depth);
}

Image readFramebuffer()
{
    Image image;
    image.width = OffscreenTarget::WIDTH;
    image.height = OffscreenTarget::HEIGHT;
    image.rgb.resize(size_t(image.width) * image.height * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, image.width, image.height, GL_RGB, GL_UNSIGNED_BYTE, image.rgb.data());
    // GL gives the bottom row first.
    for (int y = 0; y < image.height / 2; ++y)
    {
        std::swap_ranges(image.rgb.begin() + y * image.width * 3,
                         image.rgb.begin() + (y + 1) * image.width * 3,
                         image.rgb.end() - (y + 1) * image.width * 3);
    }
    return image;
}

unsigned trianglesDrawn(const std::function<void()>& draw)
{
    GLuint query = 0;
    glGenQueries(1, &query);
    glBeginQuery(GL_PRIMITIVES_GENERATED, query);
    draw();
    glEndQuery(GL_PRIMITIVES_GENERATED);
    GLuint count = 0;
    glGetQueryObjectuiv(query, GL_QUERY_RESULT, &count);
    glDeleteQueries(1, &query);
    return count;
}

ScratchDirectory::ScratchDirectory(bool linkData) : previous(fs::current_path().string())
{
    char pattern[] = "/tmp/blotch-test-XXXXXX";
    dir = mkdtemp(pattern) ? pattern : "";
    if (!dir.empty() && linkData)
    {
        fs::create_directory_symlink(sourceFile("data"), fs::path(dir) / "data");
    }
    if (!dir.empty())
    {
        fs::current_path(dir);
    }
}

ScratchDirectory::~ScratchDirectory()
{
    std::error_code ignored;
    fs::current_path(previous, ignored);
    if (!dir.empty())
    {
        fs::remove_all(dir, ignored);
    }
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string sourceFile(const std::string& relative)
{
    return std::string(BLOTCH_SOURCE_DIR) + "/" + relative;
}
