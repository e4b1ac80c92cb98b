// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Motion pass: where each vertex is on screen now and where it was a frame ago.
layout(location = 0) in vec4 vertex;
uniform mat4 perspective;
uniform mat4 view;
uniform mat4 preview;
uniform mat4 model;
uniform mat4 prevmodel;
out vec4 current;
out vec4 previous;

void main()
{
    current = perspective * view * model * vertex;
    previous = perspective * preview * prevmodel * vertex;
    gl_Position = current;
}
