#include <qel/quaternion.h>

#include <algorithm>
#include <cmath>

namespace qel
{

Quaternion Quaternion::FromAxisAngle(const Vector3& axis, float angle)
{
    const Vector3 a = axis.Normalized();
    if (a.LengthSquared() == 0.0f)
        return Identity();
    const float s = std::sin(angle * 0.5f);
    return {a.x * s, a.y * s, a.z * s, std::cos(angle * 0.5f)};
}

Quaternion Quaternion::FromMatrix(const Matrix3& m)
{
    // Shepperd's method: take the root of the largest of the four squared
    // components, so the division never loses precision.
    const float trace = m(0, 0) + m(1, 1) + m(2, 2);
    Quaternion q;
    if (trace > 0.0f)
    {
        const float s = std::sqrt(trace + 1.0f) * 2.0f;
        q = {(m(2, 1) - m(1, 2)) / s, (m(0, 2) - m(2, 0)) / s, (m(1, 0) - m(0, 1)) / s, 0.25f * s};
    }
    else if (m(0, 0) > m(1, 1) && m(0, 0) > m(2, 2))
    {
        const float s = std::sqrt(1.0f + m(0, 0) - m(1, 1) - m(2, 2)) * 2.0f;
        q = {0.25f * s, (m(0, 1) + m(1, 0)) / s, (m(0, 2) + m(2, 0)) / s, (m(2, 1) - m(1, 2)) / s};
    }
    else if (m(1, 1) > m(2, 2))
    {
        const float s = std::sqrt(1.0f + m(1, 1) - m(0, 0) - m(2, 2)) * 2.0f;
        q = {(m(0, 1) + m(1, 0)) / s, 0.25f * s, (m(1, 2) + m(2, 1)) / s, (m(0, 2) - m(2, 0)) / s};
    }
    else
    {
        const float s = std::sqrt(1.0f + m(2, 2) - m(0, 0) - m(1, 1)) * 2.0f;
        q = {(m(0, 2) + m(2, 0)) / s, (m(1, 2) + m(2, 1)) / s, 0.25f * s, (m(1, 0) - m(0, 1)) / s};
    }
    return q.Normalized();
}

Quaternion Quaternion::FromTo(const Vector3& from, const Vector3& to)
{
    const Vector3 a = from.Normalized();
    const Vector3 b = to.Normalized();
    const float d = a.Dot(b);
    if (d < -0.999999f)
    {
        // Opposite directions: half a turn about any perpendicular axis.
        const Vector3 axis = Vector3::Perpendicular(a);
        return {axis.x, axis.y, axis.z, 0.0f};
    }
    const Vector3 c = a.Cross(b);
    return Quaternion(c.x, c.y, c.z, 1.0f + d).Normalized();
}

Quaternion Quaternion::Slerp(const Quaternion& a, const Quaternion& b, float t)
{
    float cosine = a.Dot(b);
    Quaternion end = b;
    if (cosine < 0.0f)
    {
        cosine = -cosine;
        end = -b;
    }
    float wa, wb;
    if (cosine > 0.9995f)
    {
        wa = 1.0f - t;
        wb = t;
    }
    else
    {
        const float angle = std::acos(std::min(cosine, 1.0f));
        const float inv = 1.0f / std::sin(angle);
        wa = std::sin((1.0f - t) * angle) * inv;
        wb = std::sin(t * angle) * inv;
    }
    const Quaternion q(a.x * wa + end.x * wb, a.y * wa + end.y * wb, a.z * wa + end.z * wb,
                       a.w * wa + end.w * wb);
    return cosine > 0.9995f ? q.Normalized() : q;
}

Quaternion Quaternion::Normalized() const
{
    const float length = Length();
    if (!(length > 0.0f))
        return Identity();
    const float k = 1.0f / length;
    return {x * k, y * k, z * k, w * k};
}

Matrix3 Quaternion::ToMatrix3() const
{
    const float xx = x * x, yy = y * y, zz = z * z;
    const float xy = x * y, xz = x * z, yz = y * z;
    const float wx = w * x, wy = w * y, wz = w * z;
    return {{1 - 2 * (yy + zz), 2 * (xy + wz), 2 * (xz - wy)},
            {2 * (xy - wz), 1 - 2 * (xx + zz), 2 * (yz + wx)},
            {2 * (xz + wy), 2 * (yz - wx), 1 - 2 * (xx + yy)}};
}

void Quaternion::ToAxisAngle(Vector3& axis, float& angle) const
{
    const Quaternion q = w < 0.0f ? -Normalized() : Normalized();
    const float s = q.XYZ().Length();
    angle = 2.0f * std::atan2(s, q.w);
    axis = s > 0.0f ? q.XYZ() * (1.0f / s) : Vector3(1, 0, 0);
}

} // namespace qel
