#version 150 compatibility
#extension GL_ARB_explicit_attrib_location : require
// Screen-space motion in normalised device units, packed into 0..1; blue marks covered pixels so
// the background (cleared to black) is never blurred.
in vec4 current;
in vec4 previous;
out vec4 fragColor;

void main()
{
    vec2 motion = current.xy / current.w - previous.xy / previous.w;
    fragColor = vec4(clamp(motion * 0.25 + 0.5, 0.0, 1.0), 1.0, 1.0);
}
