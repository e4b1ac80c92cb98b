// SPDX-License-Identifier: MIT
#include "render/GlBuffer.h"

#include <GL/glew.h>

unsigned int createStaticBuffer(unsigned int target, const void* data, size_t bytes)
{
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(target, buffer);
    glBufferData(target, static_cast<GLsizeiptr>(bytes), data, GL_STATIC_DRAW);
    return buffer;
}
