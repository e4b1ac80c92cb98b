#include "app/Settings.h"
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

    // One frame as the game runs it: physics first, then the player.
    void frame(float dt)
    {
        PhysicsWorld::instance().step(dt);
        if (player)
        {
            player->update(dt, 0, 0, 0, 0);
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

TEST_F(BallGlTest, FastBallsNeverPassThroughAThinWallAndPaintWhereTheyStrike)
{
    // One triangle facing +z at z = -12; balls fly at it head-on from 24 different spots.
    level = levelOf({-60, -60, -12, 60, -60, -12, 0, 60, -12});
    std::vector<std::unique_ptr<Ball>> balls;
    for (int i = 0; i < 24; ++i)
    {
        const float x = static_cast<float>(i % 6) * 1.7f - 4.0f;
        const float y = static_cast<float>(i / 6) * 1.3f - 2.0f;
        balls.push_back(
            std::make_unique<Ball>(Vec3{x, y, 0.0f}, Vec3{0.0f, -0.25f, -1.0f}, Vec4{0, 1, 0, 1}));
    }
    for (int frame = 0; frame < 120; ++frame)
    {
        PhysicsWorld::instance().step(1.0f / 60.0f);
        for (auto& ball : balls)
        {
            ASSERT_GT(ball->position().z, -12.0f) << "a ball went through the wall";
        }
    }
    ASSERT_EQ(level->getHits().size(), balls.size()); // each ball paints exactly once
    for (const PaintHit& hit : level->getHits())
    {
        EXPECT_NEAR(hit.point.z, -12.0f, 0.02f);
        EXPECT_NEAR(hit.normal.z, 1.0f, 1e-3f) << "the normal must point out of the wall";
        EXPECT_EQ(hit.colour.y, 1.0f);
    }
    for (auto& ball : balls)
    {
        EXPECT_LE(ball->life, 0.0f);
    }
}

TEST_F(BallGlTest, ABallThatTouchesTheLevelIsGoneTheNextFrameAndOthersExpireAfterTenSeconds)
{
    level = levelOf(floorAt(3.0f, 100.0f)); // the ball lands about 63 m ahead
    player = std::make_unique<Player>();
    frame(1.0f / 60.0f); // the cooldown starts at 0: a throw needs one frame first
    player->throwBall();
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
    player->camera().rotation =
        math::toMat3(math::axisAngle({0, 1, 0}, 180.0f / (math::DEG_TO_RAD)));
    player->throwBall();
    int frames = 0;
    while (!player->getBalls().empty() && frames < 2000)
    {
        frame(1.0f / 60.0f);
        ++frames;
    }
    EXPECT_TRUE(level->getHits().empty());
    EXPECT_NEAR(frames / 60.0f, 10.0f, 0.05f);
}
