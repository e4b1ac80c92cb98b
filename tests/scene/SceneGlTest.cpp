#include "core/Settings.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "scene/Level.h"
#include "scene/Sphere.h"
#include "scene/SphereChain.h"
#include "sound/SoundManager.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

namespace
{
class SceneGlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!gl.ok())
        {
            GTEST_SKIP() << "no GL 3.2 context: " << gl.error();
        }
        Settings::instance().defineBool("vbo", true);
        testing::internal::CaptureStderr();
        flat = std::make_unique<Shader>("unicolor");
        lit = std::make_unique<Shader>("minimal");
        motion = std::make_unique<Shader>("mbpreprocess");
        testing::internal::GetCapturedStderr();
        glGenQueries(1, &query);
    }
    void TearDown() override
    {
        if (gl.ok())
        {
            glDeleteQueries(1, &query);
        }
        flat.reset();
        lit.reset();
        motion.reset();
        if (ShaderManager::exists())
        {
            ShaderManager::destroy();
        }
        if (TextureManager::exists())
        {
            TextureManager::destroy();
        }
        SoundManager::destroy();
        Settings::destroy();
    }

    // Draws NODE with SHADER bound and returns how many triangles GL generated.
    GLuint trianglesDrawn(SceneNode& node, Shader& shader)
    {
        glUseProgram(shader.getProgram());
        glBeginQuery(GL_PRIMITIVES_GENERATED, query);
        node.draw(&shader);
        glEndQuery(GL_PRIMITIVES_GENERATED);
        glUseProgram(0);
        GLuint count = 0;
        glGetQueryObjectuiv(query, GL_QUERY_RESULT, &count);
        return count;
    }

    GlContext gl;
    std::unique_ptr<Shader> flat, lit, motion;
    GLuint query = 0;
};

// Two triangles forming a floor square, with normals and UVs.
std::unique_ptr<Level> floorLevel()
{
    const float v[] = {-5, 3, -5, 1, -5, 3, 5, 1, 5, 3, 5,  1,
                       -5, 3, -5, 1, 5,  3, 5, 1, 5, 3, -5, 1};
    auto vertices = std::make_unique<float[]>(24);
    std::copy(std::begin(v), std::end(v), vertices.get());
    auto normals = std::make_unique<float[]>(18);
    for (int i = 0; i < 6; ++i)
    {
        normals[i * 3 + 1] = 1.0f;
    }
    auto level = std::make_unique<Level>();
    level->setMesh(std::move(vertices), std::move(normals), std::make_unique<float[]>(12), 6);
    level->initBuffers();
    return level;
}
} // namespace

TEST_F(SceneGlTest, SphereMeshIsClosedAndRound)
{
    const float radius = 2.5f;
    Sphere sphere({1.0f, 2.0f, 3.0f}, radius, {1, 0, 0, 1});
    SphereMesh mesh(radius);
    const float* v = mesh.vertices.get();
    for (int i = 0; i < SphereMesh::VERTEX_COUNT; ++i)
    {
        const float d = std::sqrt(v[i * 4] * v[i * 4] + v[i * 4 + 1] * v[i * 4 + 1] +
                                  v[i * 4 + 2] * v[i * 4 + 2]);
        ASSERT_NEAR(d, radius, 1e-5f) << "vertex " << i;
        ASSERT_EQ(v[i * 4 + 3], 1.0f);
    }
    for (int c = 0; c < 4; ++c)
    {
        EXPECT_EQ(v[1 * 4 + c], v[33 * 4 + c]); // each ring's seam is a duplicate
        EXPECT_EQ(v[34 * 4 + c], v[66 * 4 + c]);
    }
    EXPECT_EQ(v[2], radius);
    EXPECT_EQ(v[1024 * 4 + 2], -radius);

    // Every triangle is real and faces outwards (counter-clockwise seen from outside).
    const uint32_t* n = mesh.indices.get();
    for (int t = 0; t < SphereMesh::INDEX_COUNT / 3; ++t)
    {
        const float* a = v + n[t * 3] * 4;
        const float* b = v + n[t * 3 + 1] * 4;
        const float* c = v + n[t * 3 + 2] * 4;
        const Vec3 normal = math::cross({b[0] - a[0], b[1] - a[1], b[2] - a[2]},
                                        {c[0] - a[0], c[1] - a[1], c[2] - a[2]});
        const Vec3 centre{(a[0] + b[0] + c[0]) / 3, (a[1] + b[1] + c[1]) / 3,
                          (a[2] + b[2] + c[2]) / 3};
        ASSERT_GT(math::dot(normal, centre), 0.0f) << "triangle " << t;
    }

    EXPECT_EQ(trianglesDrawn(sphere, *flat), 1984u);
    Settings::instance().toggle("vbo");
    EXPECT_EQ(trianglesDrawn(sphere, *flat), 1984u);
}

TEST_F(SceneGlTest, LevelDrawsOnceAndPaintsOnlyInTheLitAndFlatPasses)
{
    std::unique_ptr<Level> level = floorLevel();
    EXPECT_EQ(trianglesDrawn(*level, *lit), 2u);
    GLboolean mask = GL_FALSE;
    glGetBooleanv(GL_DEPTH_WRITEMASK, &mask);
    EXPECT_EQ(mask, GL_TRUE);

    setenv("SDL_AUDIODRIVER", "no-such-audio-driver", 1);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    level->paintHit({0, 3, 0}, {0, 1, 0}, {1, 0, 0, 1});
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(level->decalCount(), 1u);
    const GLuint paint = static_cast<GLuint>(level->getPaint()[0].triangleCount());
    EXPECT_GT(paint, 0u);
    EXPECT_EQ(trianglesDrawn(*level, *lit), 2u + paint);

    // Seen from 10 m above, the splat lies on the floor: it wins the depth test against the
    // surface it lies on and leaves the surface's depth as it was.
    OffscreenTarget target;
    const Mat4 perspective = math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f);
    Mat4 down = math::identity(); // looking straight down from (0, 10, 0)
    down.m[5] = 0.0f;
    down.m[6] = 1.0f;
    down.m[9] = -1.0f;
    down.m[10] = 0.0f;
    down.m[14] = -10.0f;
    ShaderManager::instance().setMatrices(down, perspective, math::identity());
    glEnable(GL_DEPTH_TEST);
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glUseProgram(flat->getProgram());
    flat->setMatrix("perspective", perspective);
    flat->setMatrix("view", down);
    level->draw(flat.get());
    uint8_t rgba[4] = {};
    float painted = 0.0f, bare = 0.0f;
    glReadPixels(512, 384, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    glReadPixels(512, 384, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &painted);
    EXPECT_GT(rgba[0], 200);
    EXPECT_LT(rgba[1], 50) << "the paint shows over the white floor";
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glUseProgram(flat->getProgram()); // drawing the paint left no program bound
    floorLevel()->draw(flat.get());   // the same floor without paint
    glReadPixels(512, 384, 1, 1, GL_DEPTH_COMPONENT, GL_FLOAT, &bare);
    EXPECT_EQ(painted, bare) << "paint must not write depth";
    glUseProgram(0);
    glDisable(GL_DEPTH_TEST);
    unsetenv("SDL_AUDIODRIVER");

    glGetBooleanv(GL_DEPTH_WRITEMASK, &mask);
    EXPECT_EQ(mask, GL_TRUE);
    EXPECT_FALSE(glIsEnabled(GL_POLYGON_OFFSET_FILL));

    // The motion pass sees the bare surface, with "prevmodel" equal to "model".
    EXPECT_EQ(trianglesDrawn(*level, *motion), 2u);
    float model[16], prevmodel[16];
    const GLuint program = motion->getProgram();
    glGetUniformfv(program, glGetUniformLocation(program, "model"), model);
    glGetUniformfv(program, glGetUniformLocation(program, "prevmodel"), prevmodel);
    for (int i = 0; i < 16; ++i)
    {
        EXPECT_EQ(model[i], prevmodel[i]);
    }

    Settings::instance().toggle("vbo");
    EXPECT_EQ(trianglesDrawn(*level, *flat), 2u + paint);
}
