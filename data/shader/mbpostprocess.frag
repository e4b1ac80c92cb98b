// SPDX-License-Identifier: MIT
#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Blurs the frame along each pixel's screen motion: the average of samples spread over the
// distance the pixel travelled during the last frame, centred on it.
uniform sampler2D motion;
uniform sampler2D frame;
in vec2 uv;
out vec4 fragColor;

const float RANGE = 0.5; // as written by the motion pass
const int SAMPLES = 8;

void main()
{
    vec4 m = texture(motion, uv);
    vec2 steps = floor(m.xy * 255.0 + 0.5) - 128.0;
    if (m.b < 0.5 || (steps.x == 0.0 && steps.y == 0.0))
    {
        fragColor = texture(frame, uv);
        return;
    }
    // Normalised device units span two texture units.
    vec2 velocity = steps * (RANGE / 127.0) * 0.5;
    vec4 sum = vec4(0.0);
    for (int i = 0; i < SAMPLES; ++i)
    {
        float t = float(i) / float(SAMPLES - 1) - 0.5;
        sum += texture(frame, clamp(uv + velocity * t, 0.0, 1.0));
    }
    fragColor = sum / float(SAMPLES);
}
