// A plane: the points p with normal . p + d == 0, normal of unit length. The
// positive side is the side the normal points to.
#pragma once

#include <qel/export.h>
#include <qel/matrix4.h>
#include <qel/ray.h>
#include <qel/vector3.h>
#include <qel/vector4.h>

namespace qel
{

struct QEL_API Plane
{
    Vector3 normal;
    float d;

    Plane() = default; // uninitialised
    // The normal is normalised here; a zero normal gives an invalid plane.
    Plane(const Vector3& point, const Vector3& normal);
    // Counter-clockwise a, b, c seen from the positive side. Collinear points
    // give an invalid plane (zero normal).
    static Plane FromPoints(const Vector3& a, const Vector3& b, const Vector3& c);

    bool IsValid() const { return normal.LengthSquared() > 0.0f; }
    float SignedDistance(const Vector3& p) const { return normal.Dot(p) + d; }
    // The closest point of the plane to p.
    Vector3 Project(const Vector3& p) const { return p - normal * SignedDistance(p); }
    // The plane as (normal, d), for dot products with homogeneous points.
    Vector4 ToVector4() const { return {normal, d}; }
    // The first hit of the ray with the plane (either side). A ray in the
    // plane hits at 0; a parallel ray off the plane misses. Exact: decided by
    // the signs of the origin's distance and of the direction's speed.
    bool IntersectRay(const Ray& ray, float& t) const
    {
        const float distance = SignedDistance(ray.origin);
        const float speed = normal.Dot(ray.direction);
        if (distance == 0.0f)
        {
            t = 0.0f;
            return true;
        }
        if (!(distance > 0.0f ? speed < 0.0f : distance < 0.0f && speed > 0.0f))
            return false; // moving away, parallel, or not a number
        t = -distance / speed;
        return true;
    }
    // The plane carried by an invertible affine transform.
    Plane Transformed(const Matrix4& m) const;
};

} // namespace qel
