// 4x4 single-precision matrix: affine transforms and projections.
//
// Conventions, shared by every geometry type:
// - column vectors: a point is transformed as v' = M * v, so A * B applies B
//   first; the translation sits in the last column;
// - column-major storage: columns[j] is column j and the sixteen floats lie
//   column after column (the layout OpenGL, Vulkan and HLSL column_major take);
// - right-handed axes, angles in radians, positive angles turn
//   counter-clockwise when the axis points at the viewer;
// - cameras look down -z in view space, y up; projections map the depth range
//   [nearZ, farZ] to [0, 1] in clip space (Direct3D, Vulkan, Metal).
#pragma once

#include <qel/export.h>
#include <qel/matrix3.h>
#include <qel/vector4.h>

namespace qel
{

struct Quaternion;

struct QEL_API Matrix4
{
    Vector4 columns[4];

    Matrix4() = default; // uninitialised
    constexpr Matrix4(const Vector4& c0, const Vector4& c1, const Vector4& c2, const Vector4& c3)
        : columns{c0, c1, c2, c3}
    {
    }
    // The linear part m and the translation t.
    Matrix4(const Matrix3& m, const Vector3& t)
        : columns{{m.columns[0], 0}, {m.columns[1], 0}, {m.columns[2], 0}, {t, 1}}
    {
    }

    static Matrix4 Identity() { return {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}; }
    static Matrix4 Translation(const Vector3& t) { return {Matrix3::Identity(), t}; }
    static Matrix4 Scale(const Vector3& s) { return {Matrix3::Scale(s), Vector3(0.0f)}; }
    static Matrix4 Rotation(const Vector3& axis, float angle)
    {
        return {Matrix3::Rotation(axis, angle), Vector3(0.0f)};
    }
    static Matrix4 Rotation(const Quaternion& q);
    // Translation * Rotation * Scale: scales first, then rotates, then moves.
    static Matrix4 Compose(const Vector3& translation, const Quaternion& rotation,
                           const Vector3& scale);
    // View matrix of a camera at eye looking at target; up need not be unit
    // nor perpendicular. Degenerate input (eye == target, up along the view)
    // still gives a rotation.
    static Matrix4 LookAt(const Vector3& eye, const Vector3& target, const Vector3& up);
    // Perspective projection; fovY is the full vertical angle, aspect is
    // width / height, 0 < nearZ < farZ.
    static Matrix4 Perspective(float fovY, float aspect, float nearZ, float farZ);
    // Orthographic projection of the view-space box [left, right] x [bottom,
    // top] x [-nearZ, -farZ].
    static Matrix4 Orthographic(float left, float right, float bottom, float top, float nearZ,
                                float farZ);

    float operator()(int row, int column) const { return columns[column][row]; }
    float& operator()(int row, int column) { return columns[column][row]; }
    Vector4 Row(int row) const
    {
        return {columns[0][row], columns[1][row], columns[2][row], columns[3][row]};
    }
    const float* Data() const { return &columns[0].x; }

    Vector4 operator*(const Vector4& v) const
    {
        return columns[0] * v.x + columns[1] * v.y + columns[2] * v.z + columns[3] * v.w;
    }
    Matrix4 operator*(const Matrix4& m) const
    {
        return {*this * m.columns[0], *this * m.columns[1], *this * m.columns[2],
                *this * m.columns[3]};
    }
    bool operator==(const Matrix4& m) const
    {
        return columns[0] == m.columns[0] && columns[1] == m.columns[1] &&
               columns[2] == m.columns[2] && columns[3] == m.columns[3];
    }
    bool operator!=(const Matrix4& m) const { return !(*this == m); }

    // The point p (w = 1) transformed, without the projective divide.
    Vector3 TransformPoint(const Vector3& p) const
    {
        return (columns[0] * p.x + columns[1] * p.y + columns[2] * p.z + columns[3]).XYZ();
    }
    // The direction d (w = 0) transformed: translation does not apply.
    Vector3 TransformVector(const Vector3& d) const
    {
        return (columns[0] * d.x + columns[1] * d.y + columns[2] * d.z).XYZ();
    }
    Matrix3 Linear() const { return {columns[0].XYZ(), columns[1].XYZ(), columns[2].XYZ()}; }
    Vector3 GetTranslation() const { return columns[3].XYZ(); }

    Matrix4 Transposed() const { return {Row(0), Row(1), Row(2), Row(3)}; }
    float Determinant() const;
    // Writes the inverse into result and returns true; returns false and leaves
    // result alone when the matrix is singular (relative to its own scale).
    bool Inverse(Matrix4& result) const;
};

} // namespace qel
