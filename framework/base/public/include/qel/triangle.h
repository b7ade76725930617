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
    // The ray's hit with either face (Moller-Trumbore). Degenerate triangles
    // and rays grazing the plane within float noise miss. Inline: meshes call
    // it in their innermost loops.
    bool IntersectRay(const Ray& ray, float& t) const
    {
        const Vector3 e1 = b - a, e2 = c - a;
        const Vector3 pv = ray.direction.Cross(e2);
        const float det = e1.Dot(pv);
        // Relative to the edges and the direction (squared, to spare the
        // roots): slivers of float noise and grazing rays miss rather than
        // hit far from the triangle.
        const float scale = e1.LengthSquared() * e2.LengthSquared() * ray.direction.LengthSquared();
        if (!(det * det > scale * 1e-12f))
            return false;
        const float inv = 1.0f / det;
        const Vector3 tv = ray.origin - a;
        const float u = tv.Dot(pv) * inv;
        if (u < 0.0f || u > 1.0f)
            return false;
        const Vector3 qv = tv.Cross(e1);
        const float v = ray.direction.Dot(qv) * inv;
        if (v < 0.0f || u + v > 1.0f)
            return false;
        const float hit = e2.Dot(qv) * inv;
        if (hit < 0.0f)
            return false;
        t = hit;
        return true;
    }
};

} // namespace qel
