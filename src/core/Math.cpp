// SPDX-License-Identifier: MIT
#include "core/Math.h"

#include <cmath>

namespace math
{

float cosine(float a)
{
    return static_cast<float>(std::cos(static_cast<double>(a)));
}
float sine(float a)
{
    return static_cast<float>(std::sin(static_cast<double>(a)));
}
float squareRoot(float a)
{
    return static_cast<float>(std::sqrt(static_cast<double>(a)));
}

Mat4 identity()
{
    return scale(1.0f);
}

Mat3 identity3()
{
    Mat3 r;
    r[0] = r[4] = r[8] = 1.0f;
    return r;
}

Mat4 scale(float s)
{
    Mat4 r;
    r[0] = r[5] = r[10] = r[15] = s;
    return r;
}

Mat4 toMat4(const Mat3& m)
{
    Mat4 r;
    for (int c = 0; c < 3; ++c)
    {
        for (int row = 0; row < 3; ++row)
        {
            r[c * 4 + row] = m[c * 3 + row];
        }
    }
    r[15] = 1.0f;
    return r;
}

Mat4 translate(const Mat4& m, const Vec3& t)
{
    Mat4 r = m;
    for (int row = 0; row < 4; ++row)
    {
        r[12 + row] = m[12 + row] + m[row] * t.x + m[4 + row] * t.y + m[8 + row] * t.z;
    }
    return r;
}

Mat4 multiply(const Mat4& a, const Mat4& b)
{
    Mat4 r;
    for (int c = 0; c < 4; ++c)
    {
        for (int row = 0; row < 4; ++row)
        {
            float sum = 0.0f;
            for (int k = 0; k < 4; ++k)
            {
                sum += a[k * 4 + row] * b[c * 4 + k];
            }
            r[c * 4 + row] = sum;
        }
    }
    return r;
}

Mat3 multiply(const Mat3& a, const Mat3& b)
{
    Mat3 r;
    for (int c = 0; c < 3; ++c)
    {
        for (int row = 0; row < 3; ++row)
        {
            float sum = 0.0f;
            for (int k = 0; k < 3; ++k)
            {
                sum += a[k * 3 + row] * b[c * 3 + k];
            }
            r[c * 3 + row] = sum;
        }
    }
    return r;
}

Vec4 transform(const Mat4& m, const Vec4& v)
{
    const float in[4] = {v.x, v.y, v.z, v.w};
    float out[4];
    for (int row = 0; row < 4; ++row)
    {
        float sum = 0.0f;
        for (int k = 0; k < 4; ++k)
        {
            sum += m[k * 4 + row] * in[k];
        }
        out[row] = sum;
    }
    return {out[0], out[1], out[2], out[3]};
}

Mat3 toMat3(const Quaternion& q)
{
    const float x = q.x, y = q.y, z = q.z, w = q.w;
    Mat3 r;
    r[0] = 1.0f - 2.0f * (y * y + z * z);
    r[1] = 2.0f * (x * y + w * z);
    r[2] = 2.0f * (x * z - w * y);
    r[3] = 2.0f * (x * y - w * z);
    r[4] = 1.0f - 2.0f * (x * x + z * z);
    r[5] = 2.0f * (y * z + w * x);
    r[6] = 2.0f * (x * z + w * y);
    r[7] = 2.0f * (y * z - w * x);
    r[8] = 1.0f - 2.0f * (x * x + y * y);
    return r;
}

Mat4 inverse(const Mat4& m)
{
    // 2x2 sub-determinants of the upper two rows (s) and the lower two rows (c).
    const float s0 = m[0] * m[5] - m[4] * m[1];
    const float s1 = m[0] * m[9] - m[8] * m[1];
    const float s2 = m[0] * m[13] - m[12] * m[1];
    const float s3 = m[4] * m[9] - m[8] * m[5];
    const float s4 = m[4] * m[13] - m[12] * m[5];
    const float s5 = m[8] * m[13] - m[12] * m[9];

    const float c5 = m[10] * m[15] - m[14] * m[11];
    const float c4 = m[6] * m[15] - m[14] * m[7];
    const float c3 = m[6] * m[11] - m[10] * m[7];
    const float c2 = m[2] * m[15] - m[14] * m[3];
    const float c1 = m[2] * m[11] - m[10] * m[3];
    const float c0 = m[2] * m[7] - m[6] * m[3];

    const float det = s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;

    Mat4 adj;
    adj[0] = m[5] * c5 - m[9] * c4 + m[13] * c3;
    adj[1] = -m[1] * c5 + m[9] * c2 - m[13] * c1;
    adj[2] = m[1] * c4 - m[5] * c2 + m[13] * c0;
    adj[3] = -m[1] * c3 + m[5] * c1 - m[9] * c0;

    adj[4] = -m[4] * c5 + m[8] * c4 - m[12] * c3;
    adj[5] = m[0] * c5 - m[8] * c2 + m[12] * c1;
    adj[6] = -m[0] * c4 + m[4] * c2 - m[12] * c0;
    adj[7] = m[0] * c3 - m[4] * c1 + m[8] * c0;

    adj[8] = m[7] * s5 - m[11] * s4 + m[15] * s3;
    adj[9] = -m[3] * s5 + m[11] * s2 - m[15] * s1;
    adj[10] = m[3] * s4 - m[7] * s2 + m[15] * s0;
    adj[11] = -m[3] * s3 + m[7] * s1 - m[11] * s0;

    adj[12] = -m[6] * s5 + m[10] * s4 - m[14] * s3;
    adj[13] = m[2] * s5 - m[10] * s2 + m[14] * s1;
    adj[14] = -m[2] * s4 + m[6] * s2 - m[14] * s0;
    adj[15] = m[2] * s3 - m[6] * s1 + m[10] * s0;

    return divide(adj, det);
}

Mat4 divide(const Mat4& m, float d)
{
    Mat4 r;
    for (int i = 0; i < 16; ++i)
    {
        r[i] = m[i] / d;
    }
    return r;
}

Mat4 orthographic(float left, float right, float bottom, float top, float nearZ, float farZ)
{
    Mat4 r = scale(1.0f);
    r[0] = 2.0f / (right - left);
    r[5] = 2.0f / (top - bottom);
    r[10] = -2.0f / (farZ - nearZ);
    r[12] = -(right + left) / (right - left);
    r[13] = -(top + bottom) / (top - bottom);
    r[14] = -(farZ + nearZ) / (farZ - nearZ);
    return r;
}

Mat4 perspective(float fovyDegrees, float aspect, float nearZ, float farZ)
{
    const float f = 1.0f / static_cast<float>(std::tan(fovyDegrees * DEG_TO_RAD * 0.5f));
    Mat4 r;
    r[0] = f / aspect;
    r[5] = f;
    r[10] = (farZ + nearZ) / (nearZ - farZ);
    r[11] = -1.0f;
    r[14] = 2.0f * farZ * nearZ / (nearZ - farZ);
    return r;
}

Quaternion axisAngle(const Vec3& axis, float angle)
{
    // The degree factor twice is intended: it is the game's turn unit.
    const float half = angle * DEG_TO_RAD * DEG_TO_RAD * 0.5f;
    const float s = sine(half);
    return {axis.x * s, axis.y * s, axis.z * s, cosine(half)};
}

} // namespace math
