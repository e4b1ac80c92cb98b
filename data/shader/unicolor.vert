// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
layout(location = 0) in vec4 vertex;
// Where the vertex lies in the paint map, in its texels (see the fragment stage).
in vec2 paintmapcoord;
out vec2 paintcoord;
uniform mat4 perspective;
uniform mat4 view;
uniform mat4 model;

void main()
{
    paintcoord = paintmapcoord;
    gl_Position = perspective * view * model * vertex;
}
