// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Lit geometry in world space: diffuse light from a point light plus an ambient term.
layout(location = 0) in vec4 vertex;
// Where the vertex lies in the paint map, in its texels (see the fragment stage).
in vec2 paintmapcoord;
out vec2 paintcoord;
in vec3 normal;
uniform mat4 perspective;
uniform mat4 view;
uniform mat4 model;
out vec3 worldNormal;
out vec3 worldPosition;

void main()
{
    paintcoord = paintmapcoord;
    vec4 world = model * vertex;
    worldPosition = world.xyz;
    worldNormal = mat3(model) * normal;
    gl_Position = perspective * view * world;
}
