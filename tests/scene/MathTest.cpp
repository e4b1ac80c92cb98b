#include "scene/Math.h"

#include <gtest/gtest.h>

#include <cmath>

namespace
{
void expectNear(const Mat4& a, const Mat4& b, float tolerance)
{
    for (int i = 0; i < 16; ++i)
    {
        EXPECT_NEAR(a[i], b[i], tolerance) << "element " << i;
    }
}

// A rigid camera-like transform: a turn about a tilted axis and a translation.
Mat4 rigidTransform()
{
    const Mat3 r = math::toMat3(math::axisAngle(math::normalize({0.3f, 1.0f, -0.2f}), 2000.0f));
    return math::translate(math::toMat4(r), {4.0f, -2.5f, 17.0f});
}
} // namespace

TEST(Math, IdentityScaleAndTranslate)
{
    const Mat4 id = math::identity();
    for (int i = 0; i < 16; ++i)
    {
        EXPECT_EQ(id[i], math::scale(1.0f)[i]);
    }
    // scale scales w as well
    EXPECT_EQ(math::scale(2.0f)[15], 2.0f);

    const Mat4 t = math::translate(id, {1.0f, 2.0f, 3.0f});
    EXPECT_EQ(t[12], 1.0f);
    EXPECT_EQ(t[13], 2.0f);
    EXPECT_EQ(t[14], 3.0f);
    EXPECT_EQ(t[15], 1.0f);

    // Translating a rotated frame moves along the frame's own axes: M * T(t).
    const Mat3 quarter = math::toMat3({0.0f, std::sin(math::PI / 4), 0.0f, std::cos(math::PI / 4)});
    const Mat4 moved = math::translate(math::toMat4(quarter), {1.0f, 0.0f, 0.0f});
    EXPECT_NEAR(moved[12], 0.0f, 1e-6f);
    EXPECT_NEAR(moved[14], -1.0f, 1e-6f);
}

TEST(Math, ProductsAreColumnMajor)
{
    Mat4 a;
    for (int i = 0; i < 16; ++i)
    {
        a[i] = static_cast<float>(i * 3 % 7) - 2.5f;
    }
    const Mat4 id = math::identity();
    const Mat4 left = math::multiply(id, a);
    const Mat4 right = math::multiply(a, id);
    for (int i = 0; i < 16; ++i)
    {
        EXPECT_EQ(left[i], a[i]);
        EXPECT_EQ(right[i], a[i]);
    }

    // translate then scale: T * S applied to a point scales first, then moves it.
    const Mat4 ts = math::multiply(math::translate(id, {10.0f, 0.0f, 0.0f}), math::scale(2.0f));
    const Vec4 p = math::transform(ts, {1.0f, 1.0f, 1.0f, 1.0f});
    EXPECT_FLOAT_EQ(p.x, 2.0f * 1.0f + 10.0f * 2.0f); // w was scaled to 2 as well
    EXPECT_FLOAT_EQ(p.w, 2.0f);

    // Mat3 product agrees with the Mat4 product of the widened matrices.
    const Mat3 r1 = math::toMat3(math::axisAngle({0.0f, 1.0f, 0.0f}, 3000.0f));
    const Mat3 r2 = math::toMat3(math::axisAngle({1.0f, 0.0f, 0.0f}, -1200.0f));
    const Mat4 wide = math::multiply(math::toMat4(r1), math::toMat4(r2));
    const Mat4 narrow = math::toMat4(math::multiply(r1, r2));
    expectNear(wide, narrow, 1e-6f);
}

TEST(Math, InverseUndoesRigidAndProjectiveTransforms)
{
    const Mat4 m = rigidTransform();
    expectNear(math::inverse(math::inverse(m)), m, 1e-4f);
    expectNear(math::multiply(m, math::inverse(m)), math::identity(), 1e-5f);

    const Mat4 p = math::perspective(45.0f, 1024.0f / 768.0f, 0.1f, 200.0f);
    expectNear(math::multiply(math::inverse(p), p), math::identity(), 1e-4f);

    // A pure scale inverts to its reciprocal, including w.
    const Mat4 s = math::inverse(math::scale(4.0f));
    EXPECT_FLOAT_EQ(s[0], 0.25f);
    EXPECT_FLOAT_EQ(s[15], 0.25f);
}

TEST(Math, OrthographicMapsTheScreenOntoClipSpace)
{
    const Mat4 unit = math::orthographic(-1, 1, -1, 1, -1, 1);
    Mat4 expected = math::identity();
    expected[10] = -1.0f;
    expectNear(unit, expected, 0.0f);

    const Mat4 screen = math::orthographic(-512, 512, -384, 384, -1000, 1000);
    const Vec4 corner = math::transform(screen, {512.0f, -384.0f, 0.0f, 1.0f});
    EXPECT_FLOAT_EQ(corner.x, 1.0f);
    EXPECT_FLOAT_EQ(corner.y, -1.0f);
    const Vec4 off = math::transform(math::orthographic(0, 10, 0, 20, 1, 3), {5, 10, -2, 1});
    EXPECT_NEAR(off.x, 0.0f, 1e-6f);
    EXPECT_NEAR(off.y, 0.0f, 1e-6f);
    EXPECT_NEAR(off.z, 0.0f, 1e-6f);
}

TEST(Math, PerspectiveMapsNearAndFarPlanes)
{
    const Mat4 p = math::perspective(45.0f, 4.0f / 3.0f, 0.1f, 200.0f);
    const Vec4 nearPoint = math::transform(p, {0.0f, 0.0f, -0.1f, 1.0f});
    const Vec4 farPoint = math::transform(p, {0.0f, 0.0f, -200.0f, 1.0f});
    EXPECT_NEAR(nearPoint.z / nearPoint.w, -1.0f, 1e-4f);
    EXPECT_NEAR(farPoint.z / farPoint.w, 1.0f, 1e-4f);
    // The top edge of the view at distance 1 is tan(22.5 degrees).
    const Vec4 top = math::transform(p, {0.0f, std::tan(22.5f * math::DEG_TO_RAD), -1.0f, 1.0f});
    EXPECT_NEAR(top.y / top.w, 1.0f, 1e-5f);
}

TEST(Math, QuaternionsUseTheDoubledDegreeFactor)
{
    const Mat3 id = math::toMat3({0.0f, 0.0f, 0.0f, 1.0f});
    for (int i = 0; i < 9; ++i)
    {
        EXPECT_EQ(id[i], math::identity3()[i]);
    }

    // 200 game units (one pixel of mouse at turn rate 200) turn 200 * (pi/180)^2 = 0.0609 rad.
    const Quaternion q = math::axisAngle({0.0f, 1.0f, 0.0f}, 200.0f);
    EXPECT_NEAR(2.0f * std::acos(q.w), 0.0609f, 1e-4f);

    // The matrix rotates +x towards -z for a positive turn about +y (right-handed).
    const Mat3 r = math::toMat3(math::axisAngle({0.0f, 1.0f, 0.0f}, 90.0f / math::DEG_TO_RAD));
    EXPECT_NEAR(r[0], 0.0f, 1e-6f);
    EXPECT_NEAR(r[2], -1.0f, 1e-6f);
    // Rotation matrices stay orthonormal.
    const Mat3 rt{{r[0], r[3], r[6], r[1], r[4], r[7], r[2], r[5], r[8]}};
    const Mat3 shouldBeId = math::multiply(r, rt);
    for (int i = 0; i < 9; ++i)
    {
        EXPECT_NEAR(shouldBeId[i], math::identity3()[i], 1e-6f);
    }
}

TEST(Math, VectorHelpers)
{
    const Vec3 n = math::normalize({3.0f, 0.0f, 4.0f});
    EXPECT_FLOAT_EQ(n.x, 0.6f);
    EXPECT_FLOAT_EQ(n.z, 0.8f);
    const Vec3 c = math::cross({1, 0, 0}, {0, 1, 0});
    EXPECT_EQ(c.z, 1.0f);
    EXPECT_EQ(math::dot({1, 2, 3}, {4, 5, 6}), 32.0f);
}
