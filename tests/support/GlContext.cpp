#include "support/GlContext.h"

#include <GL/glew.h>
#include <SDL.h>

#include <filesystem>
#include <unistd.h>

GlContext::GlContext()
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
    SDL_GL_SetAttribute(SDL_GL_STENCIL_SIZE, 1);
    window =
        SDL_CreateWindow("Blotch GL test", 0, 0, 64, 64, SDL_WINDOW_OPENGL | SDL_WINDOW_HIDDEN);
    if (!window)
    {
        why = SDL_GetError();
        return;
    }
    context = SDL_GL_CreateContext(window);
    if (!context)
    {
        why = SDL_GetError();
    }
    glewExperimental = GL_TRUE;
    if (context && glewInit() != GLEW_OK)
    {
        SDL_GL_DeleteContext(context);
        context = nullptr;
    }
}

GlContext::~GlContext()
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

OffscreenTarget::OffscreenTarget()
{
    glGenFramebuffers(1, &framebuffer);
    glGenRenderbuffers(1, &colour);
    glBindRenderbuffer(GL_RENDERBUFFER, colour);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, WIDTH, HEIGHT);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, colour);
    glGenRenderbuffers(1, &depth);
    glBindRenderbuffer(GL_RENDERBUFFER, depth);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, WIDTH, HEIGHT);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth);
    glViewport(0, 0, WIDTH, HEIGHT);
}

OffscreenTarget::~OffscreenTarget()
{
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &framebuffer);
    glDeleteRenderbuffers(1, &colour);
    glDeleteRenderbuffers(1, &depth);
}

ScratchDirectory::ScratchDirectory(bool linkData)
{
    if (!getcwd(previous, sizeof(previous)))
    {
        previous[0] = '\0';
    }
    snprintf(dir, sizeof(dir), "/tmp/blotch-test-XXXXXX");
    if (!mkdtemp(dir))
    {
        return;
    }
    if (linkData)
    {
        std::filesystem::create_directory_symlink(std::filesystem::path(BLOTCH_SOURCE_DIR) / "data",
                                                  std::filesystem::path(dir) / "data");
    }
    if (chdir(dir) != 0)
    {
        dir[0] = '\0';
    }
}

ScratchDirectory::~ScratchDirectory()
{
    if (previous[0] && chdir(previous) != 0)
    {
        return;
    }
    std::error_code ignored;
    if (dir[0])
    {
        std::filesystem::remove_all(dir, ignored);
    }
}
