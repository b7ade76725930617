// Unit quaternion for rotations: q = (x, y, z, w) = (axis * sin(a/2), cos(a/2)).
//
// Products follow the matrices: (a * b).Rotate(v) == a.Rotate(b.Rotate(v)),
// and ToMatrix3() gives the matrix that rotates column vectors the same way.
#pragma once

#include <qel/export.h>
#include <qel/matrix3.h>
#include <qel/vector3.h>

#include <cmath>

namespace qel
{

struct QEL_API Quaternion
{
    float x, y, z, w;

    Quaternion() = default; // uninitialised
    constexpr Quaternion(float x_, float y_, float z_, float w_) : x(x_), y(y_), z(z_), w(w_) {}

    static Quaternion Identity() { return {0, 0, 0, 1}; }
    // Rotation by angle (radians) about axis (normalised here; a zero axis
    // gives identity).
    static Quaternion FromAxisAngle(const Vector3& axis, float angle);
    // The rotation of a rotation matrix (orthonormal, determinant 1); any scale
    // left in the matrix is normalised away.
    static Quaternion FromMatrix(const Matrix3& m);
    // The shortest rotation taking direction from onto direction to.
    static Quaternion FromTo(const Vector3& from, const Vector3& to);
    // Spherical interpolation along the shorter arc: t = 0 gives a, t = 1
    // gives b (or -b, the same rotation); falls back to normalised linear
    // interpolation when the two are nearly equal.
    static Quaternion Slerp(const Quaternion& a, const Quaternion& b, float t);

    Vector3 XYZ() const { return {x, y, z}; }
    Quaternion operator-() const { return {-x, -y, -z, -w}; }
    Quaternion operator*(const Quaternion& q) const
    {
        return {w * q.x + x * q.w + y * q.z - z * q.y, w * q.y - x * q.z + y * q.w + z * q.x,
                w * q.z + x * q.y - y * q.x + z * q.w, w * q.w - x * q.x - y * q.y - z * q.z};
    }
    bool operator==(const Quaternion& q) const
    {
        return x == q.x && y == q.y && z == q.z && w == q.w;
    }
    bool operator!=(const Quaternion& q) const { return !(*this == q); }

    float Dot(const Quaternion& q) const { return x * q.x + y * q.y + z * q.z + w * q.w; }
    float Length() const { return std::sqrt(Dot(*this)); }
    Quaternion Conjugate() const { return {-x, -y, -z, w}; }
    // Unit length; the zero quaternion becomes identity.
    Quaternion Normalized() const;
    // The vector rotated (the quaternion is taken as unit).
    Vector3 Rotate(const Vector3& v) const
    {
        const Vector3 u = XYZ();
        const Vector3 t = u.Cross(v) * 2.0f;
        return v + t * w + u.Cross(t);
    }
    Matrix3 ToMatrix3() const;
    // Angle in [0, pi] and unit axis (+x for identity).
    void ToAxisAngle(Vector3& axis, float& angle) const;
};

} // namespace qel
