#include "render/Shader.h"
#include "render/ShaderManager.h"
#include "support/GlContext.h"

#include <GL/glew.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

namespace
{
class ShaderManagerGlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!gl.ok())
        {
            GTEST_SKIP() << "no GL 3.2 context: " << gl.error();
        }
    }
    void TearDown() override { ShaderManager::destroy(); }

    GlContext gl;
};

std::vector<GLuint> useCalls;
PFNGLUSEPROGRAMPROC realUseProgram = nullptr;
void GLAPIENTRY recordUseProgram(GLuint program)
{
    useCalls.push_back(program);
    realUseProgram(program);
}

int countOf(const std::string& text, const std::string& what)
{
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    {
        ++n;
    }
    return n;
}
} // namespace

TEST_F(ShaderManagerGlTest, BuildsEverySharedProgramAndRebuildsAfterDestroy)
{
    testing::internal::CaptureStderr();
    ShaderManager& manager = ShaderManager::instance();
    const std::string first = testing::internal::GetCapturedStderr();
    for (const char* name :
         {"unicolor-hud", "hud", "minimal", "unicolor", "decal", "menu", "level"})
    {
        ASSERT_NE(manager.find(name), nullptr) << name;
        EXPECT_TRUE(manager.find(name)->isLinked()) << name;
        EXPECT_NE(first.find(std::string("[SUCCESS] Shader '") + name + "' ("), std::string::npos);
    }
    EXPECT_EQ(first.find("[ERROR]"), std::string::npos) << first;

    ShaderManager::destroy();
    EXPECT_FALSE(ShaderManager::exists());
    testing::internal::CaptureStderr();
    ShaderManager& again = ShaderManager::instance();
    EXPECT_EQ(countOf(testing::internal::GetCapturedStderr(), "[SUCCESS] Shader"), 7);
    EXPECT_TRUE(again.find("menu")->isLinked());
}

TEST_F(ShaderManagerGlTest, EveryProgramOnDiskCompilesAndLinks)
{
    // The game's own programs too, which only a match loads.
    for (const char* name : {"font", "minimal_nolight", "mbpreprocess", "mbpostprocess"})
    {
        testing::internal::CaptureStderr();
        Shader shader(name);
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(shader.isLinked()) << err;
        EXPECT_NE(err.find(std::string("[SUCCESS] Shader '") + name + "'"), std::string::npos);
    }
}

TEST_F(ShaderManagerGlTest, MissingAndBrokenSourcesReportAndCarryOn)
{
    ShaderManager& manager = ShaderManager::instance();
    testing::internal::CaptureStderr();
    Shader* missing = manager.load("no-such-program");
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("[ERROR] There is a problem with the 'no-such-program' shader program: \n "),
              std::string::npos);
    ASSERT_NE(missing, nullptr);
    EXPECT_FALSE(missing->isLinked());
    EXPECT_EQ(manager.find("no-such-program"), missing); // stays registered

    ScratchDirectory scratch(false);
    std::filesystem::create_directories("data/shader");
    std::ofstream("data/shader/broken.vert")
        << "#version 150\nvoid main() { gl_Position = nonsense; }\n";
    std::ofstream("data/shader/broken.frag")
        << "#version 150\nout vec4 c; void main() { c = vec4(1); }\n";
    testing::internal::CaptureStderr();
    Shader broken("broken");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("problem with the 'broken' shader"),
              std::string::npos);

    // Binding and feeding a failed program is harmless.
    Shader* bound = manager.use("no-such-program");
    EXPECT_EQ(bound, missing);
    bound->setMatrix("view", math::identity());
    bound->setAttribute("vertex", 4, nullptr);
    EXPECT_EQ(manager.use("never-loaded"), nullptr);
    EXPECT_EQ(manager.getCurrent(), nullptr);
}

TEST_F(ShaderManagerGlTest, LoadingANameTwiceKeepsTheSecondAndLeavesTheFirstAlive)
{
    ShaderManager& manager = ShaderManager::instance();
    Shader* first = manager.find("unicolor");
    Shader* second = manager.load("unicolor");
    EXPECT_NE(first, second);
    EXPECT_EQ(manager.find("unicolor"), second);
    EXPECT_EQ(manager.use("unicolor"), second);
    EXPECT_TRUE(glIsProgram(first->getProgram())); // not deleted while something may hold it
}

TEST_F(ShaderManagerGlTest, UseAlwaysUnbindsFirstAndUploadsTheMatrices)
{
    ShaderManager& manager = ShaderManager::instance();
    Mat4 view = math::translate(math::identity(), {1.0f, 2.0f, 3.0f});
    Mat4 perspective = math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f);
    Mat4 ortho = math::orthographic(-512, 512, -384, 384, -1000, 1000);
    manager.setMatrices(view, perspective, ortho);

    realUseProgram = glUseProgram;
    useCalls.clear();
    glUseProgram = recordUseProgram;
    Shader* shader = manager.use("unicolor");
    manager.use("unicolor");
    glUseProgram = realUseProgram;

    const GLuint program = shader->getProgram();
    EXPECT_EQ(useCalls, (std::vector<GLuint>{0, program, 0, program}));

    float uploaded[16];
    glGetUniformfv(program, glGetUniformLocation(program, "view"), uploaded);
    for (int i = 0; i < 16; ++i)
    {
        EXPECT_EQ(uploaded[i], view[i]);
    }
    glGetUniformfv(program, glGetUniformLocation(program, "perspective"), uploaded);
    EXPECT_EQ(uploaded[11], -1.0f); // untransposed: the projective term stays in column 2
    GLint current = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(static_cast<GLuint>(current), program);
    manager.unuse();
    glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(current, 0);
}
