// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Full-screen picture in screen space (x -512..512, y -384..384).
layout(location = 0) in vec4 in_vertex;
in vec2 in_texture;
uniform mat4 ortho;
out vec2 uv;

void main()
{
    uv = in_texture;
    gl_Position = ortho * in_vertex;
}
