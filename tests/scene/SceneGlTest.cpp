// SPDX-License-Identifier: MIT
#include "core/Settings.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "scene/Frustum.h"
#include "scene/Level.h"
#include "scene/Sphere.h"
#include "support/Fixtures.h"
#include "support/TestLevel.h"

#include <GL/glew.h>

#include <algorithm>
#include <cmath>

GL_TEST(Sphere, IsRoundAndClosedFacesOutwardsAndDrawsWholeEitherWay)
{
    const float radius = 2.5f;
    const SphereMesh mesh(radius);
    const float* v = mesh.vertices.get();
    for (int i = 0; i < SphereMesh::VERTEX_COUNT; ++i)
    {
        ASSERT_NEAR(std::hypot(v[i * 4], v[i * 4 + 1], v[i * 4 + 2]), radius, 1e-5f) << i;
        ASSERT_EQ(v[i * 4 + 3], 1.0f);
    }
    // Counter-clockwise seen from outside, and none of them degenerate.
    const uint32_t* n = mesh.indices.get();
    for (int t = 0; t < SphereMesh::INDEX_COUNT / 3; ++t)
    {
        const float *a = v + n[t * 3] * 4, *b = v + n[t * 3 + 1] * 4, *c = v + n[t * 3 + 2] * 4;
        const Vec3 normal = math::cross({b[0] - a[0], b[1] - a[1], b[2] - a[2]},
                                        {c[0] - a[0], c[1] - a[1], c[2] - a[2]});
        ASSERT_GT(math::dot(normal, {a[0] + b[0] + c[0], a[1] + b[1] + c[1], a[2] + b[2] + c[2]}),
                  0.0f)
            << "triangle " << t;
    }

    Sphere sphere({1.0f, 2.0f, 3.0f}, radius, {1, 0, 0, 1});
    Shader flat("unicolor");
    for (int vbo = 0; vbo < 2; ++vbo)
    {
        glUseProgram(flat.getProgram());
        EXPECT_EQ(trianglesDrawn([&] { sphere.draw(&flat); }), SphereMesh::INDEX_COUNT / 3u);
        Settings::instance().toggle("vbo");
    }
}

GL_TEST(Level, PaintLiesOnTheSurfaceInTheLitAndFlatPassesOnly)
{
    Shader flat("unicolor"), lit("minimal"), motion("mbpreprocess");
    const auto level = levelOf(floorAt(3.0f, 5.0f));
    level->initBuffers();
    const auto drawn = [&](Shader& shader)
    {
        glUseProgram(shader.getProgram());
        return trianglesDrawn([&] { level->draw(&shader); });
    };
    // Its two triangles, cut where the paint map's pages meet.
    const unsigned triangles = unsigned(level->drawnVertexCount() / 3);
    EXPECT_GE(triangles, 2u);
    EXPECT_EQ(drawn(lit), triangles);

    // Looking straight down from 10 m above the floor's middle.
    OffscreenTarget target;
    const Mat4 perspective = math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f);
    Mat4 down = math::identity();
    down.m[5] = down.m[10] = 0.0f;
    down.m[6] = 1.0f;
    down.m[9] = -1.0f;
    down.m[14] = -10.0f;
    ShaderManager::instance().setMatrices(down, perspective, math::identity());
    Frustum::instance().update(perspective, down);
    glEnable(GL_DEPTH_TEST);
    uint8_t rgba[4] = {};
    const auto depthInTheMiddle = [&]
    {
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glUseProgram(flat.getProgram());
        flat.setMatrix("perspective", perspective);
        flat.setMatrix("view", down);
        level->draw(&flat);
        float depth = 0.0f;
        glReadPixels(512, 384, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
        glReadPixels(512, 384, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &depth);
        return depth;
    };
    const float bare = depthInTheMiddle();

    level->paintHit({0, 3, 0}, {0, 1, 0}, {1, 0, 0, 1});
    level->updatePaint();
    ASSERT_EQ(level->splatCount(), 1u);
    // It lies in the surface's own pixels and leaves the depth as it was.
    EXPECT_EQ(depthInTheMiddle(), bare);
    EXPECT_GT(rgba[0], 200);
    EXPECT_LT(rgba[1], 50) << "the paint shows over the white floor";
    GLboolean depthWrites = GL_FALSE;
    glGetBooleanv(GL_DEPTH_WRITEMASK, &depthWrites);
    EXPECT_EQ(depthWrites, GL_TRUE);

    // Paint has no triangles of its own: the surface reads it.
    for (int vbo = 0; vbo < 2; ++vbo)
    {
        EXPECT_EQ(drawn(lit), triangles);
        EXPECT_EQ(drawn(flat), triangles);
        EXPECT_EQ(drawn(motion), triangles);
        Settings::instance().toggle("vbo");
    }
    // The flat pass with paint, the motion pass without: its colours are motion, not paint.
    glUseProgram(motion.getProgram());
    GLint painted = -1;
    glGetUniformiv(flat.getProgram(), glGetUniformLocation(flat.getProgram(), "painted"), &painted);
    EXPECT_EQ(painted, 0) << "the level leaves its programs reading no paint for what comes next";
    // A static level has not moved since the last frame.
    float model[16], previous[16];
    const GLuint program = motion.getProgram();
    glGetUniformfv(program, glGetUniformLocation(program, "model"), model);
    glGetUniformfv(program, glGetUniformLocation(program, "prevmodel"), previous);
    EXPECT_TRUE(std::equal(model, model + 16, previous));
}
