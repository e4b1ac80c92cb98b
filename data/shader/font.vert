// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// One glyph quad, placed in the text's own screen space.
layout(location = 0) in vec4 in_vertex;
in vec2 in_texture;
uniform mat4 ortho;
uniform mat4 model;
out vec2 uv;

void main()
{
    uv = in_texture;
    gl_Position = ortho * model * in_vertex;
}
