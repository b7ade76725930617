// Four-component single-precision vector: homogeneous points (w = 1) and
// directions (w = 0), colours, plane equations.
#pragma once

#include <qel/vector3.h>

#include <cmath>

namespace qel
{

struct Vector4
{
    float x, y, z, w;

    Vector4() = default; // uninitialised, like a float
    constexpr Vector4(float x_, float y_, float z_, float w_) : x(x_), y(y_), z(z_), w(w_) {}
    constexpr Vector4(const Vector3& v, float w_) : x(v.x), y(v.y), z(v.z), w(w_) {}
    constexpr explicit Vector4(float s) : x(s), y(s), z(s), w(s) {}

    float operator[](int i) const { return (&x)[i]; }
    float& operator[](int i) { return (&x)[i]; }

    Vector3 XYZ() const { return {x, y, z}; }
    // The 3D point this homogeneous point stands for (x, y, z divided by w).
    Vector3 Project() const { return XYZ() * (1.0f / w); }

    Vector4 operator-() const { return {-x, -y, -z, -w}; }
    Vector4 operator+(const Vector4& v) const { return {x + v.x, y + v.y, z + v.z, w + v.w}; }
    Vector4 operator-(const Vector4& v) const { return {x - v.x, y - v.y, z - v.z, w - v.w}; }
    Vector4 operator*(const Vector4& v) const { return {x * v.x, y * v.y, z * v.z, w * v.w}; }
    Vector4 operator*(float s) const { return {x * s, y * s, z * s, w * s}; }
    Vector4 operator/(float s) const { return *this * (1.0f / s); }
    Vector4& operator+=(const Vector4& v) { return *this = *this + v; }
    Vector4& operator-=(const Vector4& v) { return *this = *this - v; }
    Vector4& operator*=(float s) { return *this = *this * s; }
    bool operator==(const Vector4& v) const { return x == v.x && y == v.y && z == v.z && w == v.w; }
    bool operator!=(const Vector4& v) const { return !(*this == v); }

    float Dot(const Vector4& v) const { return x * v.x + y * v.y + z * v.z + w * v.w; }
    float LengthSquared() const { return Dot(*this); }
    float Length() const { return std::sqrt(LengthSquared()); }
    Vector4 Normalized() const
    {
        const float length = Length();
        return length > 0.0f ? *this * (1.0f / length) : Vector4(0.0f);
    }
};

inline Vector4 operator*(float s, const Vector4& v)
{
    return v * s;
}

} // namespace qel
