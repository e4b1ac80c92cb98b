// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Textured overlay quads in screen space.
layout(location = 0) in vec4 vertex;
in vec2 texcoord;
uniform mat4 ortho;
uniform mat4 model;
out vec2 uv;

void main()
{
    uv = texcoord;
    gl_Position = ortho * model * vertex;
}
