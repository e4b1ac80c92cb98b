#include "physics/PhysicsWorld.h"

#include <btBulletDynamicsCommon.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace
{
class PhysicsWorldTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        body.reset();
        PhysicsWorld::destroy();
        if (listener >= 0)
        {
            close(listener);
        }
    }

    // A falling sphere named "Ball" in a fresh scene.
    void dropBall()
    {
        btDiscreteDynamicsWorld& world = PhysicsWorld::instance().createScene();
        btTransform at;
        at.setIdentity();
        at.setOrigin({0, 10, 0});
        motion = std::make_unique<btDefaultMotionState>(at);
        btVector3 inertia(0, 0, 0);
        shape.calculateLocalInertia(1.0f, inertia);
        body = std::make_unique<btRigidBody>(
            btRigidBody::btRigidBodyConstructionInfo(1.0f, motion.get(), &shape, inertia));
        body->setUserPointer(&tag);
        world.addRigidBody(body.get());
    }

    btSphereShape shape{0.3f};
    PhysicsBody tag{"Ball", nullptr};
    std::unique_ptr<btDefaultMotionState> motion;
    std::unique_ptr<btRigidBody> body;
    int listener = -1;
};
} // namespace

TEST_F(PhysicsWorldTest, AViewerOnPort5425SeesTheBodiesMove)
{
    listener = socket(AF_INET, SOCK_STREAM, 0);
    int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(5425);
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 1) != 0)
    {
        GTEST_SKIP() << "port 5425 is taken";
    }
    testing::internal::CaptureStderr();
    dropBall();
    testing::internal::GetCapturedStderr();
    pollfd waiting{listener, POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, 2000), 1) << "the world never connected";
    const int viewer = accept(listener, nullptr, nullptr);
    ASSERT_GE(viewer, 0);
    for (int i = 0; i < 5; ++i)
    {
        PhysicsWorld::instance().step(1.0f / 60.0f);
    }
    char buffer[2048] = {};
    pollfd readable{viewer, POLLIN, 0};
    ASSERT_EQ(poll(&readable, 1, 2000), 1);
    const ssize_t n = read(viewer, buffer, sizeof(buffer) - 1);
    close(viewer);
    const std::string lines(buffer, n > 0 ? static_cast<size_t>(n) : 0);
    EXPECT_NE(lines.find("Ball (0.00 9."), std::string::npos) << lines;
    EXPECT_NE(lines.find('\n'), std::string::npos);

    // With the viewer gone the game carries on.
    for (int i = 0; i < 5; ++i)
    {
        PhysicsWorld::instance().step(1.0f / 60.0f);
    }
}
