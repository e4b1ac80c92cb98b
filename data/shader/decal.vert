// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Stamps splats into one page of the paint map. Corners are in paint-map texels; "region" is the
// page's square there (its border included): x, y of its corner and its side. Each corner also
// says where it lies on its splat's picture (u, v), how far off the hit plane it is, which
// picture the splat took and in what colour.
layout(location = 0) in vec4 vertex;
in vec3 texcoord;
in float picture;
in vec4 color;
uniform vec4 region;
uniform int picturecount;
out vec3 uv;
out float depth;
flat out vec4 paint;

void main()
{
    uv = vec3(texcoord.xy, clamp(floor(picture + 0.5), 0.0, float(picturecount - 1)));
    depth = texcoord.z;
    paint = color;
    gl_Position = vec4((vertex.xy - region.xy) / region.z * 2.0 - 1.0, 0.0, 1.0);
}
