// A capped cylinder: a center, a unit axis, the half height along it and the
// radius. Half height 0 gives a disc, radius 0 a segment.
#pragma once

#include <qel/boundingvolume.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

namespace qel
{

class QEL_API BoundingCylinder final : public BoundingVolume
{
public:
    BoundingCylinder();
    // Between the centers of the end discs; equal ends give a disc facing +y.
    // A negative radius is taken as 0.
    BoundingCylinder(const Vector3& base, const Vector3& top, float radius);
    // axis is normalised here (a zero axis becomes +y); negative sizes are 0.
    BoundingCylinder(const Vector3& center, const Vector3& axis, float halfHeight, float radius);

    const Vector3& GetCenter() const { return m_Center; }
    const Vector3& GetAxis() const { return m_Axis; }
    float GetHalfHeight() const { return m_HalfHeight; }
    float GetRadius() const { return m_Radius; }
    Vector3 GetBase() const { return m_Center - m_Axis * m_HalfHeight; }
    Vector3 GetTop() const { return m_Center + m_Axis * m_HalfHeight; }
    void Set(const Vector3& center, const Vector3& axis, float halfHeight, float radius);
    // The point of the cylinder farthest along direction.
    Vector3 Support(const Vector3& direction) const;

    // The point tests and the ray test are inline, so that bulk tests on a
    // known cylinder compile to straight code.
    bool Contains(const Vector3& point) const override
    {
        const Vector3 offset = point - m_Center;
        const float along = offset.Dot(m_Axis);
        // Both excesses at once: no branch.
        return (std::max)(std::fabs(along) - m_HalfHeight,
                          (offset - m_Axis * along).LengthSquared() - m_Radius * m_Radius) <= 0.0f;
    }
    float Distance(const Vector3& point) const override
    {
        const Vector3 offset = point - m_Center;
        const float along = offset.Dot(m_Axis);
        const float axial = (std::max)(std::fabs(along) - m_HalfHeight, 0.0f);
        const float radial = (std::max)((offset - m_Axis * along).Length() - m_Radius, 0.0f);
        return std::sqrt(axial * axial + radial * radial);
    }
    // The ray's interval inside the infinite cylinder, intersected with its
    // interval between the caps. A direction within 1e-6 of the axis (by the
    // sine of their angle) is taken as along it; otherwise exact. As the
    // box's, without a branch on the answer (see ClipToSlab), so t is written
    // on a miss too; only a direction along the axis takes a branch.
    bool IntersectRay(const Ray& ray, float& t) const override
    {
        const Vector3 offset = ray.origin - m_Center;
        const float oa = offset.Dot(m_Axis), da = ray.direction.Dot(m_Axis);
        // The ray's line passes the axis at the distance
        // |axis . (offset x d)| / |d|, d the direction across it.
        const Vector3 d = ray.direction - m_Axis * da;
        const float a = d.LengthSquared();
        float enter = 0.0f, leave = FLT_MAX;
        bool within;
        if (a <= ray.direction.LengthSquared() * 1e-12f)
        {
            // Along the axis: inside the infinite cylinder everywhere or nowhere.
            within = !((offset - m_Axis * oa).LengthSquared() > m_Radius * m_Radius);
        }
        else
        {
            const float passing = m_Axis.Dot(offset.Cross(d));
            // a times the squared half chord.
            const float h = m_Radius * m_Radius * a - passing * passing;
            // The root of |h|, as the sphere's: no branch to set errno.
            within = !std::isless(h, 0.0f);
            const float inverse = 1.0f / a;
            const float closest = -offset.Dot(d) * inverse,
                        half = std::sqrt(std::fabs(h)) * inverse;
            enter = (std::max)(enter, closest - half);
            leave = closest + half;
        }
        // Between the caps.
        within &= ClipToSlab(oa, da, m_HalfHeight, enter, leave);
        t = enter;
        return within & !(enter > leave);
    }
    void Transform(const Matrix4& m) override;
    void GetBounds(Vector3& min, Vector3& max) const override;
    BoundingVolume* Clone() const override;

private:
    Vector3 m_Center;
    Vector3 m_Axis;
    float m_HalfHeight;
    float m_Radius;
};

} // namespace qel
