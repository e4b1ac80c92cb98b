// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// The page holds white glyphs whose coverage is in alpha: draw that coverage in the text colour.
// A thin halo in the opposite colour keeps black text readable over the black sky and white text
// over the white level.
uniform sampler2D tex;
uniform vec4 color;
in vec2 uv;
out vec4 fragColor;

const float HALO_TEXELS = 1.5;

void main()
{
    float fill = texture(tex, uv).a;
    vec2 texel = HALO_TEXELS / vec2(textureSize(tex, 0));
    float halo = 0.0;
    for (int i = 0; i < 8; ++i)
    {
        float angle = float(i) * 0.785398;
        halo = max(halo, texture(tex, uv + texel * vec2(cos(angle), sin(angle))).a);
    }
    vec3 rgb = mix(vec3(1.0) - color.rgb, color.rgb, fill);
    fragColor = vec4(rgb, color.a * max(fill, halo));
}
