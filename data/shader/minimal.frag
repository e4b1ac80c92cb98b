// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
#extension GL_ARB_shading_language_420pack : require
uniform vec3 light_position;
uniform vec4 light_color;
uniform vec4 ambient_color;
uniform vec4 color;
in vec3 worldNormal;
in vec3 worldPosition;
out vec4 fragColor;

// The paint over this point of the level, colour premultiplied by coverage (see the vertex stage).
layout(binding = 1) uniform sampler2DArray paintmap;
in vec2 paintAt;
flat in float paintLayer;

vec4 paintHere()
{
    if (paintLayer < 0.0)
        return vec4(0.0);
    return texture(paintmap, vec3(paintAt, paintLayer));
}

void main()
{
    vec3 n = normalize(worldNormal);
    vec3 l = normalize(light_position - worldPosition);
    // Wrap the light a little so faces turned away from it still read as shapes, not black holes.
    float diffuse = clamp(dot(n, l) * 0.75 + 0.25, 0.0, 1.0);
    vec3 lit = color.rgb * (ambient_color.rgb + light_color.rgb * diffuse);
    // Paint is not lit: it lies over the lit surface as it is.
    vec4 paint = paintHere();
    fragColor = vec4(paint.rgb + min(lit, vec3(1.0)) * (1.0 - paint.a), color.a);
}
