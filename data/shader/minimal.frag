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

// The paint over this point of the level: colour premultiplied by coverage, read from the page
// of the paint map that holds "paintcoord" (paint-map texels), if that page has any paint.
// "pagegeometry" is the page payload, the page with its border, the border and a layer's side.
// Units of their own, so that the two never share one (which no draw call accepts).
layout(binding = 1) uniform sampler2DArray paintmap;
layout(binding = 2) uniform usampler2D pagetable;
uniform vec4 pagegeometry;
uniform int painted;
in vec2 paintcoord;

vec4 paintHere()
{
    // Derivatives before any branch; taken on paint-map space, so a page's edge is no jump.
    vec2 dx = dFdx(paintcoord) / pagegeometry.w;
    vec2 dy = dFdy(paintcoord) / pagegeometry.w;
    if (painted == 0)
        return vec4(0.0);
    ivec2 page = ivec2(floor(paintcoord / pagegeometry.x));
    ivec2 pages = textureSize(pagetable, 0);
    if (page.x < 0 || page.y < 0 || page.x >= pages.x || page.y >= pages.y)
        return vec4(0.0);
    uint slot = texelFetch(pagetable, page, 0).r;
    if (slot == 0u)
        return vec4(0.0);
    slot -= 1u;
    int across = int(pagegeometry.w / pagegeometry.y);
    int perLayer = across * across;
    int s = int(slot);
    vec2 corner = vec2(float(s % across), float((s / across) % across)) * pagegeometry.y;
    vec2 within = paintcoord - vec2(page) * pagegeometry.x;
    vec2 at = (corner + pagegeometry.z + within) / pagegeometry.w;
    return textureGrad(paintmap, vec3(at, float(s / perLayer)), dx, dy);
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
