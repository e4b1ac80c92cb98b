// SPDX-License-Identifier: MIT
#include "render/GlDebug.h"
#include "support/Fixtures.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <string>

// The tests fail on any GL error the game makes; this shows the errors really are reported.
GL_TEST(GlDebug, AGlErrorIsPrintedAsOneLine)
{
    testing::internal::CaptureStderr();
    glEnable(GL_TEXTURE_2D);           // fine in a compatibility context: no line
    glDrawArrays(GL_TRIANGLES, 0, -3); // a negative count: GL_INVALID_VALUE
    const std::string errors = testing::internal::GetCapturedStderr();
    glDisable(GL_TEXTURE_2D);
    glGetError();
    EXPECT_EQ(errors.rfind("[GL] ", 0), 0u) << errors;
    EXPECT_EQ(errors.find("[GL] ", 1), std::string::npos) << "one line per error: " << errors;
    expectedGlErrors = 1;
}
