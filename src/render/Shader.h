// SPDX-License-Identifier: MIT
#pragma once

#include <string>

struct Mat4;

// One linked GLSL program built from data/shader/NAME.vert and data/shader/NAME.frag. Loading
// never fails loudly: a missing or broken source prints the link log and leaves a program that
// is not linked; the registry and the match view never bind one, so what it would have drawn is
// left out, and the game goes on. Needs a current GL context for its whole life.
class Shader
{
public:
    explicit Shader(std::string name); // loads at once
    ~Shader();
    Shader(const Shader&) = delete;
    Shader& operator=(const Shader&) = delete;

    // Reads, compiles and links both stages and reports the result on standard error.
    void load();

    const std::string& getName() const { return name; }
    unsigned int getProgram() const { return program; }
    bool isLinked() const;

    // Per-name attribute and uniform helpers. They look the location up on every call and skip
    // names the program does not have (every name, when it did not link). They do not bind the
    // program: bind it first.
    void setAttribute(const char* attribute, int count, const float* data);
    // Points the attribute at the currently bound GL_ARRAY_BUFFER, starting at byte 0.
    void setAttributeBuffer(const char* attribute, int count);
    void disableAttribute(const char* attribute);
    void setInt(const char* uniform, int value);
    void setFloat(const char* uniform, float value);
    void setVec3(const char* uniform, const float* v);
    void setVec4(const char* uniform, const float* v);
    void setMatrix(const char* uniform, const Mat4& m);

private:
    int attributeLocation(const char* attribute) const;
    int uniformLocation(const char* uniform) const;

    std::string name;
    bool linked = false;
    unsigned int program = 0;
    unsigned int vertexShader = 0;
    unsigned int fragmentShader = 0;
};
