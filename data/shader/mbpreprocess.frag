// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Screen-space motion since the last frame, in normalised device units, stored in red and green
// as bytes around 128 (128 is no motion, one step is RANGE / 127, larger motion is clamped);
// blue marks covered pixels, so the background (cleared to black) is never blurred.
in vec4 current;
in vec4 previous;
out vec4 fragColor;

const float RANGE = 0.5;

void main()
{
    vec2 motion = current.xy / current.w - previous.xy / previous.w;
    vec2 steps = clamp(round(motion * (127.0 / RANGE)), -127.0, 127.0);
    fragColor = vec4((steps + 128.0) / 255.0, 1.0, 1.0);
}
