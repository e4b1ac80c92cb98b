// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
uniform sampler2D tex;
uniform vec4 color;
in vec2 uv;
out vec4 fragColor;

void main()
{
    fragColor = color * texture(tex, uv);
}
