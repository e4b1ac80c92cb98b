// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
#extension GL_ARB_shader_image_load_store : enable
// Paint writes neither depth nor stencil, so the tests may come before the shading: paint under
// a newer splat's opaque core (see "decalcore") or behind the level is never shaded.
#ifdef GL_ARB_shader_image_load_store
layout(early_fragment_tests) in;
#endif
// Paint colour times the splat's picture, one of the layers of "tex". "trans" is 0 when
// transparency is on: the splat's soft alpha edge blends over the surface. When it is 1 the edge
// is cut hard and the paint is opaque.
uniform sampler2DArray tex;
uniform int trans;
in vec3 uv;
flat in vec4 color;
out vec4 fragColor;

void main()
{
    vec4 splat = texture(tex, uv);
    if (trans == 0)
    {
        fragColor = vec4(color.rgb * splat.rgb, color.a * splat.a);
    }
    else
    {
        if (splat.a < 0.5)
            discard;
        fragColor = vec4(color.rgb * splat.rgb, 1.0);
    }
}
