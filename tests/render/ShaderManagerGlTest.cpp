// SPDX-License-Identifier: MIT
#include "core/Math.h"
#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "support/Fixtures.h"

#include <GL/glew.h>

#include <filesystem>
#include <fstream>
#include <string>

// A program that does not link must never be bound or asked for locations: GL refuses both with
// an error (the fixture fails on any GL error), and whatever it would draw is left out instead.
GL_TEST(ShaderManager, AProgramThatDoesNotLinkIsNeverBound)
{
    const std::string vert = readFile(sourceFile("data/shader/unicolor.vert"));
    const std::string frag = readFile(sourceFile("data/shader/unicolor.frag"));
    ASSERT_FALSE(vert.empty());
    ScratchDirectory scratch(false);
    std::filesystem::create_directories("data/shader");
    auto write = [](const std::string& name, const std::string& text)
    { std::ofstream("data/shader/" + name, std::ios::binary) << text; };
    write("good.vert", vert);
    write("good.frag", frag);
    write("garbage.vert", "this is not GLSL\n");
    write("garbage.frag", frag);
    write("half.vert", vert);
    write("half.frag", frag.substr(0, frag.size() / 2));
    write("lonely.vert", vert); // and no lonely.frag

    ShaderManager& shaders = ShaderManager::instance();
    testing::internal::CaptureStderr();
    Shader* good = shaders.load("good");
    for (const char* name : {"garbage", "half", "lonely"})
    {
        shaders.load(name);
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("[SUCCESS] Shader 'good'"), std::string::npos) << said;

    const float corners[8] = {};
    for (const std::string name : {"garbage", "half", "lonely"})
    {
        SCOPED_TRACE(name);
        EXPECT_NE(said.find("[ERROR] There is a problem with the '" + name + "' shader program"),
                  std::string::npos);
        ASSERT_TRUE(good && shaders.use("good"));
        EXPECT_EQ(shaders.use(name), nullptr);
        EXPECT_EQ(shaders.getCurrent(), nullptr);
        GLint bound = -1;
        glGetIntegerv(GL_CURRENT_PROGRAM, &bound);
        EXPECT_EQ(bound, 0) << "the good program stayed bound";

        Shader* broken = shaders.find(name);
        ASSERT_NE(broken, nullptr);
        EXPECT_FALSE(broken->isLinked());
        broken->setInt("color", 1);
        broken->setMatrix("view", math::identity());
        broken->setAttribute("in_vertex", 2, corners);
        broken->disableAttribute("in_vertex");
    }
    EXPECT_TRUE(good->isLinked());
    EXPECT_EQ(shaders.use("good"), good);
    GLint bound = -1;
    glGetIntegerv(GL_CURRENT_PROGRAM, &bound);
    EXPECT_EQ(static_cast<unsigned>(bound), good->getProgram());
}
