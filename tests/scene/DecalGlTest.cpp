#include "app/Settings.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "scene/Decal.h"
#include "sound/SoundManager.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace
{
class DecalGlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!gl.ok())
        {
            GTEST_SKIP() << "no GL 3.2 context: " << gl.error();
        }
        setenv("SDL_AUDIODRIVER", "no-such-audio-driver", 1);
        Settings::instance().defineDefaults();
        testing::internal::CaptureStderr();
        ShaderManager::instance();
        testing::internal::GetCapturedStderr();
        // The camera at the origin looking down -z.
        Frustum::instance().update(math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f),
                                   math::identity());
        glGenQueries(1, &query);
    }
    void TearDown() override
    {
        if (gl.ok())
        {
            glDeleteQueries(1, &query);
        }
        Frustum::destroy();
        ShaderManager::destroy();
        TextureManager::destroy();
        SoundManager::destroy();
        Settings::destroy();
        unsetenv("SDL_AUDIODRIVER");
    }

    // K square polygons of N corners each in front of the camera at depth Z.
    static std::unique_ptr<Decal> decal(int k, int n, float z)
    {
        std::list<DecalPolygon> polygons;
        for (int p = 0; p < k; ++p)
        {
            DecalPolygon polygon;
            for (int i = 0; i < n; ++i)
            {
                const float a = 2.0f * math::PI * i / n;
                polygon.push_back({p + math::cosine(a), math::sine(a), z, 0, 0, 1,
                                   0.5f + 0.5f * math::cosine(a), 0.5f + 0.5f * math::sine(a)});
            }
            polygons.push_back(polygon);
        }
        const Bounds box = Bounds::fromMinMax({-1, -1, z}, {static_cast<float>(k), 1, z});
        return std::make_unique<Decal>(polygons, std::make_unique<Bounds>(box), Vec4{1, 0, 0, 1});
    }

    GLuint trianglesDrawn(Decal& d)
    {
        glBeginQuery(GL_PRIMITIVES_GENERATED, query);
        d.draw(nullptr);
        glEndQuery(GL_PRIMITIVES_GENERATED);
        GLuint count = 0;
        glGetQueryObjectuiv(query, GL_QUERY_RESULT, &count);
        return count;
    }

    GlContext gl;
    GLuint query = 0;
};
} // namespace

TEST_F(DecalGlTest, DrawsOneFanPerPolygonWithOrWithoutBuffers)
{
    std::unique_ptr<Decal> d = decal(3, 6, -10.0f);
    EXPECT_EQ(d->polygonCount(), 3u);
    EXPECT_EQ(trianglesDrawn(*d), 3u * 4u); // a fan of 6 corners is 4 triangles
    GLint program = -1;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    EXPECT_EQ(program, 0) << "the decal leaves no program bound";
    EXPECT_EQ(ShaderManager::instance().getCurrent(), nullptr);

    Settings::instance().toggle("vbo");
    EXPECT_EQ(trianglesDrawn(*d), 12u);
}

TEST_F(DecalGlTest, CulledBehindTheCameraWithoutTouchingGl)
{
    std::unique_ptr<Decal> behind = decal(2, 4, 10.0f);
    glUseProgram(0);
    glBindTexture(GL_TEXTURE_2D, 0);
    GLint before = 0;
    ShaderManager::instance().use("unicolor");
    glGetIntegerv(GL_CURRENT_PROGRAM, &before);
    EXPECT_EQ(trianglesDrawn(*behind), 0u);
    GLint after = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &after);
    EXPECT_EQ(after, before) << "a culled decal must not change the bound program";

    Settings::instance().toggle("frustum"); // culling off: drawn even where it cannot be seen
    EXPECT_EQ(trianglesDrawn(*behind), 4u);
}
