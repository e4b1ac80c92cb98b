#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// A paint splat: positions are already in level (world) coordinates.
layout(location = 0) in vec4 vertex;
in vec2 texcoord;
uniform mat4 perspective;
uniform mat4 view;
uniform mat4 model;
out vec2 uv;

void main()
{
    uv = texcoord;
    gl_Position = perspective * view * model * vertex;
}
