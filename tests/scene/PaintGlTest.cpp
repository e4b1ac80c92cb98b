// SPDX-License-Identifier: MIT
#include "core/Settings.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "scene/Frustum.h"
#include "scene/Paint.h"
#include "support/Fixtures.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <list>
#include <random>
#include <string>
#include <vector>

namespace
{
// How paint was drawn before it was batched: one program per splat picture and colour, one fan
// draw per polygon from client memory. Kept here as the picture the batches must reproduce.
const char* const FAN_VERTEX = R"(#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
layout(location = 0) in vec4 vertex;
in vec2 texcoord;
uniform mat4 perspective;
uniform mat4 view;
out vec2 uv;
void main()
{
    uv = texcoord;
    gl_Position = perspective * (view * vertex);
})";
const char* const FAN_FRAGMENT = R"(#version 150 compatibility
uniform sampler2D tex;
uniform vec4 color;
uniform int trans;
in vec2 uv;
out vec4 fragColor;
void main()
{
    vec4 splat = texture(tex, uv);
    if (trans == 0)
        fragColor = vec4(color.rgb * splat.rgb, color.a * splat.a);
    else
    {
        if (splat.a < 0.5)
            discard;
        fragColor = vec4(color.rgb * splat.rgb, 1.0);
    }
})";

struct Splat
{
    std::list<DecalPolygon> polygons;
    Vec4 color;
};

// A regular N-gon of radius R around C in the plane z = C.z, facing +z (or -z when AWAY), with
// the texture laid across a 3 x 3 square around CENTRE as paint is.
DecalPolygon polygon(Vec3 c, float r, int n, float turn, Vec3 centre, bool away = false)
{
    DecalPolygon p;
    for (int i = 0; i < n; ++i)
    {
        const float a = turn + (away ? -1.0f : 1.0f) * 2.0f * math::PI * i / n;
        const float x = c.x + r * math::cosine(a), y = c.y + r * math::sine(a);
        p.push_back({x, y, c.z, 0, 0, away ? -1.0f : 1.0f,
                     std::clamp((x - centre.x) / 3.0f + 0.5f, 0.0f, 1.0f),
                     std::clamp((y - centre.y) / 3.0f + 0.5f, 0.0f, 1.0f)});
    }
    return p;
}

Bounds boundsOf(const std::list<DecalPolygon>& polygons)
{
    Vec3 min, max;
    splat::bounds(polygons, min, max);
    return Bounds::fromMinMax(min, max);
}

GLuint compile(GLenum type, const char* source)
{
    const GLuint shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    return shader;
}

// The camera at the origin looking down -z, for the shaders and the view frustum.
Mat4 lookAhead()
{
    const Mat4 perspective = math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f);
    Frustum::instance().update(perspective, math::identity());
    ShaderManager::instance().setMatrices(math::identity(), perspective, math::identity());
    return perspective;
}

// The state the level draws its paint in.
void paintState()
{
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_CULL_FACE);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_POLYGON_OFFSET_FILL);
    glPolygonOffset(-4.5f, -4.5f);
    glDepthMask(GL_FALSE);
}

std::vector<uint8_t> readPixels()
{
    std::vector<uint8_t> pixels(size_t(OffscreenTarget::WIDTH) * OffscreenTarget::HEIGHT * 4);
    glReadPixels(0, 0, OffscreenTarget::WIDTH, OffscreenTarget::HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE,
                 pixels.data());
    return pixels;
}

// Sets the "transparency" and "texture-mipmap" switches; names the combination.
std::string useFilters(bool transparency, int mipmap)
{
    Settings& settings = Settings::instance();
    if (settings.getBool("transparency") != transparency)
    {
        settings.toggle("transparency");
    }
    while (settings.getInt("texture-mipmap") != mipmap)
    {
        settings.cycle("texture-mipmap");
    }
    return std::string(transparency ? "blended" : "cut") + ", mipmap " + std::to_string(mipmap);
}

// The splats of SPLATS (made into PAINT in that order) drawn one fan per polygon, culled and
// filtered as the batches are.
void drawFans(const Paint& paint, const std::vector<Splat>& splats, const Mat4& perspective)
{
    const GLuint program = glCreateProgram();
    const GLuint vs = compile(GL_VERTEX_SHADER, FAN_VERTEX);
    const GLuint fs = compile(GL_FRAGMENT_SHADER, FAN_FRAGMENT);
    glAttachShader(program, vs);
    glAttachShader(program, fs);
    glBindAttribLocation(program, 1, "texcoord");
    glLinkProgram(program);
    glUseProgram(program);
    const Mat4 identity = math::identity();
    glUniformMatrix4fv(glGetUniformLocation(program, "perspective"), 1, GL_FALSE,
                       perspective.data());
    glUniformMatrix4fv(glGetUniformLocation(program, "view"), 1, GL_FALSE, identity.data());
    glUniform1i(glGetUniformLocation(program, "tex"), 0);
    glUniform1i(glGetUniformLocation(program, "trans"),
                Settings::instance().getBool("transparency") ? 0 : 1);
    const int mipmap = Settings::instance().getInt("texture-mipmap");
    glActiveTexture(GL_TEXTURE0);
    for (size_t d = 0; d < splats.size(); ++d)
    {
        const Decal& decal = paint[d];
        if (Settings::instance().getBool("frustum") &&
            !Frustum::instance().isVisible(decal.getBounds()))
        {
            continue;
        }
        glBindTexture(GL_TEXTURE_2D, TextureManager::instance().get(
                                         "paint0" + std::to_string(decal.getTextureIndex() + 1)));
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, mipmap == 2 ? GL_LINEAR : GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER,
                        mipmap == 2 ? GL_LINEAR_MIPMAP_LINEAR : GL_NEAREST);
        glUniform4fv(glGetUniformLocation(program, "color"), 1, &splats[d].color.x);
        for (const DecalPolygon& p : splats[d].polygons)
        {
            std::vector<float> positions, uvs;
            for (const DecalVertex& c : p)
            {
                positions.insert(positions.end(), {c.x, c.y, c.z, 1.0f});
                uvs.insert(uvs.end(), {c.u, c.v});
            }
            glEnableVertexAttribArray(0);
            glEnableVertexAttribArray(1);
            glVertexAttribPointer(0, 4, GL_FLOAT, GL_FALSE, 0, positions.data());
            glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 0, uvs.data());
            glDrawArrays(GL_TRIANGLE_FAN, 0, static_cast<GLsizei>(p.size()));
        }
    }
    glDisableVertexAttribArray(0);
    glDisableVertexAttribArray(1);
    glBindTexture(GL_TEXTURE_2D, 0);
    glUseProgram(0);
    glDeleteProgram(program);
    glDeleteShader(vs);
    glDeleteShader(fs);
}
} // namespace

GL_TEST(Paint, BatchesDrawThePictureThatOneFanPerPolygonDrew)
{
    const Mat4 perspective = lookAhead();
    // Overlapping splats of every picture in a few colours, some translucent, cut into polygons
    // of 3 to 9 corners; some share corners, one lies on two planes, one faces away and one is
    // behind the camera. Every corner lies within its splat's square, as the level's cut leaves
    // them, so the paint is cut to where its picture shows.
    std::srand(7);
    std::mt19937 random(3);
    std::uniform_real_distribution<float> across(-5.0f, 5.0f), unit(0.0f, 1.0f);
    const Vec4 colours[] = {{1, 0.617f, 0, 1}, {0.1f, 0.5f, 1, 0.6f}, {0.988f, 0, 1, 1}};
    std::vector<Splat> splats;
    for (int s = 0; s < 60; ++s)
    {
        const Vec3 centre{across(random), across(random) * 0.7f, -12.0f + 0.01f * s};
        Splat splat{{}, colours[s % 3]};
        const int pieces = 1 + s % 5;
        for (int p = 0; p < pieces; ++p)
        {
            const Vec3 c{centre.x + unit(random) - 0.5f, centre.y + unit(random) - 0.5f, centre.z};
            splat.polygons.push_back(
                polygon(c, 0.4f + 0.6f * unit(random), 3 + (s + p) % 7, unit(random) * 6.0f, centre));
        }
        splats.push_back(splat);
    }
    Splat twoPlanes{{polygon({0, 0, -9}, 1.0f, 4, 0.3f, {0, 0, -9}),
                     polygon({0.5f, 0.5f, -9.4f}, 1.0f, 5, 0.1f, {0, 0, -9})},
                    colours[0]};
    splats.push_back(twoPlanes);
    splats.push_back({{polygon({1, 1, -8}, 1.5f, 6, 0.0f, {1, 1, -8}, true)}, colours[2]});
    splats.push_back({{polygon({0, 0, 5}, 1.5f, 6, 0.0f, {0, 0, 5})}, colours[1]});

    OffscreenTarget target;
    Paint paint;
    for (const Splat& splat : splats)
    {
        paint.add(splat.polygons, boundsOf(splat.polygons), splat.color);
    }
    bool pictures[Decal::TEXTURE_COUNT] = {};
    for (size_t d = 0; d < paint.size(); ++d)
    {
        pictures[paint[d].getTextureIndex()] = true;
    }
    ASSERT_EQ(std::count(std::begin(pictures), std::end(pictures), true), Decal::TEXTURE_COUNT);

    Settings& settings = Settings::instance();
    for (bool transparency : {true, false})
    {
        for (int mipmap : {0, 2})
        {
            const std::string name = useFilters(transparency, mipmap);
            std::vector<uint8_t> fans, batched, client;
            for (int way = 0; way < 3; ++way)
            {
                glDepthMask(GL_TRUE);
                glClearColor(0.2f, 0.3f, 0.4f, 1.0f);
                glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
                paintState();
                if (way == 0)
                {
                    drawFans(paint, splats, perspective);
                    fans = readPixels();
                }
                else
                {
                    if (settings.getBool("vbo") != (way == 1))
                    {
                        settings.toggle("vbo");
                    }
                    paint.draw();
                    (way == 1 ? batched : client) = readPixels();
                }
                glDepthMask(GL_TRUE);
            }
            // With mipmaps the level of detail comes from each triangle's own texture
            // coordinate slopes, and a splat is cut into other triangles than the fans drew:
            // their rounding may tip a blend by a step or two. Anything more is paint missing or
            // drawn where it was not.
            const int tolerance = mipmap == 0 ? 0 : 2;
            auto differs = [tolerance](const uint8_t* a, const uint8_t* b) {
                for (int c = 0; c < 4; ++c)
                {
                    if (std::abs(int(a[c]) - int(b[c])) > tolerance)
                    {
                        return true;
                    }
                }
                return false;
            };
            size_t painted = 0, differ = 0, differClient = 0;
            for (size_t i = 0; i < fans.size(); i += 4)
            {
                painted += fans[i] != 51 || fans[i + 1] != 77 || fans[i + 2] != 102;
                differ += differs(&fans[i], &batched[i]);
                differClient += differs(&fans[i], &client[i]);
            }
            EXPECT_GT(painted, 100000u) << name;
            EXPECT_EQ(differ, 0u) << name << ": pixels that differ, batched";
            EXPECT_EQ(differClient, 0u) << name << ": pixels that differ, from client memory";
        }
    }
    EXPECT_EQ(paint.batchCount(), 1u);
}

GL_TEST(Paint, SplatsOutOfSightCostNothing)
{
    lookAhead();
    Paint paint;
    // Facing the camera, but behind it.
    const std::list<DecalPolygon> behind{polygon({0, 0, 10}, 1, 4, 0, {0, 0, 10}, true),
                                         polygon({2, 0, 10}, 1, 4, 0, {0, 0, 10}, true)};
    const std::list<DecalPolygon> away{polygon({0, 0, -10}, 1, 5, 0, {0, 0, -10}, true)};
    const std::list<DecalPolygon> ahead{polygon({0, 0, -10}, 1, 5, 0, {0, 0, -10})};
    paint.add(behind, boundsOf(behind), {1, 0, 0, 1});
    paint.add(away, boundsOf(away), {1, 0, 0, 1});
    // What each splat draws of its square depends on its picture.
    const size_t behindTriangles = paint[0].triangleCount();
    const size_t awayTriangles = paint[1].triangleCount();
    ASSERT_GT(behindTriangles, 0u);
    ASSERT_GT(awayTriangles, 0u);
    glEnable(GL_CULL_FACE);

    glUseProgram(0);
    GLint before = 0;
    ShaderManager::instance().use("unicolor");
    glGetIntegerv(GL_CURRENT_PROGRAM, &before);
    EXPECT_EQ(trianglesDrawn([&] { paint.draw(); }), 0u)
        << "behind the camera, or seen from behind";
    GLint after = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &after);
    EXPECT_EQ(after, before) << "paint with nothing in view must not change the bound program";

    Settings::instance().toggle("frustum"); // culling off: drawn even where it cannot be seen
    EXPECT_EQ(trianglesDrawn([&] { paint.draw(); }), behindTriangles);
    glDisable(GL_CULL_FACE); // without face culling the back of a splat shows
    // Two splats in view: each one's opaque core is drawn too.
    EXPECT_EQ(trianglesDrawn([&] { paint.draw(); }), behindTriangles + awayTriangles +
                                                         paint[0].coreTriangleCount() +
                                                         paint[1].coreTriangleCount());
    glEnable(GL_CULL_FACE);

    paint.add(ahead, boundsOf(ahead), {1, 0, 0, 1});
    Settings::instance().toggle("frustum");
    EXPECT_EQ(trianglesDrawn([&] { paint.draw(); }), paint[2].triangleCount());
    GLint program = -1;
    glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    EXPECT_EQ(program, 0) << "paint leaves no program bound";
    EXPECT_EQ(ShaderManager::instance().getCurrent(), nullptr);
}

GL_TEST(Paint, APileLooksAsEverySplatDrawnInTurnButOnlyWhatShowsIsShaded)
{
    lookAhead();
    // Forty-eight splats heaped on one spot of a wall ahead, each its whole 3 x 3 square, every
    // seventh in a translucent colour (which hides nothing under it).
    std::srand(5);
    std::mt19937 random(9);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const Vec4 opaque[] = {{1, 0.617f, 0, 1}, {0.604f, 1, 0, 1}, {0.988f, 0, 1, 1}};
    const Vec4 translucent{0.1f, 0.5f, 1, 0.6f};
    Paint paint;
    for (int s = 0; s < 48; ++s)
    {
        const Vec3 centre{unit(random) - 0.5f, unit(random) - 0.5f, -10.0f};
        const std::list<DecalPolygon> square{
            polygon(centre, 2.1214f, 4, math::PI / 4, centre),
            polygon({centre.x + 0.2f, centre.y, centre.z}, 0.5f, 6, 0.3f, centre)};
        paint.add(square, boundsOf(square), s % 7 == 6 ? translucent : opaque[s % 3]);
    }
    EXPECT_GT(paint[0].coreTriangleCount(), 0u);
    EXPECT_EQ(paint[6].coreTriangleCount(), 0u) << "a translucent splat covers nothing";

    // The paint and how many of its samples passed the tests, with and without a stencil.
    auto draw = [&](bool stencil, GLuint& samples) {
        OffscreenTarget target(stencil);
        glDepthMask(GL_TRUE);
        glClearColor(0.2f, 0.3f, 0.4f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
        paintState();
        GLuint query = 0;
        glGenQueries(1, &query);
        glBeginQuery(GL_SAMPLES_PASSED, query);
        paint.draw();
        glEndQuery(GL_SAMPLES_PASSED);
        glGetQueryObjectuiv(query, GL_QUERY_RESULT, &samples);
        glDeleteQueries(1, &query);
        glDepthMask(GL_TRUE);
        return readPixels();
    };
    for (bool transparency : {true, false})
    {
        for (int mipmap : {0, 1, 2})
        {
            const std::string name = useFilters(transparency, mipmap);
            GLuint layeredSamples = 0, flatSamples = 0;
            const std::vector<uint8_t> layered = draw(true, layeredSamples);
            const std::vector<uint8_t> flat = draw(false, flatSamples);
            size_t differ = 0, painted = 0;
            for (size_t i = 0; i < flat.size(); i += 4)
            {
                differ += std::memcmp(&layered[i], &flat[i], 4) != 0;
                painted += flat[i] != 51 || flat[i + 1] != 77 || flat[i + 2] != 102;
            }
            EXPECT_GT(painted, 20000u) << name;
            EXPECT_EQ(differ, 0u) << name << ": pixels that differ";
            // Much of the pile lies under newer splats' opaque cores and is never shaded; the
            // cores themselves cost a little.
            EXPECT_LT(layeredSamples, flatSamples * 0.85) << name;
        }
    }
}
