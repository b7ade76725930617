// 3x3 single-precision matrix: rotations, scales and the linear part of a
// Matrix4.
//
// Same conventions as Matrix4: column vectors (v' = M * v, so A * B applies B
// first), column-major storage (columns[j] is column j), right-handed axes,
// angles in radians, positive angles turn counter-clockwise when the axis
// points at the viewer.
#pragma once

#include <qel/export.h>
#include <qel/vector3.h>

namespace qel
{

struct QEL_API Matrix3
{
    Vector3 columns[3];

    Matrix3() = default; // uninitialised
    constexpr Matrix3(const Vector3& c0, const Vector3& c1, const Vector3& c2) : columns{c0, c1, c2}
    {
    }

    static Matrix3 Identity() { return {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}; }
    static Matrix3 Scale(const Vector3& s) { return {{s.x, 0, 0}, {0, s.y, 0}, {0, 0, s.z}}; }
    // Rotation by angle about axis (normalised here; a zero axis gives identity).
    static Matrix3 Rotation(const Vector3& axis, float angle);

    float operator()(int row, int column) const { return columns[column][row]; }
    float& operator()(int row, int column) { return columns[column][row]; }
    Vector3 Row(int row) const { return {columns[0][row], columns[1][row], columns[2][row]}; }

    Vector3 operator*(const Vector3& v) const
    {
        return columns[0] * v.x + columns[1] * v.y + columns[2] * v.z;
    }
    Matrix3 operator*(const Matrix3& m) const
    {
        return {*this * m.columns[0], *this * m.columns[1], *this * m.columns[2]};
    }
    Matrix3 operator*(float s) const { return {columns[0] * s, columns[1] * s, columns[2] * s}; }
    bool operator==(const Matrix3& m) const
    {
        return columns[0] == m.columns[0] && columns[1] == m.columns[1] &&
               columns[2] == m.columns[2];
    }
    bool operator!=(const Matrix3& m) const { return !(*this == m); }

    Matrix3 Transposed() const { return {Row(0), Row(1), Row(2)}; }
    float Determinant() const { return columns[0].Dot(columns[1].Cross(columns[2])); }
    // Writes the inverse into result and returns true; returns false and leaves
    // result alone when the matrix is singular (relative to its own scale).
    bool Inverse(Matrix3& result) const;
};

} // namespace qel
