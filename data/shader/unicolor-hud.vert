// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Overlay shapes (the colour disc) in screen space.
layout(location = 0) in vec4 vertex;
uniform mat4 ortho;
uniform mat4 model;

void main()
{
    gl_Position = ortho * model * vertex;
}
