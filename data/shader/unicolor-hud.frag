// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Flat colour, no light: on the white level only the paint shows.
uniform vec4 color;
out vec4 fragColor;

void main()
{
    fragColor = color;
}
