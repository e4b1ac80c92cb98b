// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
uniform vec3 light_position;
uniform vec4 light_color;
uniform vec4 ambient_color;
uniform vec4 color;
in vec3 worldNormal;
in vec3 worldPosition;
out vec4 fragColor;

void main()
{
    vec3 n = normalize(worldNormal);
    vec3 l = normalize(light_position - worldPosition);
    // Wrap the light a little so faces turned away from it still read as shapes, not black holes.
    float diffuse = clamp(dot(n, l) * 0.75 + 0.25, 0.0, 1.0);
    vec3 lit = color.rgb * (ambient_color.rgb + light_color.rgb * diffuse);
    fragColor = vec4(min(lit, vec3(1.0)), color.a);
}
