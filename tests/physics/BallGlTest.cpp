#include "core/Settings.h"
#include "physics/Ball.h"
#include "physics/PhysicsWorld.h"
#include "physics/Player.h"
#include "scene/Level.h"
#include "sound/SoundManager.h"
#include "support/GlContext.h"

#include <btBulletDynamicsCommon.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace
{
// A level built from triangles given as 9 floats each, with its collision in a fresh world.
std::unique_ptr<Level> levelOf(const std::vector<float>& triangles)
{
    const int count = static_cast<int>(triangles.size() / 3);
    auto vertices = std::make_unique<float[]>(count * 4);
    for (int i = 0; i < count; ++i)
    {
        vertices[i * 4] = triangles[i * 3];
        vertices[i * 4 + 1] = triangles[i * 3 + 1];
        vertices[i * 4 + 2] = triangles[i * 3 + 2];
        vertices[i * 4 + 3] = 1.0f;
    }
    auto level = std::make_unique<Level>();
    level->setMesh(std::move(vertices), std::make_unique<float[]>(count * 3),
                   std::make_unique<float[]>(count * 2), count);
    EXPECT_TRUE(level->buildPhysics());
    return level;
}

// A square floor of half-size H at height Y, facing up.
std::vector<float> floorAt(float y, float h)
{
    return {-h, y, -h, -h, y, h, h, y, h, -h, y, -h, h, y, h, h, y, -h};
}

// A wall facing +z at height 0..40 across x -50..50, standing at Z.
std::vector<float> wallAt(float z)
{
    return {-50, 0, z, 50, 0, z, 50, 40, z, -50, 0, z, 50, 40, z, -50, 40, z};
}

// The quad A B C D as two triangles, facing (B - A) x (C - A).
std::vector<float> quad(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d)
{
    return {a.x, a.y, a.z, b.x, b.y, b.z, c.x, c.y, c.z,
            a.x, a.y, a.z, c.x, c.y, c.z, d.x, d.y, d.z};
}

std::vector<float> join(std::vector<float> a, const std::vector<float>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The rectangle CORNER + s U + t V (0 <= s, t <= 1) in 1 x 1 squares, facing U x V.
std::vector<float> tiles(const Vec3& corner, const Vec3& u, const Vec3& v)
{
    const float nu = std::round(std::sqrt(math::dot(u, u)));
    const float nv = std::round(std::sqrt(math::dot(v, v)));
    std::vector<float> out;
    for (float i = 0; i < nu; ++i)
    {
        for (float j = 0; j < nv; ++j)
        {
            for (auto [s, t] :
                 {std::pair{i, j}, {i + 1, j}, {i + 1, j + 1}, {i, j}, {i + 1, j + 1}, {i, j + 1}})
            {
                s /= nu;
                t /= nv;
                out.insert(out.end(), {corner.x + s * u.x + t * v.x, corner.y + s * u.y + t * v.y,
                                       corner.z + s * u.z + t * v.z});
            }
        }
    }
    return out;
}

// Where a ball that starts at P with velocity V first comes within its radius of the plane
// through POINT facing NORMAL, on that plane. TIME is the flight time to there.
Vec3 strikePoint(Vec3 p, Vec3 v, const Vec3& point, const Vec3& normal, float& time)
{
    const float radius = 0.3f, g = 9.8f, dt = 1e-4f;
    for (time = 0.0f; time < 3.0f; time += dt)
    {
        const Vec3 at{p.x + v.x * time, p.y + v.y * time - 0.5f * g * time * time,
                      p.z + v.z * time};
        if (math::dot({at.x - point.x, at.y - point.y, at.z - point.z}, normal) <= radius)
        {
            return {at.x - normal.x * radius, at.y - normal.y * radius, at.z - normal.z * radius};
        }
    }
    return {NAN, NAN, NAN};
}

class BallGlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!gl.ok())
        {
            GTEST_SKIP() << "no GL 3.2 context: " << gl.error();
        }
        setenv("SDL_AUDIODRIVER", "no-such-audio-driver", 1); // throws come faster than sounds end
        Settings::instance().defineBool("vbo", true);
        testing::internal::CaptureStderr(); // "[LOADED] Physics SDK!" and the throw lines
    }
    void TearDown() override
    {
        if (gl.ok())
        {
            errors = testing::internal::GetCapturedStderr();
        }
        player.reset();
        level.reset();
        PhysicsWorld::destroy();
        SoundManager::destroy();
        Settings::destroy();
        unsetenv("SDL_AUDIODRIVER");
    }

    // One frame as the game runs it: physics, the paint of the balls that struck, the player.
    void frame(float dt)
    {
        PhysicsWorld::instance().step(dt);
        level->paintRecordedHits();
        if (player)
        {
            player->update(dt, 0, 0);
        }
    }

    GlContext gl;
    std::unique_ptr<Level> level;
    std::unique_ptr<Player> player;
    std::string errors;
};
} // namespace

TEST_F(BallGlTest, LaunchSpeedIsTheSameAtEveryFrameRate)
{
    level = levelOf(floorAt(-500.0f, 1.0f));    // far below: nothing to hit
    const float speed = 500.0f / 60.0f / 0.25f; // 33.3 m/s per unit of the throw vector
    for (float fps : {30.0f, 60.0f, 144.0f})
    {
        Ball ball({0, 0, 0}, {0, 0, -1}, {1, 0, 0, 1});
        // At 144 fps the first frame often runs no physics tick at all: the throw must not be
        // lost or weakened by that.
        for (int i = 0; i < static_cast<int>(fps); ++i) // one second
        {
            PhysicsWorld::instance().step(1.0f / fps);
            ASSERT_NEAR(ball.velocity().z, -speed, 1e-3f) << fps << " fps, frame " << i;
        }
        EXPECT_NEAR(ball.velocity().y, 0.25f * speed - 9.8f, 0.2f) << fps << " fps";
        EXPECT_NEAR(ball.position().z, -speed, speed / 60.0f + 1e-3f) << fps << " fps";
    }
}

TEST_F(BallGlTest, HitsArePaintedAfterTheStepInTheOrderTheBallsStruck)
{
    // A wall facing +z at z = -12 and three balls flying at it, the farthest thrown first. Each
    // ball's paint tells how far from the wall it started.
    level = levelOf(wallAt(-12.0f));
    std::vector<std::unique_ptr<Ball>> balls;
    for (float z : {-8.0f, -10.5f, -9.5f})
    {
        balls.push_back(
            std::make_unique<Ball>(Vec3{z, 0, z}, Vec3{0.0f, -0.25f, -1.0f}, Vec4{-z, 0, 0, 1}));
    }
    PhysicsWorld::instance().step(8.0f / 60.0f); // all three strike within these eight ticks
    EXPECT_TRUE(level->getHits().empty()) << "nothing is painted inside the step";
    EXPECT_EQ(level->decalCount(), 0u);
    for (auto& ball : balls)
    {
        EXPECT_LE(ball->life, 0.0f);
    }

    level->paintRecordedHits();
    ASSERT_EQ(level->getHits().size(), 3u) << "each ball paints once, however long it touches";
    EXPECT_EQ(level->getHits()[0].colour.x, 10.5f); // the nearest struck first
    EXPECT_EQ(level->getHits()[1].colour.x, 9.5f);
    EXPECT_EQ(level->getHits()[2].colour.x, 8.0f);
    level->paintRecordedHits();
    EXPECT_EQ(level->getHits().size(), 3u) << "recorded hits are painted once";
}

TEST_F(BallGlTest, ABallThatTouchesTheLevelIsGoneTheNextFrameAndOthersExpireAfterTenSeconds)
{
    level = levelOf(floorAt(3.0f, 100.0f)); // the ball lands about 63 m ahead
    player = std::make_unique<Player>();
    frame(1.0f / 60.0f); // the cooldown starts at 0: a throw needs one frame first
    player->throwBall({0, 0, -1});
    ASSERT_EQ(player->getBalls().size(), 1u);
    size_t hitsBefore = 0;
    for (int i = 0; i < 300 && level->getHits().empty(); ++i)
    {
        frame(1.0f / 60.0f);
        hitsBefore = level->getHits().size();
    }
    ASSERT_EQ(hitsBefore, 1u);
    EXPECT_NEAR(level->getHits()[0].point.y, 3.0f, 0.02f);
    EXPECT_NEAR(level->getHits()[0].normal.y, 1.0f, 1e-3f);
    EXPECT_TRUE(player->getBalls().empty()) << "removed in the update of the frame that hit";

    // Over the void a ball lives ten seconds.
    level.reset();
    player.reset();
    level = levelOf(floorAt(3.0f, 3.0f)); // just enough to stand on at the start
    player = std::make_unique<Player>();
    frame(1.0f / 60.0f);
    player->throwBall({0, 0, 1}); // away from the floor
    int frames = 0;
    while (!player->getBalls().empty() && frames < 2000)
    {
        frame(1.0f / 60.0f);
        ++frames;
    }
    EXPECT_TRUE(level->getHits().empty());
    EXPECT_NEAR(frames / 60.0f, 10.0f, 0.05f);
}

TEST_F(BallGlTest, EveryThrowPaintsOneSquareSplatWhereItStrikes)
{
    // Each throw goes from the start along LOOK and must paint, once, the face through POINT
    // facing NORMAL, along which U and V run: at least MIN_AREA of the 3 x 3 square.
    struct Throw
    {
        std::string what;
        std::vector<float> level;
        Vec3 look, point, normal, u, v;
        double minArea = 9.0;
    };
    std::vector<Throw> throws;
    // A wall straight ahead at many distances, thrown at level and a little up and down.
    const std::vector<float> floor = floorAt(3.0f, 50.0f);
    const Vec3 ahead{0, 0, 1}, across{1, 0, 0}, up{0, 1, 0};
    for (float pitch : {-10.0f, 0.0f, 10.0f}) // degrees
    {
        const float a = pitch * math::DEG_TO_RAD;
        for (float distance = 1.5f; distance <= 20.0f; distance += 0.25f)
        {
            const float z = 3.0f - distance;
            throws.push_back(
                {"wall " + std::to_string(distance) + " m ahead, pitch " + std::to_string(pitch),
                 join(floor, wallAt(z)), Vec3{0, std::sin(a), -std::cos(a)}, Vec3{2, 0, z}, ahead,
                 across, up});
        }
    }
    // The front of a block whose side face begins 2 cm beside the ball's path: the ball also
    // touches the side's edge, but paints the front.
    for (float distance = 2.0f; distance <= 20.0f; distance += 3.0f)
    {
        const float z = 3.0f - distance, e = 1.98f, back = z - 10.0f;
        const std::vector<float> block =
            join(quad({e, 0, z}, {50, 0, z}, {50, 40, z}, {e, 40, z}),
                 quad({e, 0, z}, {e, 40, z}, {e, 40, back}, {e, 0, back}));
        throws.push_back({"block " + std::to_string(distance) + " m ahead", join(floor, block),
                          Vec3{0, 0, -1}, Vec3{2, 0, z}, ahead, across, up, 4.0});
    }
    // Every face of a 12 x 8 x 12 room of 1 m tiles around the start, thrown at three times.
    // Near tile edges Bullet's contact normal tilts; the paint must not.
    std::vector<float> room;
    const Vec3 x{12, 0, 0}, y{0, 8, 0}, z{0, 0, 12};
    for (const auto& face :
         {tiles({-4, 3, -3}, z, x), tiles({-4, 11, -3}, x, z), tiles({-4, 3, -3}, y, z),
          tiles({8, 3, -3}, z, y), tiles({-4, 3, -3}, x, y), tiles({-4, 3, 9}, y, x)})
    {
        room = join(room, face);
    }
    const Vec3 faces[][4] = {{{0, 3, 0}, {0, 1, 0}, {1, 0, 0}, {0, 0, 1}},
                             {{0, 11, 0}, {0, -1, 0}, {1, 0, 0}, {0, 0, 1}},
                             {{-4, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                             {{8, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                             {{0, 0, -3}, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}},
                             {{0, 0, 9}, {0, 0, -1}, {1, 0, 0}, {0, 1, 0}}};
    for (const auto& [point, n, u, v] : faces)
    {
        for (const auto& [su, sv] : {std::pair{0.0f, 0.0f}, {0.2f, 0.15f}, {-0.1f, 0.15f}})
        {
            const Vec3 look =
                math::normalize({-n.x + su * u.x + sv * v.x, -n.y + su * u.y + sv * v.y,
                                 -n.z + su * u.z + sv * v.z});
            throws.push_back({"room face " + std::to_string(n.x) + " " + std::to_string(n.y) + " " +
                                  std::to_string(n.z) + ", aside " + std::to_string(su),
                              room, look, point, n, u, v});
        }
    }

    for (const Throw& t : throws)
    {
        SCOPED_TRACE(t.what);
        player.reset();
        level.reset();
        PhysicsWorld::destroy();
        level = levelOf(t.level);
        player = std::make_unique<Player>();
        frame(1.0f / 60.0f); // stand on the floor; the cooldown runs out
        player->throwBall(t.look);
        ASSERT_EQ(player->getBalls().size(), 1u);
        const Vec3 start = player->getBalls().front()->position();
        const Vec3 launch = player->getBalls().front()->velocity();
        float time = 0.0f;
        const Vec3 expected = strikePoint(start, launch, t.point, t.normal, time);
        // The tick that stops the ball still carries it along the face at full speed.
        const Vec3 along{launch.x, launch.y - 9.8f * time, launch.z};
        const float slack = std::hypot(math::dot(along, t.u), math::dot(along, t.v)) / 60.0f + 0.1f;
        for (int i = 0; i < 190; ++i)
        {
            frame(1.0f / 60.0f);
        }
        EXPECT_TRUE(player->getBalls().empty());
        EXPECT_EQ(level->getHits().size(), 1u);
        if (level->getHits().size() != 1)
        {
            continue;
        }
        const PaintHit& hit = level->getHits()[0];
        const auto offset = [&](const Vec3& p, const Vec3& from, const Vec3& axis) {
            return math::dot({p.x - from.x, p.y - from.y, p.z - from.z}, axis);
        };
        EXPECT_NEAR(offset(hit.point, t.point, t.normal), 0.0f, 0.02f) << "on the struck face";
        EXPECT_NEAR(offset(hit.point, expected, t.u), 0.0f, slack);
        EXPECT_NEAR(offset(hit.point, expected, t.v), 0.0f, slack);
        EXPECT_NEAR(math::dot(hit.normal, t.normal), 1.0f, 1e-6f);

        // The splat covers the 3 x 3 square around the hit on the struck face, nothing else.
        double area = 0.0;
        for (const DecalPolygon& polygon : level->cutSplat(hit.point, hit.normal))
        {
            for (size_t i = 0; i < polygon.size(); ++i)
            {
                const Vec3 c{polygon[i].x, polygon[i].y, polygon[i].z};
                EXPECT_LE(std::fabs(offset(c, hit.point, t.u)), 1.5f + 1e-4f);
                EXPECT_LE(std::fabs(offset(c, hit.point, t.v)), 1.5f + 1e-4f);
                EXPECT_LE(std::fabs(offset(c, t.point, t.normal)), 0.5f);
                const Vec3 first{polygon[0].x, polygon[0].y, polygon[0].z};
                const DecalVertex& next = polygon[(i + 1) % polygon.size()];
                area +=
                    0.5 *
                    math::dot(math::cross({c.x - first.x, c.y - first.y, c.z - first.z},
                                          {next.x - first.x, next.y - first.y, next.z - first.z}),
                              t.normal);
            }
        }
        EXPECT_GE(area, t.minArea - 1e-3);
        EXPECT_LE(area, 9.0 + 1e-3);
    }
}
