// SPDX-License-Identifier: MIT
#include "core/Settings.h"
#include "paint/PaintMap.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "render/TextureManager.h"
#include "scene/Frustum.h"
#include "scene/Level.h"
#include "support/Fixtures.h"
#include "support/TestLevel.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{
// How paint was drawn before the paint maps: every splat's polygons, one fan each, over the
// surface in the order the splats were made, the picture sampled on screen. Kept here as the
// picture the paint maps must reproduce.
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

const int W = OffscreenTarget::WIDTH;
const int H = OffscreenTarget::HEIGHT;

GLuint compile(GLenum type, const char* source)
{
    const GLuint shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    return shader;
}

std::vector<uint8_t> readPixels()
{
    std::vector<uint8_t> pixels(size_t(W) * H * 4);
    glReadPixels(0, 0, W, H, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    return pixels;
}

void setSwitch(const char* name, bool on)
{
    if (Settings::instance().getBool(name) != on)
    {
        Settings::instance().toggle(name);
    }
}

void setCycle(const char* name, int value)
{
    while (Settings::instance().getInt(name) != value)
    {
        Settings::instance().cycle(name);
    }
}

// A throw: where it struck, the face it struck, the ball's colour.
struct Throw
{
    Vec3 point;
    Vec3 normal;
    Vec4 colour;
};

// A room of 1 m tiles: a back wall at z = -10 facing the camera, a floor at y = -2 and a wall at
// x = -4 facing +x, so splats cross triangle edges, lie over a corner and take the tangent that
// normals along x get.
Triangles room()
{
    return tiles({-8, -2, -10}, {16, 0, 0}, {0, 10, 0}) + tiles({-8, -2, 0}, {16, 0, 0}, {0, 0, -10}) +
           tiles({-4, -2, 0}, {0, 0, -10}, {0, 10, 0});
}

std::vector<Throw> throws()
{
    const Vec4 orange{1, 0.617f, 0, 1}, sky{0.1f, 0.5f, 1, 0.6f}, magenta{0.988f, 0, 1, 1},
        green{0.2f, 0.9f, 0.1f, 1};
    const Vec3 back{0, 0, 1};
    std::vector<Throw> t;
    // Overlapping on the back wall, across the tiles' edges, opaque and translucent.
    for (int i = 0; i < 12; ++i)
    {
        const Vec4 colours[] = {orange, sky, magenta, green};
        t.push_back({{-2.5f + 0.45f * i, 0.3f * float(i % 4) - 0.2f, -10}, back, colours[i % 4]});
    }
    t.push_back({{1.0f, -1.6f, -10}, back, magenta});         // over the corner with the floor
    t.push_back({{-4, 0.5f, -7}, {1, 0, 0}, orange});        // on the side wall
    t.push_back({{2.5f, -2, -8.5f}, {0, 1, 0}, sky});         // on the floor
    return t;
}

// The white room with every splat drawn the old way over it.
void drawReference(Level& bare, const Level& painted, const std::vector<Throw>& thrown,
                   const Mat4& perspective)
{
    Shader* flat = ShaderManager::instance().use("unicolor");
    bare.draw(flat);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_POLYGON_OFFSET_FILL);
    glPolygonOffset(-4.5f, -4.5f);
    glDepthMask(GL_FALSE);
    const GLuint program = glCreateProgram();
    const GLuint vs = compile(GL_VERTEX_SHADER, FAN_VERTEX);
    const GLuint fs = compile(GL_FRAGMENT_SHADER, FAN_FRAGMENT);
    glAttachShader(program, vs);
    glAttachShader(program, fs);
    glBindAttribLocation(program, 1, "texcoord");
    glLinkProgram(program);
    glUseProgram(program);
    glUniformMatrix4fv(glGetUniformLocation(program, "perspective"), 1, GL_FALSE,
                       perspective.data());
    glUniformMatrix4fv(glGetUniformLocation(program, "view"), 1, GL_FALSE,
                       ShaderManager::instance().getView().data());
    glUniform1i(glGetUniformLocation(program, "tex"), 0);
    glUniform1i(glGetUniformLocation(program, "trans"),
                Settings::instance().getBool("transparency") ? 0 : 1);
    const int mipmap = Settings::instance().getInt("texture-mipmap");
    const bool linear = Settings::instance().getInt("texture-quality") == 1;
    glActiveTexture(GL_TEXTURE0);
    ASSERT_EQ(painted.getSplats().size(), thrown.size());
    for (size_t s = 0; s < thrown.size(); ++s)
    {
        const SplatRecord& record = painted.getSplats()[s];
        const std::string picture = "paint0" + std::to_string(record.picture + 1);
        TextureManager::instance().load(picture, GL_RGBA, "png");
        glBindTexture(GL_TEXTURE_2D, TextureManager::instance().get(picture));
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER,
                        mipmap == 2 || (mipmap == 0 && linear) ? GL_LINEAR : GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER,
                        mipmap == 2 ? GL_LINEAR_MIPMAP_LINEAR
                                    : (mipmap == 0 && linear ? GL_LINEAR : GL_NEAREST));
        glUniform4fv(glGetUniformLocation(program, "color"), 1, &thrown[s].colour.x);
        for (const DecalPolygon& p : painted.cutSplat(thrown[s].point, thrown[s].normal))
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
            glDrawArrays(GL_TRIANGLE_FAN, 0, GLsizei(p.size()));
        }
    }
    glDisableVertexAttribArray(0);
    glDisableVertexAttribArray(1);
    glBindTexture(GL_TEXTURE_2D, 0);
    glUseProgram(0);
    glDeleteProgram(program);
    glDeleteShader(vs);
    glDeleteShader(fs);
    glDepthMask(GL_TRUE);
    glDisable(GL_POLYGON_OFFSET_FILL);
}

void clearTarget()
{
    glDepthMask(GL_TRUE);
    glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_CULL_FACE);
    glDisable(GL_BLEND);
}

int channelDifference(const uint8_t* a, const uint8_t* b)
{
    int most = 0;
    for (int c = 0; c < 3; ++c)
    {
        most = std::max(most, std::abs(int(a[c]) - int(b[c])));
    }
    return most;
}

// The pixels of REFERENCE within RADIUS pixels of an edge of its paint (a neighbour that differs
// by more than a quarter of the range).
std::vector<uint8_t> edgeBand(const std::vector<uint8_t>& reference, int radius)
{
    std::vector<uint8_t> edge(size_t(W) * H, 0), band(size_t(W) * H, 0);
    for (int y = 0; y + 1 < H; ++y)
    {
        for (int x = 0; x + 1 < W; ++x)
        {
            const uint8_t* p = &reference[(size_t(y) * W + x) * 4];
            if (channelDifference(p, p + 4) > 64 || channelDifference(p, p + size_t(W) * 4) > 64)
            {
                edge[size_t(y) * W + x] = 1;
            }
        }
    }
    for (int y = 0; y < H; ++y)
    {
        for (int x = 0; x < W; ++x)
        {
            if (!edge[size_t(y) * W + x])
            {
                continue;
            }
            for (int dy = -radius; dy <= radius; ++dy)
            {
                for (int dx = -radius; dx <= radius; ++dx)
                {
                    const int bx = x + dx, by = y + dy;
                    if (bx >= 0 && by >= 0 && bx < W && by < H)
                    {
                        band[size_t(by) * W + bx] = 1;
                    }
                }
            }
        }
    }
    return band;
}

struct Comparison
{
    size_t painted = 0;     // pixels the reference paints
    double meanDifference = 0; // over the painted pixels, 0..255
    size_t farOff = 0;      // pixels off by more than a quarter of the range away from any edge
    size_t nearEdge = 0;    // the same within the edge band
};

Comparison compare(const std::vector<uint8_t>& reference, const std::vector<uint8_t>& mapped,
                   int band)
{
    const std::vector<uint8_t> near = edgeBand(reference, band);
    Comparison c;
    double total = 0.0;
    for (size_t i = 0; i < size_t(W) * H; ++i)
    {
        const uint8_t* r = &reference[i * 4];
        const uint8_t* m = &mapped[i * 4];
        const bool white = r[0] > 250 && r[1] > 250 && r[2] > 250;
        const bool background = r[0] < 3 && r[1] < 3 && r[2] < 3;
        if (!white && !background)
        {
            ++c.painted;
            total += channelDifference(r, m);
        }
        // An edge just outside the picture leaves its band without the edge.
        const int x = int(i % W), y = int(i / W);
        if (channelDifference(r, m) > 64 && x >= band && y >= band && x < W - band && y < H - band)
        {
            (near[i] ? c.nearEdge : c.farOff) += 1;
        }
    }
    c.meanDifference = c.painted ? total / double(c.painted) : 0.0;
    return c;
}
} // namespace

GL_TEST(PaintMap, TheLevelShowsThePaintThatEverySplatDrawnInTurnShowed)
{
    OffscreenTarget target;
    const Mat4 perspective = math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f);
    const std::unique_ptr<Level> painted = levelOf(room());
    const std::unique_ptr<Level> bare = levelOf(room());
    painted->initBuffers();
    bare->initBuffers();
    const std::vector<Throw> thrown = throws();
    std::srand(11);
    bool pictures[PICTURE_COUNT] = {};
    for (const Throw& t : thrown)
    {
        ASSERT_TRUE(painted->paintHit(t.point, t.normal, t.colour));
        pictures[painted->getSplats()[painted->splatCount() - 1].picture] = true;
    }
    EXPECT_EQ(std::count(std::begin(pictures), std::end(pictures), true), PICTURE_COUNT);
    painted->updatePaint(); // loads the splat pictures, as the game's first frame with paint does

    // The start view, and 2 m from the back wall, where a texel of the map is some ten pixels.
    const Mat4 views[] = {math::identity(), math::translate(math::identity(), {0.0f, 0.0f, 8.0f})};
    const char* const viewNames[] = {"at 10 m", "at 2 m"};
    for (int v = 0; v < 2; ++v)
    {
        ShaderManager::instance().setMatrices(views[v], perspective, math::identity());
        Frustum::instance().update(perspective, views[v]);
        // A texel of the map in pixels at the back wall, and a pixel of slack.
        const float distance = v == 0 ? 10.0f : 2.0f;
        const float pixelsPerMetre = H / (2.0f * distance * std::tan(22.5f * math::DEG_TO_RAD));
        const int band = int(std::ceil(pixelsPerMetre / painted->getCharts().getDensity())) + 1;
        for (bool transparency : {true, false})
        {
            for (int mipmap : {0, 2})
            {
                setSwitch("transparency", transparency);
                setCycle("texture-mipmap", mipmap);
                setCycle("texture-quality", 1);
                const std::string name = std::string(viewNames[v]) +
                                         (transparency ? ", blended" : ", cut") + ", mipmap " +
                                         std::to_string(mipmap);
                clearTarget();
                drawReference(*bare, *painted, thrown, perspective);
                const std::vector<uint8_t> reference = readPixels();
                clearTarget();
                painted->updatePaint(); // as a frame does before it draws
                painted->draw(ShaderManager::instance().use("unicolor"));
                const std::vector<uint8_t> mapped = readPixels();
                const Comparison c = compare(reference, mapped, band);
                std::printf("%s: %zu pixels painted, mean difference %.2f, off near an edge %zu, "
                            "away from one %zu\n",
                            name.c_str(), c.painted, c.meanDifference, c.nearEdge, c.farOff);
                // Measured: blended, a mean difference under 2 steps of 255 and no pixel off by a
                // quarter of the range; cut, a mean of 5.5 and 4 to 5% of the painted pixels off
                // where the map's texels, not the screen's pixels, decide the cut, all within a
                // texel of an edge but a few droplets smaller than a texel (at most 8 seen). A
                // crack along a triangle or chart edge, or misplaced paint, is a line of such
                // pixels.
                EXPECT_GT(c.painted, 100000u) << name;
                EXPECT_LT(c.meanDifference, transparency ? 3.0 : 7.0) << name;
                EXPECT_LT(double(c.nearEdge), (transparency ? 0.001 : 0.06) * double(c.painted))
                    << name;
                EXPECT_LE(c.farOff, 16u) << name << ": paint missing or misplaced away from edges";
            }
        }
    }
    ShaderManager::instance().unuse();
}

GL_TEST(PaintMap, BlendedPaintHasSoftEdgesAndCutPaintIsOpaqueInTheThrownColours)
{
    OffscreenTarget target;
    const Mat4 perspective = math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f);
    const std::unique_ptr<Level> level = levelOf(room());
    level->initBuffers();
    const std::vector<Throw> thrown = throws();
    std::srand(11);
    for (const Throw& t : thrown)
    {
        level->paintHit(t.point, t.normal, t.colour);
    }
    const Mat4 view = math::translate(math::identity(), {0.0f, 0.0f, 8.0f});
    ShaderManager::instance().setMatrices(view, perspective, math::identity());
    setCycle("texture-mipmap", 0);

    // Cut, nearest texels: every pixel is white or one of the thrown colours, as it is, however
    // translucent the ball was.
    setSwitch("transparency", false);
    setCycle("texture-quality", 0);
    clearTarget();
    level->updatePaint();
    level->draw(ShaderManager::instance().use("unicolor"));
    std::vector<uint8_t> cut = readPixels();
    size_t white = 0, thrownColour = 0, other = 0;
    for (size_t i = 0; i < cut.size(); i += 4)
    {
        const uint8_t* p = &cut[i];
        if (p[0] == 255 && p[1] == 255 && p[2] == 255)
        {
            ++white;
            continue;
        }
        bool match = false;
        for (const Throw& t : thrown)
        {
            const uint8_t expected[3] = {uint8_t(std::lround(t.colour.x * 255)),
                                         uint8_t(std::lround(t.colour.y * 255)),
                                         uint8_t(std::lround(t.colour.z * 255))};
            match = match || channelDifference(p, expected) <= 1;
        }
        (match ? thrownColour : other) += 1;
    }
    EXPECT_GT(thrownColour, 50000u);
    EXPECT_GT(white, 20000u);
    EXPECT_EQ(other, 0u) << "cut paint is opaque: nothing between a colour and the wall";

    // Blended, filtered: the edges fade, and a translucent ball lets the wall through.
    setSwitch("transparency", true);
    setCycle("texture-quality", 1);
    clearTarget();
    level->updatePaint();
    level->draw(ShaderManager::instance().use("unicolor"));
    std::vector<uint8_t> soft = readPixels();
    size_t between = 0;
    for (size_t i = 0; i < soft.size(); i += 4)
    {
        const uint8_t* p = &soft[i];
        // Orange over white: red stays 255, blue falls from 255 to 0 with the paint's alpha.
        if (p[0] == 255 && p[2] > 40 && p[2] < 215 && p[1] > p[2])
        {
            ++between;
        }
    }
    EXPECT_GT(between, 500u) << "orange edges fading into the white wall";
    ShaderManager::instance().unuse();
}

GL_TEST(PaintMap, SwitchingTransparencyStampsTheWholePaintAgainWithinASecond)
{
    OffscreenTarget target;
    const std::unique_ptr<Level> level = shippedLevel();
    level->initBuffers();
    // 10,000 throws at random over the floor around the start.
    std::srand(5);
    for (int i = 0; level->splatCount() < 10000 && i < 40000; ++i)
    {
        const float x = -20.0f + 40.0f * float(std::rand()) / float(RAND_MAX);
        const float z = -20.0f + 40.0f * float(std::rand()) / float(RAND_MAX);
        level->paintHit({x, 3.0f, z}, {0, 1, 0}, {1, 0.5f, 0, 1});
    }
    ASSERT_EQ(level->splatCount(), 10000u);
    while (level->stampedCount() < level->splatCount())
    {
        level->updatePaint();
    }
    // The switch: the paint is stamped again a part each frame, as the game goes on.
    Settings::instance().toggle("transparency");
    const auto start = std::chrono::steady_clock::now();
    int frames = 0;
    level->updatePaint();
    EXPECT_LT(level->stampedCount(), level->splatCount()) << "a frame stamps only a part";
    while (level->stampedCount() < level->splatCount())
    {
        level->updatePaint();
        ++frames;
    }
    glFinish();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("recomposited 10,000 splats in %.3f s over %d frames\n", seconds, frames + 1);
    EXPECT_GT(frames, 1);
    level->getPaintMap()->refreshCoverage(SIZE_MAX);
    // The throws cover most of 1,600 m2 of floor, some 5% of the level.
    EXPECT_GT(level->revealed(), 0.02f);
    EXPECT_LT(level->revealed(), 0.08f);
}
