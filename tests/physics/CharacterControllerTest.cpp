// SPDX-License-Identifier: MIT
#include "physics/CharacterController.h"
#include "physics/Ball.h"
#include "physics/PhysicsWorld.h"
#include "scene/Level.h"
#include "support/Fixtures.h"
#include "support/TestLevel.h"

#include <btBulletDynamicsCommon.h>

#include <cmath>
#include <memory>
#include <vector>

namespace
{
const float REST_HEIGHT = 1.975f;  // capsule centre above the floor it stands on
const float GRAVITY_PUSH = -9.81f; // what the game presses the player down with, every frame
const float WALK_SPEED = 5.0f;     // the camera's walking speed, distance per second

const btVector3 EAST(WALK_SPEED, 0, 0);
const btVector3 STILL(0, 0, 0);

// The box LO..HI.
Triangles box(const Vec3& lo, const Vec3& hi)
{
    const Vec3 v[8] = {{lo.x, lo.y, lo.z}, {hi.x, lo.y, lo.z}, {hi.x, hi.y, lo.z},
                       {lo.x, hi.y, lo.z}, {lo.x, lo.y, hi.z}, {hi.x, lo.y, hi.z},
                       {hi.x, hi.y, hi.z}, {lo.x, hi.y, hi.z}};
    const int faces[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 4, 7, 3},
                             {1, 2, 6, 5}, {3, 7, 6, 2}, {0, 1, 5, 4}};
    Triangles out;
    for (const auto& f : faces)
    {
        out = std::move(out) + quad(v[f[0]], v[f[1]], v[f[2]], v[f[3]]);
    }
    return out;
}

// The floor of every course, at y = 0.
const Triangles FLOOR = box({-40, -1, -40}, {40, 0, 40});

// A wedge rising along +x from the floor at FOOT to HEIGHT at ANGLE degrees, then a plateau at
// that height out to x = 40, spanning z in [-10, 10].
Triangles ramp(float foot, float angle, float height)
{
    const float top = foot + height / std::tan(angle * math::DEG_TO_RAD);
    return quad({foot, 0, -10}, {foot, 0, 10}, {top, height, 10}, {top, height, -10}) +
           Triangles{foot, 0, -10, top, height, -10, top, 0, -10} +
           Triangles{foot, 0, 10, top, 0, 10, top, height, 10} +
           box({top, 0, -10}, {40, height, 10});
}

// The player's body on a level of TRIANGLES, its centre starting at AT, walked as the game's
// frame walks it.
class Course
{
public:
    Course(const Triangles& triangles, const btVector3& at)
        : level(levelOf(triangles)), body(*PhysicsWorld::instance().scene(), at)
    {
    }

    // FRAMES game frames: physics first, then the body walks VELOCITY (horizontal, per second)
    // and is pressed down by the game's fixed push. Returns the last move's flags.
    unsigned walk(const btVector3& velocity, int frames, float fps = 60)
    {
        unsigned flags = 0;
        for (int i = 0; i < frames; ++i)
        {
            PhysicsWorld::instance().step(1 / fps);
            flags = body.move(velocity / fps + btVector3(0, GRAVITY_PUSH, 0));
        }
        return flags;
    }
    btVector3 at() const { return body.position(); }

private:
    std::unique_ptr<Level> level;
    CharacterController body;
};
} // namespace

TEST_ON(RegistryTest, CharacterController, RestsOnTheFloorWithoutDrifting)
{
    Course course(FLOOR,
                  btVector3(2, 1.2f, 3)); // sunk into the floor: the first move pushes it out
    EXPECT_TRUE(course.walk(STILL, 1) & CollisionDown);
    EXPECT_NEAR(course.at().y(), REST_HEIGHT, 0.002);
    const btVector3 settled = course.at();
    for (int i = 0; i < 600; ++i)
    {
        ASSERT_TRUE(course.walk(STILL, 1) & CollisionDown) << i;
    }
    EXPECT_LT((course.at() - settled).length(), 1e-4f);
}

TEST_ON(RegistryTest, CharacterController, ClimbsLowStepsAndGentleRampsAtAnyFrameRate)
{
    // A step of HEIGHT, or a ramp 3 high at ANGLE degrees, whose foot is 5 ahead, walked for
    // three seconds at FPS frames a second (10 is the slowest frame the game still moves on).
    const struct
    {
        float height, angle;
        bool climbed;
        float fps = 60;
    } obstacles[] = {{0.3f, 90, true},   {0.5f, 90, true}, {0.7f, 90, false}, {1.0f, 90, false},
                     {3, 30, true},      {3, 40, true},    {3, 40, true, 10}, {3, 40, true, 30},
                     {3, 40, true, 144}, {3, 50, false},   {3, 60, false}};
    for (const auto& o : obstacles)
    {
        SCOPED_TRACE(testing::Message()
                     << o.height << " at " << o.angle << " degrees, " << o.fps << " fps");
        Course course(FLOOR + (o.angle == 90 ? box({5, 0, -30}, {20, o.height, 30})
                                             : ramp(5, o.angle, o.height)),
                      btVector3(0, REST_HEIGHT, 0));
        course.walk(EAST, static_cast<int>(3 * o.fps), o.fps);
        EXPECT_NEAR(course.at().z(), 0, 1e-4);
        if (o.climbed)
        {
            EXPECT_NEAR(course.at().x(), 15, 0.02);
            EXPECT_NEAR(course.at().y(), o.height + REST_HEIGHT, 0.01);
        }
        else // stopped at the foot, not short of it
        {
            EXPECT_TRUE(course.at().x() > 5 - 1.2f && course.at().x() < 5) << course.at().x();
            EXPECT_NEAR(course.at().y(), REST_HEIGHT, 0.05);
        }
    }
}

TEST_ON(RegistryTest, CharacterController, StopsAtWallsAndSlidesAlongThemWithoutJitter)
{
    // Walls facing -x at x = 5 and facing -z at z = 5.
    Course course(FLOOR + box({5, 0, -30}, {6, 4, 6}) + box({-20, 0, 5}, {6, 4, 6}),
                  btVector3(0, REST_HEIGHT, 0));
    EXPECT_TRUE(course.walk(EAST, 120) & CollisionSides);
    EXPECT_NEAR(course.at().x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(course.at().z(), 0, 1e-4);

    // Walking diagonally into it keeps all of the motion along it.
    const float diagonal = WALK_SPEED / std::sqrt(2.0f);
    course.walk(btVector3(diagonal, 0, diagonal), 60);
    EXPECT_NEAR(course.at().x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(course.at().z(), diagonal, 0.01);
    EXPECT_NEAR(course.at().y(), REST_HEIGHT, 0.002);

    // Into the corner with the second wall, not quite diagonally: one wall is always met first.
    const btVector3 into(WALK_SPEED * 0.8f, 0, WALK_SPEED * 0.6f);
    course.walk(into, 120);
    const btVector3 settled = course.at();
    EXPECT_NEAR(settled.x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(settled.z(), 5 - 1.1, 0.003);
    for (int i = 0; i < 300; ++i)
    {
        course.walk(into, 1);
        ASSERT_LT((course.at() - settled).length(), 1e-4f) << "frame " << i;
    }
}

TEST_ON(RegistryTest, CharacterController, StandsOnAWalkableSlopeAndSlidesOffASteepOne)
{
    {
        Course gentle(FLOOR + ramp(-10, 30, 20), btVector3(0, 10, 0));
        gentle.walk(STILL, 2);
        const btVector3 landed = gentle.at();
        EXPECT_NEAR(landed.x(), 0, 1e-4); // straight down, not down the slope
        const float angle = 30 * math::DEG_TO_RAD;
        EXPECT_NEAR(landed.y(), 10 * std::tan(angle) + 1.1f / std::cos(angle) + 0.875f, 0.003);
        gentle.walk(STILL, 600);
        EXPECT_LT((gentle.at() - landed).length(), 1e-3f);
    }
    Course steep(FLOOR + ramp(-3, 60, 10),
                 btVector3(0, 3 * std::tan(60 * math::DEG_TO_RAD) + 4, 0));
    steep.walk(STILL, 30);
    EXPECT_NEAR(steep.at().y(), REST_HEIGHT, 0.005); // all the way down to the floor
    EXPECT_LT(steep.at().x(), -3);
    EXPECT_NEAR(steep.at().z(), 0, 1e-3);
}

TEST_ON(RegistryTest, CharacterController, WalksThroughPaintBalls)
{
    btVector3 ends[2];
    for (int balls = 0; balls < 2; ++balls)
    {
        Course course(FLOOR, btVector3(0, REST_HEIGHT, 0));
        // Balls at rest (a throw along -0.25 y has no push): thrown from inside the capsule, in
        // the way at chest height and lying on the floor ahead. A ball starts 1.5 above its start.
        std::vector<std::unique_ptr<Ball>> inTheWay;
        for (const Vec3& at : {Vec3{0, REST_HEIGHT, 0}, Vec3{2, REST_HEIGHT, 0}, Vec3{4, 0.3f, 0}})
        {
            if (balls)
            {
                inTheWay.push_back(std::make_unique<Ball>(Vec3{at.x, at.y - 1.5f, at.z},
                                                          Vec3{0, -0.25f, 0}, Vec4{}));
            }
        }
        course.walk(EAST, 60);
        ends[balls] = course.at();
    }
    EXPECT_NEAR(ends[0].x(), 5, 1e-3);
    EXPECT_EQ(ends[1], ends[0]);
}
