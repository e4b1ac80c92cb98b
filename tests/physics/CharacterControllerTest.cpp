#include "physics/CharacterController.h"
#include "physics/TestLevels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace
{
const float REST_HEIGHT = 1.975f;  // capsule centre above the floor it stands on
const float GRAVITY_PUSH = -9.81f; // what the game presses the player down with, every frame
const float WALK_SPEED = 5.0f;     // the camera's walking speed, distance per second
const float PI = 3.14159265f;

const btVector3 EAST(WALK_SPEED, 0, 0);
const btVector3 STILL(0, 0, 0);

// The first test shows the whole use: a level, a player dropped above it, one move per frame.
TEST(CharacterController, RestsOnTheFloorWithoutDrifting)
{
    TestLevel level;
    level.addFloor();
    level.build();
    CharacterController player(level.physics(), btVector3(2, 5, 3));

    const unsigned flags = level.frame(player, STILL, 1 / 60.0f);
    EXPECT_TRUE(flags & CollisionDown);
    EXPECT_NEAR(player.position().y(), REST_HEIGHT, 0.002);

    const btVector3 settled = player.position();
    float worst = 0;
    for (int i = 0; i < 600; ++i)
    {
        EXPECT_TRUE(level.frame(player, STILL, 1 / 60.0f) & CollisionDown);
        worst = std::max(worst, (player.position() - settled).length());
    }
    EXPECT_LT(worst, 1e-4f);
}

TEST(CharacterController, WalkDistanceDoesNotDependOnFrameRate)
{
    // Flat ground, then a 40 degree ramp up to a plateau: the walk ends up on top. 10 fps is the
    // slowest frame the game still moves on.
    std::vector<btVector3> ends;
    for (float fps : {60.0f, 10.0f, 30.0f, 144.0f})
    {
        TestLevel level;
        level.addFloor();
        level.addRamp(8, 40, 2);
        level.build();
        CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));
        level.walk(player, EAST, static_cast<int>(3 * fps), fps);
        ends.push_back(player.position());
    }
    EXPECT_NEAR(ends[0].x(), 15, 0.01);
    EXPECT_NEAR(ends[0].y(), 2 + REST_HEIGHT, 0.01);
    for (const btVector3& end : ends)
    {
        EXPECT_NEAR(end.x(), ends[0].x(), 0.02);
        EXPECT_NEAR(end.y(), ends[0].y(), 0.01);
        EXPECT_NEAR(end.z(), 0, 1e-4);
    }
}

TEST(CharacterController, ClimbsStepsUpToTheStepOffset)
{
    for (auto [height, climbed] :
         {std::pair{0.3f, true}, {0.5f, true}, {0.7f, false}, {1.0f, false}})
    {
        SCOPED_TRACE(height);
        TestLevel level;
        level.addFloor();
        level.addBox(btVector3(5, 0, -30), btVector3(20, height, 30));
        level.build();
        CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));
        level.walk(player, EAST, 180);

        const btVector3 end = player.position();
        EXPECT_NEAR(end.y(), (climbed ? height : 0) + REST_HEIGHT, 0.005);
        if (climbed)
            EXPECT_NEAR(end.x(), 15, 0.01);
        else // stopped by the ledge, not short of it
            EXPECT_TRUE(end.x() > 5 - 1.2f && end.x() < 5 - 0.5f) << end.x();
    }
}

TEST(CharacterController, WalksUpAndDownStairs)
{
    // Treads narrower than the capsule: it stands on two lips at once.
    for (auto [rise, tread] : {std::pair{0.25f, 0.5f}, {0.5f, 0.6f}})
    {
        SCOPED_TRACE(rise);
        TestLevel level;
        level.addFloor();
        for (int i = 0; i < 8; ++i)
            level.addBox(btVector3(5 + i * tread, 0, -10), btVector3(20, rise * (i + 1), 10));
        level.build();
        CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));

        level.walk(player, EAST, 180);
        EXPECT_NEAR(player.position().x(), 15, 0.01);
        EXPECT_NEAR(player.position().y(), 8 * rise + REST_HEIGHT, 0.005);
        level.walk(player, -EAST, 180);
        EXPECT_NEAR(player.position().x(), 0, 0.01);
        EXPECT_NEAR(player.position().y(), REST_HEIGHT, 0.005);
    }
}

TEST(CharacterController, WalksUnderALowCeiling)
{
    TestLevel level;
    level.addFloor();
    level.addBox(btVector3(5, 4.2f, -10), btVector3(10, 5, 10)); // 0.25 above the capsule's top
    level.build();
    CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));

    level.walk(player, EAST, 120);
    EXPECT_NEAR(player.position().x(), 10, 0.01);
    EXPECT_NEAR(player.position().y(), REST_HEIGHT, 0.002);
}

TEST(CharacterController, ClimbsRampsUpToTheSlopeLimit)
{
    for (auto [angle, climbed] :
         {std::pair{30.0f, true}, {40.0f, true}, {50.0f, false}, {60.0f, false}})
    {
        SCOPED_TRACE(angle);
        TestLevel level;
        level.addFloor();
        level.addRamp(5, angle, 3);
        level.build();
        CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));
        level.walk(player, EAST, 240);

        const btVector3 end = player.position();
        EXPECT_NEAR(end.y(), (climbed ? 3 : 0) + REST_HEIGHT, climbed ? 0.005 : 0.05);
        if (climbed)
            EXPECT_NEAR(end.x(), 20, 0.01);
        else
            EXPECT_LT(end.x(), 5);
    }
}

TEST(CharacterController, StopsAtWallsAndSlidesAlongThem)
{
    TestLevel level;
    level.addFloor();
    level.addBox(btVector3(5, 0, -30), btVector3(6, 4, 30));
    level.build();

    CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));
    EXPECT_TRUE(level.walk(player, EAST, 120) & CollisionSides);
    EXPECT_NEAR(player.position().x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(player.position().z(), 0, 1e-4);

    // Walking diagonally into it keeps all of the motion along it.
    const float diagonal = WALK_SPEED / std::sqrt(2.0f);
    level.walk(player, btVector3(diagonal, 0, diagonal), 120);
    EXPECT_NEAR(player.position().x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(player.position().z(), diagonal * 2, 0.01);
    EXPECT_NEAR(player.position().y(), REST_HEIGHT, 0.002);
}

TEST(CharacterController, SettlesInACornerWithoutJitter)
{
    TestLevel level;
    level.addFloor();
    level.addBox(btVector3(5, 0, -20), btVector3(6, 4, 6)); // wall facing -x
    level.addBox(btVector3(-20, 0, 5), btVector3(6, 4, 6)); // wall facing -z
    level.build();
    CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 1));

    // Not quite diagonal, so one wall is always met first.
    const btVector3 into(WALK_SPEED * 0.8f, 0, WALK_SPEED * 0.6f);
    level.walk(player, into, 120);
    const btVector3 settled = player.position();
    EXPECT_NEAR(settled.x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(settled.z(), 5 - 1.1, 0.003);
    for (int i = 0; i < 300; ++i)
    {
        level.frame(player, into, 1 / 60.0f);
        ASSERT_LT((player.position() - settled).length(), 1e-4f) << "frame " << i;
    }
}

TEST(CharacterController, StandsOnAWalkableSlopeAndSlidesOffASteepOne)
{
    {
        SCOPED_TRACE("30 degrees");
        TestLevel level;
        level.addFloor();
        level.addRamp(-10, 30, 20);
        level.build();
        CharacterController player(level.physics(), btVector3(0, 10, 0));
        level.walk(player, STILL, 2);
        const btVector3 landed = player.position();
        EXPECT_NEAR(landed.x(), 0, 1e-4); // straight down, not down the slope
        EXPECT_NEAR(landed.y(),
                    10 * std::tan(30 * PI / 180) + 1.1f / std::cos(30 * PI / 180) + 0.875f, 0.003);
        level.walk(player, STILL, 600);
        EXPECT_LT((player.position() - landed).length(), 1e-3f);
    }
    {
        SCOPED_TRACE("60 degrees");
        TestLevel level;
        level.addFloor();
        level.addRamp(-3, 60, 10); // rises to the plateau at x = 2.77
        level.build();
        const float surface = 3 * std::tan(60 * PI / 180);
        CharacterController player(level.physics(), btVector3(0, surface + 4, 0));
        level.walk(player, STILL, 30);
        EXPECT_NEAR(player.position().y(), REST_HEIGHT, 0.005); // all the way down to the floor
        EXPECT_LT(player.position().x(), -3);
        EXPECT_NEAR(player.position().z(), 0, 1e-3);
    }
}

TEST(CharacterController, SlidesDownASteepGully)
{
    // Two 61 degree faces meeting in a crease that runs down at 45 degrees to a floor: what a
    // steep ramp makes with a wall at an angle. Sliding down either face runs into the other.
    TestLevel level;
    level.addBox(btVector3(-40, -1, -40), btVector3(0, 0, 40));
    level.addQuad({0, 0, 0}, {20, 20, 0}, {20, 32, -8}, {0, 12, -8});
    level.addQuad({0, 0, 0}, {0, 12, 8}, {20, 32, 8}, {20, 20, 0});
    level.build();
    CharacterController player(level.physics(), btVector3(10, 16, 0.3f));

    level.walk(player, STILL, 10);
    EXPECT_NEAR(player.position().y(), REST_HEIGHT, 0.005);
    EXPECT_LT(player.position().x(), 0);
}

TEST(CharacterController, FallsOffAnEdge)
{
    TestLevel level;
    level.addBox(btVector3(-10, -1, -10), btVector3(3, 0, 10)); // a platform over nothing
    level.build();
    CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));

    EXPECT_TRUE(level.walk(player, EAST, 30) & CollisionDown); // 2.5 along, still on it
    EXPECT_NEAR(player.position().y(), REST_HEIGHT, 0.002);
    level.walk(player, EAST, 20); // past the edge by more than the radius
    EXPECT_FALSE(level.walk(player, EAST, 3) & CollisionDown);
    EXPECT_LT(player.position().y(), -20);
}

TEST(CharacterController, NeverPassesThroughAThinWall)
{
    TestLevel level;
    level.addFloor();
    level.addQuad({5, 0, -10}, {5, 0, 10}, {5, 5, 10}, {5, 5, -10}); // no thickness at all
    level.build();
    for (float speed : {5.0f, 60.0f, 600.0f})
    {
        CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));
        level.walk(player, btVector3(speed, 0, 0), 60);
        EXPECT_NEAR(player.position().x(), 5 - 1.1, 0.003) << speed;
    }
}

// Deepest overlap of a capsule at CENTRE with the level, as a negative distance.
float deepestOverlap(btCollisionWorld& world, const btVector3& centre, float radius)
{
    struct Deepest : btCollisionWorld::ContactResultCallback
    {
        float depth = 0;
        btScalar addSingleResult(btManifoldPoint& point, const btCollisionObjectWrapper*, int, int,
                                 const btCollisionObjectWrapper*, int, int) override
        {
            depth = std::min(depth, point.getDistance());
            return 0;
        }
    };
    btCapsuleShape shape(radius, 1.75f);
    btCollisionObject probe;
    probe.setCollisionShape(&shape);
    probe.setWorldTransform(btTransform(btQuaternion::getIdentity(), centre));
    Deepest deepest;
    world.contactTest(&probe, deepest);
    return deepest.depth;
}

TEST(CharacterController, KeepsItsSkinOnARandomWalk)
{
    // A walled yard with most of what a level has: stairs, a ledge, a pillar, ramps walkable and
    // not, a thin wall. Walk it in random directions at random frame rates.
    TestLevel level;
    level.addFloor(30);
    for (float side : {-30.0f, 29.0f})
    {
        level.addBox(btVector3(-30, 0, side), btVector3(30, 6, side + 1));
        level.addBox(btVector3(side, 0, -30), btVector3(side + 1, 6, 30));
    }
    for (int i = 0; i < 6; ++i)
        level.addBox(btVector3(-20 + i * 0.7f, 0, -20), btVector3(-10, 0.3f * (i + 1), -10));
    level.addBox(btVector3(-5, 0, 10), btVector3(-4, 0.7f, 20));
    level.addBox(btVector3(5, 0, 5), btVector3(7, 6, 7));
    level.addQuad({10, 0, 10}, {20, 0, 10}, {20, 8, 14}, {10, 8, 14});   // 63 degrees
    level.addQuad({-10, 0, 0}, {-10, 0, 8}, {-2, 5, 8}, {-2, 5, 0});     // 32 degrees
    level.addQuad({10, 0, -20}, {10, 0, -5}, {10, 5, -5}, {10, 5, -20}); // no thickness
    level.build();
    CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));

    std::mt19937 random(7);
    btVector3 velocity;
    for (int frame = 0; frame < 5000; ++frame)
    {
        if (frame % 40 == 0)
        {
            const float angle = static_cast<float>(random() % 3600) * PI / 1800;
            velocity = btVector3(std::cos(angle), 0, std::sin(angle)) * WALK_SPEED;
        }
        level.frame(player, velocity, 1.0f / static_cast<float>(20 + random() % 125));

        // Inside the yard, never below the floor (also false for NaN).
        const btVector3 at = player.position();
        ASSERT_TRUE(std::fabs(at.x()) < 29 && std::fabs(at.z()) < 29) << frame;
        ASSERT_GE(at.y(), REST_HEIGHT - 0.001f) << frame;
        // A few thousandths of the skin may go at glancing touches; the capsule itself never.
        ASSERT_GT(deepestOverlap(level.physics(), at, 1.1f), -0.005f) << frame;
    }
}

TEST(CharacterController, PushesOutOfGeometryItStartsIn)
{
    TestLevel level;
    level.addFloor();
    level.addBox(btVector3(5, 0, -10), btVector3(6, 4, 10));
    level.build();

    CharacterController sunk(level.physics(), btVector3(0, 1.2f, 0));
    level.frame(sunk, STILL, 1 / 60.0f);
    EXPECT_NEAR(sunk.position().y(), REST_HEIGHT, 0.003);

    CharacterController inWall(level.physics(), btVector3(4.5f, REST_HEIGHT, 0));
    level.frame(inWall, STILL, 1 / 60.0f);
    EXPECT_NEAR(inWall.position().x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(inWall.position().y(), REST_HEIGHT, 0.003);
}

TEST(CharacterController, IgnoresMovesTooSmallOrBroken)
{
    TestLevel level;
    level.addFloor();
    level.build();
    const btVector3 start(0, 3, 0); // in the air, so any move that ran would fall
    CharacterController player(level.physics(), start);

    EXPECT_EQ(player.move(btVector3(0.0005f, -0.0005f, 0.0005f)), 0u);
    EXPECT_EQ(player.move(btVector3(NAN, GRAVITY_PUSH, 0)), 0u);
    EXPECT_EQ(player.move(btVector3(INFINITY, 0, 0)), 0u);
    EXPECT_EQ(player.position(), start);

    player.move(btVector3(0.0011f, 0, 0));
    EXPECT_NE(player.position(), start);
}

TEST(CharacterController, IgnoresPaintBalls)
{
    auto walkPath = [](bool withBalls)
    {
        TestLevel level;
        level.addFloor();
        level.build();
        CharacterController player(level.physics(), btVector3(0, REST_HEIGHT, 0));
        if (withBalls)
        {
            level.addBall(player.position());            // thrown from inside the capsule
            level.addBall(btVector3(2, REST_HEIGHT, 0)); // in the way, at chest height
            level.addBall(btVector3(4, 0.3f, 0));        // lying on the floor ahead
        }
        level.walk(player, EAST, 60);
        return player.position();
    };
    const btVector3 clear = walkPath(false);
    EXPECT_NEAR(clear.x(), 5, 1e-3);
    EXPECT_EQ(walkPath(true), clear);
}
} // namespace
