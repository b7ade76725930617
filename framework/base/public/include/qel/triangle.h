// A triangle a, b, c; counter-clockwise seen from the side its normal points to.
#pragma once

#include <qel/export.h>
#include <qel/ray.h>
#include <qel/vector3.h>

#include <cmath>
#include <cstdint>
#include <cstring>

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
    // True when the triangle is a segment or a point, up to float noise: twice
    // its area is at most 1e-6 of its longest edge squared.
    bool IsDegenerate() const { return IsFlat(b - a, c - a); }
    // Weights (u, v, w) with u + v + w == 1 and u*a + v*b + w*c the projection
    // of p onto the triangle's plane. A degenerate triangle gives the weights
    // of the closest point of its longest edge.
    Vector3 Barycentric(const Vector3& p) const;
    // The point of the triangle (its inside included) closest to p. Inline:
    // meshes call it in their innermost loops.
    Vector3 ClosestPoint(const Vector3& p) const
    {
        // A degenerate triangle is the closest of its edges; that is asked
        // first, so that a caller with one triangle and many points asks
        // once. Then the Voronoi regions of the corners, of the edges, and
        // the face.
        const Vector3 ab = b - a, ac = c - a;
        if (IsFlat(ab, ac))
            return ClosestOnEdges(a, b, c, p);
        const Vector3 ap = p - a;
        const float d1 = ab.Dot(ap), d2 = ac.Dot(ap);
        if (d1 <= 0.0f && d2 <= 0.0f)
            return a;
        const Vector3 bp = p - b;
        const float d3 = ab.Dot(bp), d4 = ac.Dot(bp);
        if (d3 >= 0.0f && d4 <= d3)
            return b;
        const float vc = d1 * d4 - d3 * d2;
        if (vc <= 0.0f && d1 >= 0.0f && d3 <= 0.0f)
            return a + ab * (d1 / (d1 - d3));
        const Vector3 cp = p - c;
        const float d5 = ab.Dot(cp), d6 = ac.Dot(cp);
        if (d6 >= 0.0f && d5 <= d6)
            return c;
        const float vb = d5 * d2 - d1 * d6;
        if (vb <= 0.0f && d2 >= 0.0f && d6 <= 0.0f)
            return a + ac * (d2 / (d2 - d6));
        const float va = d3 * d6 - d5 * d4;
        if (va <= 0.0f && d4 - d3 >= 0.0f && d5 - d6 >= 0.0f)
            return b + (c - b) * ((d4 - d3) / ((d4 - d3) + (d5 - d6)));
        const float inv = 1.0f / (va + vb + vc);
        return a + ab * (vb * inv) + ac * (vc * inv);
    }
    // The ray's hit with either face. Degenerate triangles and rays grazing
    // the plane within float noise miss: the determinant must exceed 1e-6 of
    // the product of the two edges' and the direction's lengths. The edges
    // and the corners belong to the triangle; there is no other tolerance.
    // Inline: meshes call it in their innermost loops.
    bool IntersectRay(const Ray& ray, float& t) const
    {
        // Moller-Trumbore's determinant and weights as triple products with
        // the normal, which a caller testing many rays against one triangle
        // computes once; signs are turned so that the determinant is
        // positive, and nothing is divided before the ray is known to hit.
        // The second edge, the normal and the offset are turned around
        // (a - c, (c - a) x (b - a), a - origin): each negates exactly, and
        // together they leave no negation to do per ray.
        const Vector3 e1 = b - a, e2 = a - c, normal = (c - a).Cross(e1);
        const float edges = e1.LengthSquared() * e2.LengthSquared();
        const Vector3 offset = a - ray.origin, w = offset.Cross(ray.direction);
        const float det = normal.Dot(ray.direction);
        const float sign = std::copysign(1.0f, det), size = std::fabs(det);
        const float u = e2.Dot(w) * sign, v = e1.Dot(w) * sign;
        const float hit = offset.Dot(normal) * sign;
        if (!(u >= 0.0f && v >= 0.0f && u + v <= size && hit >= 0.0f))
            return false;
        if (!(det * det > edges * ray.direction.LengthSquared() * 1e-12f))
            return false;
        t = hit / size;
        return true;
    }

private:
    // Twice the area against the squared longest edge, for edges ab and ac,
    // both sides squared: no root, so a loop over one triangle asks once. In
    // double, where the fourth powers of float lengths neither overflow nor
    // vanish. The longest edge is picked by value: std::max returns a
    // reference, which puts the lengths in memory inside callers' loops and
    // keeps the test from being hoisted out of them. Both sides are compared
    // as their bits, which order non-negative doubles as their values do:
    // compilers hoist the two sides out of a caller's loop but not the
    // comparison, which then is one integer compare of two registers
    // instead of a double's move, load and compare. (A triangle with NaN
    // corners may be taken either way.)
    static bool IsFlat(const Vector3& ab, const Vector3& ac)
    {
        const Vector3 bc = ac - ab, n = ab.Cross(ac);
        const float l1 = ab.LengthSquared(), l2 = ac.LengthSquared(), l3 = bc.LengthSquared();
        const float l23 = l3 > l2 ? l3 : l2;
        const double longest = l23 > l1 ? l23 : l1;
        const double area = double(n.x) * n.x + double(n.y) * n.y + double(n.z) * n.z;
        const double limit = longest * longest * 1e-12;
        std::int64_t areaBits, limitBits;
        std::memcpy(&areaBits, &area, sizeof areaBits);
        std::memcpy(&limitBits, &limit, sizeof limitBits);
        return !(areaBits > limitBits);
    }
    // The closest point of the three edges. Static, with the corners by
    // value: the triangle's address does not escape from callers' loops.
    // Its answer depends on its arguments alone, and it says so, so that a
    // loop calling it keeps its other pointers in registers.
    [[gnu::const]] static Vector3 ClosestOnEdges(Vector3 a, Vector3 b, Vector3 c, Vector3 p);
};

} // namespace qel
