// SPDX-License-Identifier: MIT
#include "render/GlDebug.h"

#include <GL/glew.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
// What the driver reported, for tests that must see none: the callback has no place of its own.
int errorsSeen = 0;

void GLAPIENTRY report(GLenum source, GLenum type, GLuint, GLenum, GLsizei, const GLchar* message,
                       const void*)
{
    // Performance and portability remarks are no faults of ours; errors are. A shader that does
    // not compile is a damaged data file, which the shader's own log already reports.
    if (type == GL_DEBUG_TYPE_ERROR && source != GL_DEBUG_SOURCE_SHADER_COMPILER)
    {
        std::fprintf(stderr, "[GL] %s\n", message);
        ++errorsSeen;
    }
}
} // namespace

namespace gldebug
{

bool requested()
{
    const char* value = std::getenv("BLOTCH_GL_DEBUG");
    return value && std::strcmp(value, "1") == 0;
}

int errorCount()
{
    return errorsSeen;
}

bool install()
{
    if (!(GLEW_KHR_debug || GLEW_VERSION_4_3) || !glDebugMessageCallback)
    {
        return false;
    }
    glEnable(GL_DEBUG_OUTPUT);
    // Reported inside the call that caused it, so the line comes out where the fault is.
    glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    glDebugMessageCallback(report, nullptr);
    return true;
}

} // namespace gldebug
