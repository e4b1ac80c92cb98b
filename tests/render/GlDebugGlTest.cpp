#include "render/GlDebug.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <string>

// The end-to-end tests fail on any "[GL] " line the game prints; this shows the lines really come.
TEST(GlDebug, AGlErrorIsPrintedAsOneLine)
{
    GlContext gl;
    if (!gl.ok())
    {
        GTEST_SKIP() << "no GL 3.2 context: " << gl.error();
    }
    ASSERT_TRUE(gldebug::install()) << "the driver has no debug output";
    testing::internal::CaptureStderr();
    glEnable(GL_TEXTURE_2D);               // fine in a compatibility context: no line
    glDrawArrays(GL_TRIANGLES, 0, -3);     // a negative count: GL_INVALID_VALUE
    const std::string errors = testing::internal::GetCapturedStderr();
    glGetError();
    EXPECT_EQ(errors.rfind("[GL] ", 0), 0u) << errors;
    EXPECT_EQ(errors.find("[GL] ", 1), std::string::npos) << "one line per error: " << errors;
    glDisable(GL_TEXTURE_2D);
    glDebugMessageCallback(nullptr, nullptr);
}
