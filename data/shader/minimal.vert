// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
#extension GL_ARB_shading_language_420pack : require
// Lit geometry in world space: diffuse light from a point light plus an ambient term.
layout(location = 0) in vec4 vertex;
// Where the vertex lies in the paint map: in its page (paint-map texels from the page's corner)
// and which page (column, row). A triangle lies in one page, so the vertex finds where the page
// is kept and the pixels between read the paint straight from there. "pagegeometry" is the page
// payload, the page with its border, the border and a layer's side.
in vec4 paintmapcoord;
layout(binding = 2) uniform usampler2D pagetable;
uniform vec4 pagegeometry;
uniform int painted;
out vec2 paintAt;
flat out float paintLayer; // -1: no paint on this page

void findPaint()
{
    paintLayer = -1.0;
    paintAt = vec2(0.0);
    if (painted == 0)
        return;
    ivec2 page = ivec2(paintmapcoord.zw);
    ivec2 pages = textureSize(pagetable, 0);
    if (page.x < 0 || page.y < 0 || page.x >= pages.x || page.y >= pages.y)
        return;
    uint slot = texelFetch(pagetable, page, 0).r;
    if (slot == 0u)
        return;
    int s = int(slot) - 1;
    int across = int(pagegeometry.w / pagegeometry.y);
    vec2 corner = vec2(float(s % across), float((s / across) % across)) * pagegeometry.y;
    paintAt = (corner + pagegeometry.z + paintmapcoord.xy) / pagegeometry.w;
    paintLayer = float(s / (across * across));
}
in vec3 normal;
uniform mat4 perspective;
uniform mat4 view;
uniform mat4 model;
out vec3 worldNormal;
out vec3 worldPosition;

void main()
{
    findPaint();
    vec4 world = model * vertex;
    worldPosition = world.xyz;
    worldNormal = mat3(model) * normal;
    gl_Position = perspective * view * world;
}
