#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Blurs the frame along each pixel's screen motion.
uniform sampler2D motion;
uniform sampler2D frame;
in vec2 uv;
out vec4 fragColor;

const int SAMPLES = 8;

void main()
{
    vec4 m = texture(motion, uv);
    if (m.b < 0.5)
    {
        fragColor = texture(frame, uv);
        return;
    }
    // Back to normalised device units, then to texture units (half the range).
    vec2 velocity = (m.xy - 0.5) * 4.0 * 0.5;
    vec4 sum = vec4(0.0);
    for (int i = 0; i < SAMPLES; ++i)
    {
        float t = float(i) / float(SAMPLES - 1) - 0.5;
        sum += texture(frame, clamp(uv + velocity * t, 0.0, 1.0));
    }
    fragColor = sum / float(SAMPLES);
}
