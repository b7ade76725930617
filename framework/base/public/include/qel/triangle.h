// A triangle a, b, c; counter-clockwise seen from the side its normal points to.
#pragma once

#include <qel/export.h>
#include <qel/ray.h>
#include <qel/vector3.h>

namespace qel
{

struct QEL_API Triangle
{
    Vector3 a, b, c;

    Triangle() = default; // uninitialised
    constexpr Triangle(const Vector3& a_, const Vector3& b_, const Vector3& c_)
        : a(a_), b(b_), c(c_)
    {
    }

    Vector3 operator[](int i) const { return (&a)[i]; }
    Vector3 Centroid() const { return (a + b + c) * (1.0f / 3.0f); }
    // Unit normal (right-hand rule a -> b -> c); zero when degenerate.
    Vector3 Normal() const
    {
        return IsDegenerate() ? Vector3(0.0f) : (b - a).Cross(c - a).Normalized();
    }
    float Area() const { return 0.5f * (b - a).Cross(c - a).Length(); }
    // True when the triangle is a segment or a point, up to float noise.
    bool IsDegenerate() const;
    // Weights (u, v, w) with u + v + w == 1 and u*a + v*b + w*c the projection
    // of p onto the triangle's plane. A degenerate triangle gives the weights
    // of the closest point of its longest edge.
    Vector3 Barycentric(const Vector3& p) const;
    // The point of the triangle (its inside included) closest to p.
    Vector3 ClosestPoint(const Vector3& p) const;
    // The ray's hit with either face; degenerate triangles are never hit.
    bool IntersectRay(const Ray& ray, float& t) const;
};

} // namespace qel
