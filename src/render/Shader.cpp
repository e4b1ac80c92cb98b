// SPDX-License-Identifier: MIT
#include "render/Shader.h"

#include "core/DataPath.h"
#include "core/Math.h"

#include <GL/glew.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace
{
// A missing file gives an empty source: compiling and linking it fails, and that failure is
// what gets reported.
std::string readText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

GLuint compileStage(GLenum stage, const std::string& path)
{
    const std::string text = readText(path);
    const char* source = text.c_str();
    const GLuint id = glCreateShader(stage);
    glShaderSource(id, 1, &source, nullptr);
    glCompileShader(id);
    return id;
}
} // namespace

Shader::Shader(std::string name) : name(std::move(name))
{
    load();
}

Shader::~Shader()
{
    glDeleteProgram(program);
    glDeleteShader(vertexShader);
    glDeleteShader(fragmentShader);
}

void Shader::load()
{
    const std::string base = dataFile("shader/" + name);
    vertexShader = compileStage(GL_VERTEX_SHADER, base + ".vert");
    fragmentShader = compileStage(GL_FRAGMENT_SHADER, base + ".frag");

    program = glCreateProgram();
    glAttachShader(program, vertexShader);
    glAttachShader(program, fragmentShader);
    glLinkProgram(program);

    GLint status = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &status);
    linked = status != 0;
    if (linked)
    {
        std::fprintf(stderr, "[SUCCESS] Shader '%s' (%d) loaded successfully.\n", name.c_str(),
                     static_cast<int>(program));
        return;
    }
    GLint length = 0;
    glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
    std::string log(static_cast<size_t>(length > 0 ? length : 0), ' ');
    if (length > 0)
    {
        glGetProgramInfoLog(program, length, nullptr, log.data());
        log.resize(log.find('\0') == std::string::npos ? log.size() : log.find('\0'));
    }
    std::fprintf(stderr, "[ERROR] There is a problem with the '%s' shader program: \n %s \n",
                 name.c_str(), log.c_str());
}

bool Shader::isLinked() const
{
    return linked;
}

// A program that did not link has no locations, and GL refuses to look any up in it.
int Shader::attributeLocation(const char* attribute) const
{
    return linked ? glGetAttribLocation(program, attribute) : -1;
}

int Shader::uniformLocation(const char* uniform) const
{
    return linked ? glGetUniformLocation(program, uniform) : -1;
}

void Shader::setAttribute(const char* attribute, int count, const float* data)
{
    const GLint loc = attributeLocation(attribute);
    if (loc < 0)
    {
        return;
    }
    glVertexAttribPointer(static_cast<GLuint>(loc), count, GL_FLOAT, GL_FALSE, 0, data);
    glEnableVertexAttribArray(static_cast<GLuint>(loc));
}

void Shader::setAttributeBuffer(const char* attribute, int count)
{
    setAttribute(attribute, count, nullptr);
}

void Shader::disableAttribute(const char* attribute)
{
    const GLint loc = attributeLocation(attribute);
    if (loc >= 0)
    {
        glDisableVertexAttribArray(static_cast<GLuint>(loc));
    }
}

void Shader::setInt(const char* uniform, int value)
{
    const GLint loc = uniformLocation(uniform);
    if (loc >= 0)
    {
        glUniform1i(loc, value);
    }
}

void Shader::setFloat(const char* uniform, float value)
{
    const GLint loc = uniformLocation(uniform);
    if (loc >= 0)
    {
        glUniform1f(loc, value);
    }
}

void Shader::setVec3(const char* uniform, const float* v)
{
    const GLint loc = uniformLocation(uniform);
    if (loc >= 0)
    {
        glUniform3fv(loc, 1, v);
    }
}

void Shader::setVec4(const char* uniform, const float* v)
{
    const GLint loc = uniformLocation(uniform);
    if (loc >= 0)
    {
        glUniform4fv(loc, 1, v);
    }
}

void Shader::setMatrix(const char* uniform, const Mat4& m)
{
    const GLint loc = uniformLocation(uniform);
    if (loc >= 0)
    {
        glUniformMatrix4fv(loc, 1, GL_FALSE, m.data());
    }
}
