// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
#extension GL_ARB_shading_language_420pack : require
// Flat colour, no light: on the white level only the paint shows.
uniform vec4 color;
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
    vec4 paint = paintHere();
    fragColor = vec4(paint.rgb + color.rgb * (1.0 - paint.a), color.a);
}
