#include <qel/matrix3.h>
#include <qel/matrix4.h>
#include <qel/quaternion.h>

#include <cmath>

namespace qel
{

Matrix3 Matrix3::Rotation(const Vector3& axis, float angle)
{
    const Vector3 a = axis.Normalized();
    if (a.LengthSquared() == 0.0f)
        return Identity();
    const float c = std::cos(angle);
    const float s = std::sin(angle);
    const Vector3 t = a * (1.0f - c);
    return {{t.x * a.x + c, t.x * a.y + s * a.z, t.x * a.z - s * a.y},
            {t.y * a.x - s * a.z, t.y * a.y + c, t.y * a.z + s * a.x},
            {t.z * a.x + s * a.y, t.z * a.y - s * a.x, t.z * a.z + c}};
}

bool Matrix3::Inverse(Matrix3& result) const
{
    // Rows of the inverse are the cross products of the columns.
    const Vector3 r0 = columns[1].Cross(columns[2]);
    const Vector3 r1 = columns[2].Cross(columns[0]);
    const Vector3 r2 = columns[0].Cross(columns[1]);
    const float det = columns[0].Dot(r0);
    // Singular relative to the matrix's own scale, so tiny but well-shaped
    // matrices still invert.
    const float scale = columns[0].Length() * columns[1].Length() * columns[2].Length();
    if (!(std::fabs(det) > scale * 1e-7f))
        return false;
    result = Matrix3(r0, r1, r2).Transposed() * (1.0f / det);
    return true;
}

Matrix4 Matrix4::Rotation(const Quaternion& q)
{
    return {q.ToMatrix3(), Vector3(0.0f)};
}

Matrix4 Matrix4::Compose(const Vector3& translation, const Quaternion& rotation,
                         const Vector3& scale)
{
    const Matrix3 r = rotation.ToMatrix3();
    return {Matrix3(r.columns[0] * scale.x, r.columns[1] * scale.y, r.columns[2] * scale.z),
            translation};
}

Matrix4 Matrix4::LookAt(const Vector3& eye, const Vector3& target, const Vector3& up)
{
    Vector3 back = (eye - target).Normalized();
    if (back.LengthSquared() == 0.0f)
        back = Vector3(0, 0, 1);
    Vector3 right = up.Cross(back).Normalized();
    if (right.LengthSquared() == 0.0f)
        right = Vector3::Perpendicular(back);
    const Vector3 trueUp = back.Cross(right);
    return {{right.x, trueUp.x, back.x, 0},
            {right.y, trueUp.y, back.y, 0},
            {right.z, trueUp.z, back.z, 0},
            {-right.Dot(eye), -trueUp.Dot(eye), -back.Dot(eye), 1}};
}

Matrix4 Matrix4::Perspective(float fovY, float aspect, float nearZ, float farZ)
{
    const float f = 1.0f / std::tan(fovY * 0.5f);
    const float depth = farZ / (nearZ - farZ);
    return {{f / aspect, 0, 0, 0}, {0, f, 0, 0}, {0, 0, depth, -1}, {0, 0, nearZ * depth, 0}};
}

Matrix4 Matrix4::Orthographic(float left, float right, float bottom, float top, float nearZ,
                              float farZ)
{
    const float w = 1.0f / (right - left);
    const float h = 1.0f / (top - bottom);
    const float d = 1.0f / (nearZ - farZ);
    return {{2 * w, 0, 0, 0},
            {0, 2 * h, 0, 0},
            {0, 0, d, 0},
            {-(right + left) * w, -(top + bottom) * h, nearZ * d, 1}};
}

namespace
{

// The six 2x2 minors of rows (r, r + 1) in the column pairs (01 02 03 12 13 23).
void PairMinors(const Matrix4& m, int r, float minors[6])
{
    const Vector4 a = m.Row(r);
    const Vector4 b = m.Row(r + 1);
    minors[0] = a.x * b.y - a.y * b.x;
    minors[1] = a.x * b.z - a.z * b.x;
    minors[2] = a.x * b.w - a.w * b.x;
    minors[3] = a.y * b.z - a.z * b.y;
    minors[4] = a.y * b.w - a.w * b.y;
    minors[5] = a.z * b.w - a.w * b.z;
}

} // namespace

float Matrix4::Determinant() const
{
    float s[6], c[6];
    PairMinors(*this, 0, s);
    PairMinors(*this, 2, c);
    return s[0] * c[5] - s[1] * c[4] + s[2] * c[3] + s[3] * c[2] - s[4] * c[1] + s[5] * c[0];
}

bool Matrix4::Inverse(Matrix4& result) const
{
    // Laplace expansion by complementary 2x2 minors of rows 0-1 and 2-3.
    float s[6], c[6];
    PairMinors(*this, 0, s);
    PairMinors(*this, 2, c);
    const float det =
        s[0] * c[5] - s[1] * c[4] + s[2] * c[3] + s[3] * c[2] - s[4] * c[1] + s[5] * c[0];
    float scale = 1.0f;
    for (int i = 0; i < 4; ++i)
        scale *= columns[i].Length();
    if (!(std::fabs(det) > scale * 1e-7f))
        return false;
    const float k = 1.0f / det;
    const Vector4 r0 = Row(0), r1 = Row(1), r2 = Row(2), r3 = Row(3);
    Matrix4 inv;
    inv(0, 0) = (r1.y * c[5] - r1.z * c[4] + r1.w * c[3]) * k;
    inv(0, 1) = (-r0.y * c[5] + r0.z * c[4] - r0.w * c[3]) * k;
    inv(0, 2) = (r3.y * s[5] - r3.z * s[4] + r3.w * s[3]) * k;
    inv(0, 3) = (-r2.y * s[5] + r2.z * s[4] - r2.w * s[3]) * k;
    inv(1, 0) = (-r1.x * c[5] + r1.z * c[2] - r1.w * c[1]) * k;
    inv(1, 1) = (r0.x * c[5] - r0.z * c[2] + r0.w * c[1]) * k;
    inv(1, 2) = (-r3.x * s[5] + r3.z * s[2] - r3.w * s[1]) * k;
    inv(1, 3) = (r2.x * s[5] - r2.z * s[2] + r2.w * s[1]) * k;
    inv(2, 0) = (r1.x * c[4] - r1.y * c[2] + r1.w * c[0]) * k;
    inv(2, 1) = (-r0.x * c[4] + r0.y * c[2] - r0.w * c[0]) * k;
    inv(2, 2) = (r3.x * s[4] - r3.y * s[2] + r3.w * s[0]) * k;
    inv(2, 3) = (-r2.x * s[4] + r2.y * s[2] - r2.w * s[0]) * k;
    inv(3, 0) = (-r1.x * c[3] + r1.y * c[1] - r1.z * c[0]) * k;
    inv(3, 1) = (r0.x * c[3] - r0.y * c[1] + r0.z * c[0]) * k;
    inv(3, 2) = (-r3.x * s[3] + r3.y * s[1] - r3.z * s[0]) * k;
    inv(3, 3) = (r2.x * s[3] - r2.y * s[1] + r2.z * s[0]) * k;
    result = inv;
    return true;
}

} // namespace qel
