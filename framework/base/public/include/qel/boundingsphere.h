// A sphere; radius 0 is a point.
#pragma once

#include <qel/boundingbox.h>
#include <qel/boundingvolume.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace qel
{

class QEL_API BoundingSphere final : public BoundingVolume
{
public:
    BoundingSphere() : BoundingVolume(BoundingVolumeType::Sphere), m_Center(0.0f), m_Radius(0.0f) {}
    // A negative radius is taken as 0.
    BoundingSphere(const Vector3& center, float radius);

    // A sphere around every point (Ritter's: within a few percent of the
    // smallest); no points give a point sphere at the origin.
    static BoundingSphere FromPoints(const Vector3* points, unsigned int count);

    const Vector3& GetCenter() const { return m_Center; }
    float GetRadius() const { return m_Radius; }
    void Set(const Vector3& center, float radius);

    // Inline, like the ray test: bulk tests on a known sphere compile to
    // straight code.
    bool Contains(const Vector3& point) const override
    {
        return (point - m_Center).LengthSquared() <= m_Radius * m_Radius;
    }
    float Distance(const Vector3& point) const override
    {
        return (std::max)((point - m_Center).Length() - m_Radius, 0.0f);
    }
    // In double precision: there the differences and products of float
    // coordinates lose (next to) nothing, so the discriminant b * b - a * c
    // keeps its digits for a small sphere far from the origin (in float that
    // takes a cross product), and the inside is decided without the rounding
    // that Contains has.
    //
    // Without a branch on the answer: a loop over rays that hit about half
    // the time would mispredict every other ray, which costs more than
    // taking the root and the quotient of every ray. So t is written on a
    // miss too, where it means nothing.
    bool IntersectRay(const Ray& ray, float& t) const override
    {
        const double ox = double(ray.origin.x) - m_Center.x, oy = double(ray.origin.y) - m_Center.y,
                     oz = double(ray.origin.z) - m_Center.z;
        const double c = ox * ox + oy * oy + oz * oz - double(m_Radius) * m_Radius;
        const double dx = ray.direction.x, dy = ray.direction.y, dz = ray.direction.z;
        const double b = ox * dx + oy * dy + oz * dz;
        const double h = b * b - (dx * dx + dy * dy + dz * dz) * c;
        // Inside (or not a number); otherwise moving toward the center and
        // not passing by.
        const bool inside = !(c > 0.0);
        const bool hit = inside | ((b < 0.0) & (h >= 0.0));
        // The near root (-b - sqrt(h)) / a without its cancellation. The root
        // of |h|: compilers branch to a library call that sets errno before
        // a root of a negative number, a branch now never taken.
        const float near = float(c / (std::sqrt(std::fabs(h)) - b));
        // 0 from inside: the bits of the root masked off, not a select,
        // which compilers turn back into a branch.
        std::uint32_t bits;
        std::memcpy(&bits, &near, sizeof bits);
        bits &= std::uint32_t(inside) - 1u;
        std::memcpy(&t, &bits, sizeof t);
        return hit;
    }
    using BoundingVolume::Intersects;
    // The pairs with a test of their own, without the dispatch on kinds.
    // Spheres meet when their centers are no farther apart than the sum of
    // the radii, widened by 1e-6 of itself so that touching survives the
    // rounding of the squares.
    bool Intersects(const BoundingSphere& other) const
    {
        return Meet(m_Center, m_Radius, other.m_Center, other.m_Radius);
    }
    // Reaches, both sides squared: no root is taken.
    bool Intersects(const BoundingBox& box) const
    {
        return box.DistanceSquared(m_Center) * ((1.0f - 1e-6f) * (1.0f - 1e-6f)) <=
               m_Radius * m_Radius;
    }
    // True when a volume this far from the center meets the sphere: the
    // radius is widened by 1e-6 of the larger of the two, for the rounding of
    // the distance. That is the distance shrunk by 1e-6 of itself: widening
    // by 1e-6 of the radius matters only when the distance is the smaller.
    bool Reaches(float distance) const { return distance * (1.0f - 1e-6f) <= m_Radius; }
    void Transform(const Matrix4& m) override;
    void GetBounds(Vector3& min, Vector3& max) const override;
    BoundingVolume* Clone() const override;

private:
    // By value: a caller's loop over pairs in an array addresses both
    // spheres from one index, as it would for its own.
    static bool Meet(Vector3 a, float ra, Vector3 b, float rb)
    {
        const float reach = (ra + rb) * (1.0f + 1e-6f);
        return (a - b).LengthSquared() <= reach * reach;
    }

    Vector3 m_Center;
    float m_Radius;
};

} // namespace qel
