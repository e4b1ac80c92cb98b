// SPDX-License-Identifier: MIT
#include "scene/MotionBlur.h"

#include "render/GlBuffer.h"
#include "render/Shader.h"
#include "render/TextureManager.h"

#include <GL/glew.h>
#include <SDL.h>

#include <cstdio>

namespace
{
const char* const MOTION_TEXTURE = "motionblur1";
const char* const FRAME_TEXTURE = "motionblur2";

// Two triangles over the screen, at a depth inside the quad's projection.
const float QUAD_VERTICES[6][4] = {{-1, -1, -10, 1}, {1, -1, -10, 1}, {1, 1, -10, 1},
                                   {-1, -1, -10, 1}, {1, 1, -10, 1},  {-1, 1, -10, 1}};
const float QUAD_COORDINATES[6][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}};

// Takes one entry point from the driver through SDL; keeps GLEW's when the driver has none.
template <typename Entry> void install(Entry& entry, const char* name)
{
    if (void* found = SDL_GL_GetProcAddress(name))
    {
        entry = reinterpret_cast<Entry>(found);
    }
}
} // namespace

const char* framebufferStatusText(unsigned int status)
{
    switch (status)
    {
    case GL_FRAMEBUFFER_UNDEFINED:
        return "error with GL_FRAMEBUFFER_UNDEFINED";
    case GL_FRAMEBUFFER_INCOMPLETE_ATTACHMENT:
        return "error with GL_FRAMEBUFFER_INCOMPLETE_ATTACHMENT";
    case GL_FRAMEBUFFER_INCOMPLETE_MISSING_ATTACHMENT:
        return "error with FRAMEBUFFER_INCOMPLETE_MISSING_ATTACHMENT";
    case GL_FRAMEBUFFER_INCOMPLETE_DRAW_BUFFER:
        return "error with FRAMEBUFFER_INCOMPLETE_DRAW_BUFFER";
    case GL_FRAMEBUFFER_INCOMPLETE_READ_BUFFER:
        return "error with FRAMEBUFFER_INCOMPLETE_READ_BUFFER";
    case GL_FRAMEBUFFER_UNSUPPORTED:
        return "error with FRAMEBUFFER_UNSUPPORTED";
    default:
        return nullptr;
    }
}

Mat4 MotionBlur::quadOrtho()
{
    return math::orthographic(-1.0f, 1.0f, -1.0f, 1.0f, -1000.0f, 1000.0f);
}

MotionBlur::MotionBlur(int width, int height) : width(width), height(height)
{
    install(glGenFramebuffers, "glGenFramebuffers");
    install(glDeleteFramebuffers, "glDeleteFramebuffers");
    install(glBindFramebuffer, "glBindFramebuffer");
    install(glCheckFramebufferStatus, "glCheckFramebufferStatus");
    install(glGenRenderbuffers, "glGenRenderbuffers");
    install(glBindRenderbuffer, "glBindRenderbuffer");
    install(glRenderbufferStorage, "glRenderbufferStorage");
    install(glFramebufferRenderbuffer, "glFramebufferRenderbuffer");
    install(glDeleteRenderbuffers, "glDeleteRenderbuffers");
    install(glFramebufferTexture2D, "glFramebufferTexture2D");

    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glGenRenderbuffers(1, &depthRenderbuffer);
    TextureManager& textures = TextureManager::instance();
    textures.create(MOTION_TEXTURE, width, height);
    textures.create(FRAME_TEXTURE, width, height);
    motionTexture = textures.get(MOTION_TEXTURE);
    frameTexture = textures.get(FRAME_TEXTURE);
    allocate();
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_STENCIL_ATTACHMENT, GL_RENDERBUFFER,
                              depthRenderbuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);

    // The quad never changes, so its buffers are filled once.
    quadVertices = createStaticBuffer(GL_ARRAY_BUFFER, QUAD_VERTICES, sizeof(QUAD_VERTICES));
    quadCoordinates =
        createStaticBuffer(GL_ARRAY_BUFFER, QUAD_COORDINATES, sizeof(QUAD_COORDINATES));
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

MotionBlur::~MotionBlur()
{
    release();
    glDeleteBuffers(1, &quadVertices);
    glDeleteBuffers(1, &quadCoordinates);
}

void MotionBlur::allocate()
{
    glBindRenderbuffer(GL_RENDERBUFFER, depthRenderbuffer);
    // Depth and stencil, as the window has: paint draws in layers through the stencil.
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH24_STENCIL8, width, height);
    glBindRenderbuffer(GL_RENDERBUFFER, 0);
    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    for (const GLuint texture : {motionTexture, frameTexture})
    {
        glBindTexture(GL_TEXTURE_2D, texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     nullptr);
    }
    glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(bound));
}

void MotionBlur::resize(int newWidth, int newHeight)
{
    if (!ready() || (newWidth == width && newHeight == height) || newWidth < 1 || newHeight < 1)
    {
        return;
    }
    width = newWidth;
    height = newHeight;
    allocate();
}

void MotionBlur::release()
{
    if (!framebuffer)
    {
        return;
    }
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteTextures(1, &motionTexture);
    glDeleteTextures(1, &frameTexture);
    // The registry must not hand out (or delete again) names GL may give to new textures.
    if (TextureManager::exists())
    {
        TextureManager::instance().forget(MOTION_TEXTURE);
        TextureManager::instance().forget(FRAME_TEXTURE);
    }
    glDeleteRenderbuffers(1, &depthRenderbuffer);
    glDeleteFramebuffers(1, &framebuffer);
    motionTexture = frameTexture = depthRenderbuffer = framebuffer = 0;
}

bool MotionBlur::attach(const char* name, bool check)
{
    if (!ready())
    {
        return false;
    }
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                           TextureManager::instance().get(name), 0);
    if (!check)
    {
        return true;
    }
    const GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    if (status == GL_FRAMEBUFFER_COMPLETE)
    {
        return true;
    }
    std::printf("error with framebuffer\n");
    if (const char* text = framebufferStatusText(status))
    {
        std::printf("%s\n", text);
    }
    std::fflush(stdout);
    release();
    return false;
}

void MotionBlur::composite(Shader* composite)
{
    glBindBuffer(GL_ARRAY_BUFFER, quadVertices);
    composite->setAttributeBuffer("vertex", 4);
    glBindBuffer(GL_ARRAY_BUFFER, quadCoordinates);
    composite->setAttributeBuffer("texCoordinates", 2);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    composite->setMatrix("ortho", quadOrtho());

    TextureManager& textures = TextureManager::instance();
    const int motionUnit = textures.unit(MOTION_TEXTURE);
    const int frameUnit = textures.unit(FRAME_TEXTURE);
    glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(motionUnit));
    glBindTexture(GL_TEXTURE_2D, textures.get(MOTION_TEXTURE));
    glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(frameUnit));
    glBindTexture(GL_TEXTURE_2D, textures.get(FRAME_TEXTURE));
    composite->setInt("motion", motionUnit);
    composite->setInt("frame", frameUnit);
    glDrawArrays(GL_TRIANGLES, 0, 6);
    composite->disableAttribute("vertex");
    composite->disableAttribute("texCoordinates");
}
