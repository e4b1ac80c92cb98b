// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// The cores of paint splats, as "decal" places its corners: positions are already in level
// (world) coordinates; each corner says where it lies on its splat's picture and, in "paint",
// which picture (the low three bits) and which colour of the palette the splat has.
layout(location = 0) in vec4 vertex;
in vec2 texcoord;
in float paint;
uniform mat4 perspective;
uniform mat4 view;
uniform mat4 model;
uniform vec4 palette[64];
out vec3 uv;
flat out vec4 color;

void main()
{
    int which = int(paint + 0.5);
    uv = vec3(texcoord, float(which & 7));
    color = palette[which >> 3];
    gl_Position = perspective * (view * (model * vertex));
}
