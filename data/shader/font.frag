#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// The page holds white glyphs whose coverage is in alpha: draw that coverage in the text colour.
uniform sampler2D tex;
uniform vec4 color;
in vec2 uv;
out vec4 fragColor;

void main()
{
    fragColor = vec4(color.rgb, color.a * texture(tex, uv).a);
}
