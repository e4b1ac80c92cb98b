// SPDX-License-Identifier: MIT
#version 150 compatibility
// The cores of paint splats, drawn into the stencil only: a fragment is kept where the paint
// there comes out fully opaque, as "decal" would draw it, so whatever lies under it cannot show.
uniform sampler2DArray tex;
uniform int trans;
in vec3 uv;
flat in vec4 color;
out vec4 fragColor;

void main()
{
    float alpha = texture(tex, uv).a;
    float opacity = trans == 0 ? color.a * alpha : (alpha < 0.5 ? 0.0 : 1.0);
    if (opacity < 1.0)
        discard;
    fragColor = vec4(0.0);
}
