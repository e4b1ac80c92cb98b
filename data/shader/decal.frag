// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Paint colour times the splat's picture, one of the layers of "tex", kept only inside the
// splat's block: its square on the picture and half a metre either side of the hit plane. The
// paint map holds colour premultiplied by coverage. "trans" is 0 when transparency is on: the
// splat's soft alpha edge blends over the paint under it. When it is 1 the edge is cut hard where
// the picture is less than half opaque and the paint is opaque.
uniform sampler2DArray tex;
uniform int trans;
in vec3 uv;
in float depth;
flat in vec4 paint;
out vec4 fragColor;

void main()
{
    if (uv.x < 0.0 || uv.x > 1.0 || uv.y < 0.0 || uv.y > 1.0 || abs(depth) > 0.5)
        discard;
    vec4 splat = texture(tex, uv);
    if (trans == 0)
    {
        float a = paint.a * splat.a;
        fragColor = vec4(paint.rgb * splat.rgb * a, a);
    }
    else
    {
        if (splat.a < 0.5)
            discard;
        fragColor = vec4(paint.rgb * splat.rgb, 1.0);
    }
}
