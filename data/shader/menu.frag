// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
uniform sampler2D tex;
in vec2 uv;
out vec4 fragColor;

void main()
{
    fragColor = vec4(texture(tex, uv).rgb, 1.0);
}
