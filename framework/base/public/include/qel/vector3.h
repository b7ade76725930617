// Three-component single-precision vector: positions, directions, normals.
//
// A plain value type (trivially copyable, no alignment beyond float's), so
// arrays of it map vertex buffers directly.
#pragma once

#include <algorithm>
#include <cmath>

namespace qel
{

struct Vector3
{
    float x, y, z;

    Vector3() = default; // uninitialised, like a float
    constexpr Vector3(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}
    constexpr explicit Vector3(float s) : x(s), y(s), z(s) {}

    float operator[](int i) const { return (&x)[i]; }
    float& operator[](int i) { return (&x)[i]; }

    Vector3 operator-() const { return {-x, -y, -z}; }
    Vector3 operator+(const Vector3& v) const { return {x + v.x, y + v.y, z + v.z}; }
    Vector3 operator-(const Vector3& v) const { return {x - v.x, y - v.y, z - v.z}; }
    // Component-wise product.
    Vector3 operator*(const Vector3& v) const { return {x * v.x, y * v.y, z * v.z}; }
    Vector3 operator*(float s) const { return {x * s, y * s, z * s}; }
    Vector3 operator/(float s) const { return *this * (1.0f / s); }
    Vector3& operator+=(const Vector3& v) { return *this = *this + v; }
    Vector3& operator-=(const Vector3& v) { return *this = *this - v; }
    Vector3& operator*=(float s) { return *this = *this * s; }
    bool operator==(const Vector3& v) const { return x == v.x && y == v.y && z == v.z; }
    bool operator!=(const Vector3& v) const { return !(*this == v); }

    float Dot(const Vector3& v) const { return x * v.x + y * v.y + z * v.z; }
    Vector3 Cross(const Vector3& v) const
    {
        return {y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x};
    }
    float LengthSquared() const { return Dot(*this); }
    float Length() const { return std::sqrt(LengthSquared()); }
    // The unit vector along this one; the zero vector stays zero.
    Vector3 Normalized() const
    {
        const float length = Length();
        return length > 0.0f ? *this * (1.0f / length) : Vector3(0.0f);
    }
    float MaxComponent() const { return (std::max)(x, (std::max)(y, z)); }

    static Vector3 Min(const Vector3& a, const Vector3& b)
    {
        return {(std::min)(a.x, b.x), (std::min)(a.y, b.y), (std::min)(a.z, b.z)};
    }
    static Vector3 Max(const Vector3& a, const Vector3& b)
    {
        return {(std::max)(a.x, b.x), (std::max)(a.y, b.y), (std::max)(a.z, b.z)};
    }
    static Vector3 Lerp(const Vector3& a, const Vector3& b, float t) { return a + (b - a) * t; }
    // A unit vector perpendicular to n (n need not be unit; zero gives +x).
    static Vector3 Perpendicular(const Vector3& n)
    {
        const Vector3 other = std::fabs(n.x) < 0.57f ? Vector3(1, 0, 0) : Vector3(0, 1, 0);
        const Vector3 p = n.Cross(other).Normalized();
        return p.LengthSquared() > 0.0f ? p : Vector3(1, 0, 0);
    }
};

inline Vector3 operator*(float s, const Vector3& v)
{
    return v * s;
}

} // namespace qel
