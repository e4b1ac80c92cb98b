#include "physics/CharacterController.h"

#include <btBulletDynamicsCommon.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

namespace
{
const float REST_HEIGHT = 1.975f;  // capsule centre above the floor it stands on
const float GRAVITY_PUSH = -9.81f; // what the game presses the player down with, every frame
const float WALK_SPEED = 5.0f;     // the camera's walking speed, distance per second
const float PI = 3.14159265f;

const btVector3 EAST(WALK_SPEED, 0, 0);
const btVector3 STILL(0, 0, 0);

// A Bullet world like the game's: a static triangle-mesh level of boxes and ramps (with a floor
// at y = 0 unless told otherwise), paint balls, and the player, stepped as the game's frame does.
class TestLevel
{
public:
    explicit TestLevel(bool floor = true)
    {
        world.setGravity(btVector3(0, -9.8f, 0));
        if (floor)
            addBox(btVector3(-40, -1, -40), btVector3(40, 0, 40));
    }
    ~TestLevel()
    {
        for (auto& body : bodies)
            world.removeRigidBody(body.get());
    }

    void addBox(const btVector3& lo, const btVector3& hi)
    {
        const btVector3 v[8] = {{lo.x(), lo.y(), lo.z()}, {hi.x(), lo.y(), lo.z()},
                                {hi.x(), hi.y(), lo.z()}, {lo.x(), hi.y(), lo.z()},
                                {lo.x(), lo.y(), hi.z()}, {hi.x(), lo.y(), hi.z()},
                                {hi.x(), hi.y(), hi.z()}, {lo.x(), hi.y(), hi.z()}};
        const int faces[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 4, 7, 3},
                                 {1, 2, 6, 5}, {3, 7, 6, 2}, {0, 1, 5, 4}};
        for (const auto& f : faces)
            addQuad(v[f[0]], v[f[1]], v[f[2]], v[f[3]]);
    }
    // A wedge rising along +x from the floor at FOOT to HEIGHT at ANGLE degrees, then a plateau
    // at that height out to x = 40, spanning z in [-10, 10].
    void addRamp(float foot, float angle, float height)
    {
        const float top = foot + height / std::tan(angle * PI / 180);
        addQuad({foot, 0, -10}, {foot, 0, 10}, {top, height, 10}, {top, height, -10});
        mesh.addTriangle({foot, 0, -10}, {top, height, -10}, {top, 0, -10});
        mesh.addTriangle({foot, 0, 10}, {top, 0, 10}, {top, height, 10});
        addBox(btVector3(top, 0, -10), btVector3(40, height, 10));
    }
    // Makes everything added so far the level and puts the player's centre at AT.
    CharacterController& start(const btVector3& at)
    {
        shape = std::make_unique<btBvhTriangleMeshShape>(&mesh, true);
        addBody(0, shape.get(), btVector3(0, 0, 0));
        player = std::make_unique<CharacterController>(world, at);
        return *player;
    }
    // A paint ball, as the game throws them: a small dynamic sphere.
    void addBall(const btVector3& at) { addBody(0.25f, &ballShape, at); }

    // FRAMES game frames: physics first, then the player walks VELOCITY (horizontal, per second)
    // and is pressed down by the game's fixed push. Returns the last move's flags.
    unsigned walk(const btVector3& velocity, int frames, float fps = 60)
    {
        unsigned flags = 0;
        for (int i = 0; i < frames; ++i)
        {
            world.stepSimulation(1 / fps, 8, 1.0f / 60);
            flags = player->move(velocity / fps + btVector3(0, GRAVITY_PUSH, 0));
        }
        return flags;
    }
    btVector3 at() const { return player->position(); }

private:
    void addQuad(const btVector3& a, const btVector3& b, const btVector3& c, const btVector3& d)
    {
        mesh.addTriangle(a, b, c);
        mesh.addTriangle(a, c, d);
    }
    void addBody(float mass, btCollisionShape* bodyShape, const btVector3& at)
    {
        btVector3 inertia(0, 0, 0);
        if (mass > 0)
            bodyShape->calculateLocalInertia(mass, inertia);
        btRigidBody::btRigidBodyConstructionInfo info(mass, nullptr, bodyShape, inertia);
        info.m_startWorldTransform.setOrigin(at);
        bodies.push_back(std::make_unique<btRigidBody>(info));
        world.addRigidBody(bodies.back().get());
    }

    btDefaultCollisionConfiguration configuration;
    btCollisionDispatcher dispatcher{&configuration};
    btDbvtBroadphase broadphase;
    btSequentialImpulseConstraintSolver solver;
    btDiscreteDynamicsWorld world{&dispatcher, &broadphase, &solver, &configuration};
    btTriangleMesh mesh;
    std::unique_ptr<btBvhTriangleMeshShape> shape;
    btSphereShape ballShape{0.3f};
    std::vector<std::unique_ptr<btRigidBody>> bodies;
    std::unique_ptr<CharacterController> player;
};

TEST(CharacterController, RestsOnTheFloorWithoutDrifting)
{
    TestLevel level;
    level.start(btVector3(2, 1.2f, 3)); // sunk into the floor: the first move pushes it out
    EXPECT_TRUE(level.walk(STILL, 1) & CollisionDown);
    EXPECT_NEAR(level.at().y(), REST_HEIGHT, 0.002);
    const btVector3 settled = level.at();
    for (int i = 0; i < 600; ++i)
        ASSERT_TRUE(level.walk(STILL, 1) & CollisionDown) << i;
    EXPECT_LT((level.at() - settled).length(), 1e-4f);
}

TEST(CharacterController, WalkDistanceDoesNotDependOnFrameRate)
{
    // Flat ground, then a 40 degree ramp up to a plateau: the walk ends up on top. 10 fps is the
    // slowest frame the game still moves on.
    for (float fps : {60.0f, 10.0f, 30.0f, 144.0f})
    {
        TestLevel level;
        level.addRamp(8, 40, 2);
        level.start(btVector3(0, REST_HEIGHT, 0));
        level.walk(EAST, static_cast<int>(3 * fps), fps);
        EXPECT_NEAR(level.at().x(), 15, 0.02) << fps;
        EXPECT_NEAR(level.at().y(), 2 + REST_HEIGHT, 0.01) << fps;
        EXPECT_NEAR(level.at().z(), 0, 1e-4) << fps;
    }
}

TEST(CharacterController, ClimbsLowStepsAndGentleRampsOnly)
{
    // A step of HEIGHT, or a ramp 3 high at ANGLE degrees, whose foot is 5 ahead.
    const struct
    {
        float height, angle;
        bool climbed;
    } obstacles[] = {{0.3f, 90, true}, {0.5f, 90, true}, {0.7f, 90, false}, {1.0f, 90, false},
                     {3, 30, true},    {3, 40, true},    {3, 50, false},    {3, 60, false}};
    for (const auto& o : obstacles)
    {
        SCOPED_TRACE(testing::Message() << o.height << " at " << o.angle << " degrees");
        TestLevel level;
        if (o.angle == 90)
            level.addBox(btVector3(5, 0, -30), btVector3(20, o.height, 30));
        else
            level.addRamp(5, o.angle, o.height);
        level.start(btVector3(0, REST_HEIGHT, 0));
        level.walk(EAST, 180);
        if (o.climbed)
        {
            EXPECT_NEAR(level.at().x(), 15, 0.01);
            EXPECT_NEAR(level.at().y(), o.height + REST_HEIGHT, 0.005);
        }
        else // stopped at the foot, not short of it
        {
            EXPECT_TRUE(level.at().x() > 5 - 1.2f && level.at().x() < 5) << level.at().x();
            EXPECT_NEAR(level.at().y(), REST_HEIGHT, 0.05);
        }
    }
}

TEST(CharacterController, StopsAtWallsAndSlidesAlongThemWithoutJitter)
{
    TestLevel level;
    level.addBox(btVector3(5, 0, -30), btVector3(6, 4, 6)); // wall facing -x
    level.addBox(btVector3(-20, 0, 5), btVector3(6, 4, 6)); // wall facing -z
    level.start(btVector3(0, REST_HEIGHT, 0));
    EXPECT_TRUE(level.walk(EAST, 120) & CollisionSides);
    EXPECT_NEAR(level.at().x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(level.at().z(), 0, 1e-4);

    // Walking diagonally into it keeps all of the motion along it.
    const float diagonal = WALK_SPEED / std::sqrt(2.0f);
    level.walk(btVector3(diagonal, 0, diagonal), 60);
    EXPECT_NEAR(level.at().x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(level.at().z(), diagonal, 0.01);
    EXPECT_NEAR(level.at().y(), REST_HEIGHT, 0.002);

    // Into the corner with the second wall, not quite diagonally: one wall is always met first.
    const btVector3 into(WALK_SPEED * 0.8f, 0, WALK_SPEED * 0.6f);
    level.walk(into, 120);
    const btVector3 settled = level.at();
    EXPECT_NEAR(settled.x(), 5 - 1.1, 0.003);
    EXPECT_NEAR(settled.z(), 5 - 1.1, 0.003);
    for (int i = 0; i < 300; ++i)
    {
        level.walk(into, 1);
        ASSERT_LT((level.at() - settled).length(), 1e-4f) << "frame " << i;
    }
}

TEST(CharacterController, StandsOnAWalkableSlopeAndSlidesOffASteepOne)
{
    TestLevel gentle;
    gentle.addRamp(-10, 30, 20);
    gentle.start(btVector3(0, 10, 0));
    gentle.walk(STILL, 2);
    const btVector3 landed = gentle.at();
    EXPECT_NEAR(landed.x(), 0, 1e-4); // straight down, not down the slope
    EXPECT_NEAR(landed.y(), 10 * std::tan(30 * PI / 180) + 1.1f / std::cos(30 * PI / 180) + 0.875f,
                0.003);
    gentle.walk(STILL, 600);
    EXPECT_LT((gentle.at() - landed).length(), 1e-3f);

    TestLevel steep;
    steep.addRamp(-3, 60, 10); // rises to the plateau at x = 2.77
    steep.start(btVector3(0, 3 * std::tan(60 * PI / 180) + 4, 0));
    steep.walk(STILL, 30);
    EXPECT_NEAR(steep.at().y(), REST_HEIGHT, 0.005); // all the way down to the floor
    EXPECT_LT(steep.at().x(), -3);
    EXPECT_NEAR(steep.at().z(), 0, 1e-3);
}

TEST(CharacterController, FallsOffAnEdge)
{
    TestLevel level(false);
    level.addBox(btVector3(-10, -1, -10), btVector3(3, 0, 10)); // a platform over nothing
    level.start(btVector3(0, REST_HEIGHT, 0));
    EXPECT_TRUE(level.walk(EAST, 30) & CollisionDown); // 2.5 along, still on it
    EXPECT_NEAR(level.at().y(), REST_HEIGHT, 0.002);
    level.walk(EAST, 20); // past the edge by more than the radius
    EXPECT_FALSE(level.walk(EAST, 3) & CollisionDown);
    EXPECT_LT(level.at().y(), -20);
}

TEST(CharacterController, IgnoresPaintBalls)
{
    btVector3 ends[2];
    for (int balls = 0; balls < 2; ++balls)
    {
        TestLevel level;
        level.start(btVector3(0, REST_HEIGHT, 0));
        if (balls)
        {
            level.addBall(level.at());                   // thrown from inside the capsule
            level.addBall(btVector3(2, REST_HEIGHT, 0)); // in the way, at chest height
            level.addBall(btVector3(4, 0.3f, 0));        // lying on the floor ahead
        }
        level.walk(EAST, 60);
        ends[balls] = level.at();
    }
    EXPECT_NEAR(ends[0].x(), 5, 1e-3);
    EXPECT_EQ(ends[1], ends[0]);
}
} // namespace
