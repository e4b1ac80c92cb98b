// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Full-screen quad for the composite.
layout(location = 0) in vec4 vertex;
in vec2 texCoordinates;
uniform mat4 ortho;
out vec2 uv;

void main()
{
    uv = texCoordinates;
    gl_Position = ortho * vertex;
}
