// Two-component single-precision vector, a plain value type: texture
// coordinates, screen positions, 2D directions.
#pragma once

#include <cmath>

namespace qel
{

struct Vector2
{
    float x, y;

    Vector2() = default; // uninitialised, like a float
    constexpr Vector2(float x_, float y_) : x(x_), y(y_) {}
    constexpr explicit Vector2(float s) : x(s), y(s) {}

    float operator[](int i) const { return (&x)[i]; }
    float& operator[](int i) { return (&x)[i]; }

    Vector2 operator-() const { return {-x, -y}; }
    Vector2 operator+(const Vector2& v) const { return {x + v.x, y + v.y}; }
    Vector2 operator-(const Vector2& v) const { return {x - v.x, y - v.y}; }
    Vector2 operator*(const Vector2& v) const { return {x * v.x, y * v.y}; }
    Vector2 operator*(float s) const { return {x * s, y * s}; }
    Vector2 operator/(float s) const { return *this * (1.0f / s); }
    Vector2& operator+=(const Vector2& v) { return *this = *this + v; }
    Vector2& operator-=(const Vector2& v) { return *this = *this - v; }
    Vector2& operator*=(float s) { return *this = *this * s; }
    bool operator==(const Vector2& v) const { return x == v.x && y == v.y; }
    bool operator!=(const Vector2& v) const { return !(*this == v); }

    float Dot(const Vector2& v) const { return x * v.x + y * v.y; }
    // z of the 3D cross product: positive when v is counter-clockwise of this.
    float Cross(const Vector2& v) const { return x * v.y - y * v.x; }
    float LengthSquared() const { return Dot(*this); }
    float Length() const { return std::sqrt(LengthSquared()); }
    // The unit vector along this one; the zero vector stays zero.
    Vector2 Normalized() const
    {
        const float length = Length();
        return length > 0.0f ? *this * (1.0f / length) : Vector2(0.0f);
    }
};

inline Vector2 operator*(float s, const Vector2& v)
{
    return v * s;
}

} // namespace qel
