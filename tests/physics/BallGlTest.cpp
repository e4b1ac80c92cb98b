// SPDX-License-Identifier: MIT
#include "physics/Ball.h"
#include "physics/PhysicsWorld.h"
#include "physics/Player.h"
#include "scene/Level.h"
#include "support/Fixtures.h"
#include "support/TestLevel.h"

#include <cmath>
#include <string>
#include <vector>

namespace
{
const float FRAME = 1.0f / 60.0f;

// One frame as the game runs it: physics, the paint of the balls that struck, the player.
void frame(Level& level, Player* player = nullptr)
{
    PhysicsWorld::instance().step(FRAME);
    level.paintRecordedHits();
    if (player)
    {
        player->update(FRAME, 0, 0);
    }
}

Vec3 minus(const Vec3& a, const Vec3& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
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
        if (math::dot(minus(at, point), normal) <= radius)
        {
            return {at.x - normal.x * radius, at.y - normal.y * radius, at.z - normal.z * radius};
        }
    }
    return {NAN, NAN, NAN};
}
} // namespace

GL_TEST(Ball, LaunchSpeedIsTheSameAtEveryFrameRate)
{
    const auto level = levelOf(floorAt(-500.0f, 1.0f)); // far below: nothing to hit
    const float speed = 500.0f / 60.0f / 0.25f;         // 33.3 m/s per unit of the throw vector
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

GL_TEST(Ball, HitsArePaintedAfterTheStepOnceEachInTheOrderTheBallsStruck)
{
    // Three balls flying at a wall, the farthest thrown first. Each one's red tells where it
    // started.
    const auto level = levelOf(wallAt(-12.0f));
    std::vector<std::unique_ptr<Ball>> balls;
    for (float z : {-8.0f, -10.5f, -9.5f})
    {
        balls.push_back(
            std::make_unique<Ball>(Vec3{z, 0, z}, Vec3{0, -0.25f, -1}, Vec4{-z, 0, 0, 1}));
    }
    PhysicsWorld::instance().step(8.0f / 60.0f); // all three strike within these eight ticks
    EXPECT_TRUE(level->getHits().empty()) << "nothing is painted inside the step";
    for (auto& ball : balls)
    {
        EXPECT_LE(ball->life, 0.0f);
    }
    level->paintRecordedHits();
    level->paintRecordedHits();
    ASSERT_EQ(level->getHits().size(), 3u) << "each ball paints once, however long it touches";
    EXPECT_EQ(level->splatCount(), 3u);
    EXPECT_EQ(level->getHits()[0].colour.x, 10.5f);
    EXPECT_EQ(level->getHits()[1].colour.x, 9.5f);
    EXPECT_EQ(level->getHits()[2].colour.x, 8.0f);
}

GL_TEST(Ball, IsGoneTheFrameAfterItStrikesAndAfterTenSecondsOverTheVoid)
{
    for (const bool floor : {true, false})
    {
        // A floor the ball lands on about 63 m ahead, or just enough to stand on at the start.
        auto level = levelOf(floorAt(3.0f, floor ? 100.0f : 3.0f));
        auto player = std::make_unique<Player>();
        frame(*level, player.get()); // the cooldown starts at 0: a throw needs one frame first
        player->throwBall({0, 0, floor ? -1.0f : 1.0f});
        ASSERT_EQ(player->getBalls().size(), 1u);
        int frames = 0;
        while (!player->getBalls().empty() && level->getHits().empty() && frames++ < 2000)
        {
            frame(*level, player.get());
        }
        if (floor)
        {
            ASSERT_EQ(level->getHits().size(), 1u);
            EXPECT_TRUE(player->getBalls().empty())
                << "removed in the update of the frame that hit";
        }
        else
        {
            EXPECT_TRUE(level->getHits().empty());
            EXPECT_NEAR(frames / 60.0f, 10.0f, 0.05f);
        }
    }
}

GL_TEST(Ball, EveryThrowPaintsOneSquareSplatWhereItStrikes)
{
    // Each throw goes from the start along LOOK and must paint, once, the face through POINT
    // facing NORMAL, along which U and V run: at least MIN_AREA of the 3 x 3 square.
    struct Throw
    {
        std::string what;
        Triangles level;
        Vec3 look, point, normal, u, v;
        double minArea = 9.0;
    };
    std::vector<Throw> throws;
    // A wall straight ahead at many distances, thrown at level and a little up and down.
    const Triangles floor = floorAt(3.0f, 50.0f);
    const Vec3 ahead{0, 0, 1}, across{1, 0, 0}, up{0, 1, 0};
    for (float pitch : {-10.0f, 0.0f, 10.0f}) // degrees
    {
        const float a = pitch * math::DEG_TO_RAD;
        for (float distance = 1.5f; distance <= 20.0f; distance += 0.25f)
        {
            const float z = 3.0f - distance;
            throws.push_back(
                {"wall " + std::to_string(distance) + " m ahead, pitch " + std::to_string(pitch),
                 floor + wallAt(z), Vec3{0, std::sin(a), -std::cos(a)}, Vec3{2, 0, z}, ahead,
                 across, up});
        }
    }
    // The front of a block whose side face begins 2 cm beside the ball's path: the ball also
    // touches the side's edge, but paints the front.
    for (float distance = 2.0f; distance <= 20.0f; distance += 3.0f)
    {
        const float z = 3.0f - distance, e = 1.98f, back = z - 10.0f;
        const Triangles block = quad({e, 0, z}, {50, 0, z}, {50, 40, z}, {e, 40, z}) +
                                quad({e, 0, z}, {e, 40, z}, {e, 40, back}, {e, 0, back});
        throws.push_back({"block " + std::to_string(distance) + " m ahead", floor + block,
                          Vec3{0, 0, -1}, Vec3{2, 0, z}, ahead, across, up, 4.0});
    }
    // Every face of a 12 x 8 x 12 room of 1 m tiles around the start, thrown at three times.
    // Near tile edges Bullet's contact normal tilts; the paint must not.
    const Vec3 x{12, 0, 0}, y{0, 8, 0}, z{0, 0, 12};
    const Triangles room = tiles({-4, 3, -3}, z, x) + tiles({-4, 11, -3}, x, z) +
                           tiles({-4, 3, -3}, y, z) + tiles({8, 3, -3}, z, y) +
                           tiles({-4, 3, -3}, x, y) + tiles({-4, 3, 9}, y, x);
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
        PhysicsWorld::destroy();
        const auto level = levelOf(t.level);
        auto player = std::make_unique<Player>();
        frame(*level, player.get()); // stand on the floor; the cooldown runs out
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
            frame(*level, player.get());
        }
        EXPECT_TRUE(player->getBalls().empty());
        ASSERT_EQ(level->getHits().size(), 1u);
        const PaintHit& hit = level->getHits()[0];
        EXPECT_NEAR(math::dot(minus(hit.point, t.point), t.normal), 0.0f, 0.02f) << "on the face";
        EXPECT_NEAR(math::dot(minus(hit.point, expected), t.u), 0.0f, slack);
        EXPECT_NEAR(math::dot(minus(hit.point, expected), t.v), 0.0f, slack);
        EXPECT_NEAR(math::dot(hit.normal, t.normal), 1.0f, 1e-6f);

        // The splat covers the 3 x 3 square around the hit on the struck face, nothing else.
        double area = 0.0;
        for (const DecalPolygon& polygon : level->cutSplat(hit.point, hit.normal))
        {
            area += areaOf(polygon, t.normal);
            for (const DecalVertex& corner : polygon)
            {
                const Vec3 c{corner.x, corner.y, corner.z};
                EXPECT_LE(std::fabs(math::dot(minus(c, hit.point), t.u)), 1.5f + 1e-4f);
                EXPECT_LE(std::fabs(math::dot(minus(c, hit.point), t.v)), 1.5f + 1e-4f);
                EXPECT_LE(std::fabs(math::dot(minus(c, t.point), t.normal)), 0.5f);
            }
        }
        EXPECT_GE(area, t.minArea - 1e-3);
        EXPECT_LE(area, 9.0 + 1e-3);
    }
}
