// SPDX-License-Identifier: MIT
#include "physics/PhysicsWorld.h"
#include "physics/Ball.h"
#include "support/Fixtures.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

TEST_ON(RegistryTest, PhysicsWorld, AViewerOnPort5425SeesTheBodiesMove)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(5425);
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 1) != 0)
    {
        close(listener);
        GTEST_SKIP() << "port 5425 is taken";
    }
    // The world connects when it is made; a ball dropped from 10 m, not thrown.
    PhysicsWorld::instance().createScene();
    const Ball ball({0, 8.5f, 0}, {0, -0.25f, 0}, {1, 0, 0, 1});
    // Other tests running beside this one make worlds that connect too: every viewer that comes
    // is heard, and one of them is this world.
    std::vector<int> viewers;
    pollfd waiting{listener, POLLIN, 0};
    while (viewers.size() < 8 && poll(&waiting, 1, viewers.empty() ? 2000 : 1000) == 1)
    {
        const int viewer = accept(listener, nullptr, nullptr);
        if (viewer >= 0)
        {
            viewers.push_back(viewer);
        }
    }
    close(listener);
    ASSERT_FALSE(viewers.empty()) << "the world never connected";
    for (int i = 0; i < 5; ++i)
    {
        PhysicsWorld::instance().step(1.0f / 60.0f);
    }
    std::string lines;
    for (int viewer : viewers)
    {
        char buffer[2048] = {};
        pollfd readable{viewer, POLLIN, 0};
        const ssize_t n =
            poll(&readable, 1, 2000) == 1 ? read(viewer, buffer, sizeof(buffer) - 1) : 0;
        close(viewer);
        lines.append(buffer, n > 0 ? static_cast<size_t>(n) : 0);
    }
    EXPECT_NE(lines.find("Ball (0.00 9."), std::string::npos) << lines;
    EXPECT_NE(lines.find('\n'), std::string::npos);

    // With the viewer gone the game carries on.
    for (int i = 0; i < 5; ++i)
    {
        PhysicsWorld::instance().step(1.0f / 60.0f);
    }
}
