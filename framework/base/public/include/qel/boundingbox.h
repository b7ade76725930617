// An oriented box: a center, three orthonormal axes (the columns of a rotation
// matrix) and a half extent along each. Zero half extents give a rectangle,
// a segment or a point.
#pragma once

#include <qel/boundingvolume.h>
#include <qel/matrix3.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

namespace qel
{

class BoundingSphere;

class QEL_API BoundingBox final : public BoundingVolume
{
public:
    BoundingBox();
    // Axis-aligned box between min and max (swapped components are sorted).
    BoundingBox(const Vector3& min, const Vector3& max);
    // axes must be a rotation; negative half extents are taken as 0.
    BoundingBox(const Vector3& center, const Matrix3& axes, const Vector3& halfExtents);

    // The axis-aligned box around every point; no points give a point box at
    // the origin.
    static BoundingBox FromPoints(const Vector3* points, unsigned int count);

    const Vector3& GetCenter() const { return m_Center; }
    const Matrix3& GetAxes() const { return m_Axes; }
    const Vector3& GetHalfExtents() const { return m_HalfExtents; }
    void Set(const Vector3& center, const Matrix3& axes, const Vector3& halfExtents);
    // The corner with signs (bit 0: x, bit 1: y, bit 2: z; set means +).
    Vector3 GetCorner(int index) const;
    // The point of the box farthest along direction.
    Vector3 Support(const Vector3& direction) const;
    // The point of the box closest to point (point itself when inside).
    Vector3 ClosestPoint(const Vector3& point) const;

    // The point tests and the ray test are inline, so that bulk tests on a
    // known box compile to straight code; all three work in the box's frame.
    bool Contains(const Vector3& point) const override
    {
        // The largest excess over a half extent: no branch per axis.
        const Vector3 offset = point - m_Center;
        float excess = std::fabs(m_Axes.columns[0].Dot(offset)) - m_HalfExtents.x;
        excess = (std::max)(excess, std::fabs(m_Axes.columns[1].Dot(offset)) - m_HalfExtents.y);
        excess = (std::max)(excess, std::fabs(m_Axes.columns[2].Dot(offset)) - m_HalfExtents.z);
        return excess <= 0.0f;
    }
    float Distance(const Vector3& point) const override
    {
        return std::sqrt(DistanceSquared(point));
    }
    // The square of Distance, without its root: for comparisons with a
    // squared reach.
    float DistanceSquared(const Vector3& point) const
    {
        const Vector3 offset = point - m_Center;
        float squared = 0.0f;
        for (int i = 0; i < 3; ++i)
        {
            const float outside =
                (std::max)(std::fabs(m_Axes.columns[i].Dot(offset)) - m_HalfExtents[i], 0.0f);
            squared += outside * outside;
        }
        return squared;
    }
    // Slabs, all three clipped before the answer is asked (see ClipToSlab),
    // so t is written on a miss too.
    bool IntersectRay(const Ray& ray, float& t) const override
    {
        const Vector3 offset = ray.origin - m_Center;
        float enter = 0.0f, leave = FLT_MAX;
        bool within = true;
        for (int i = 0; i < 3; ++i)
            within &=
                ClipToSlab(m_Axes.columns[i].Dot(offset), m_Axes.columns[i].Dot(ray.direction),
                           m_HalfExtents[i], enter, leave);
        t = enter;
        return within & !(enter > leave);
    }
    using BoundingVolume::Intersects;
    // The pairs with a test of their own, without the dispatch on kinds.
    bool Intersects(const BoundingBox& other) const;
    bool Intersects(const BoundingSphere& sphere) const;
    void Transform(const Matrix4& m) override;
    void GetBounds(Vector3& min, Vector3& max) const override;
    BoundingVolume* Clone() const override;

private:
    Vector3 m_Center;
    Matrix3 m_Axes;
    Vector3 m_HalfExtents;
};

} // namespace qel
