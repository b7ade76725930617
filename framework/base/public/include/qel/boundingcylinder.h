// A capped cylinder: a center, a unit axis, the half height along it and the
// radius. Half height 0 gives a disc, radius 0 a segment.
#pragma once

#include <qel/boundingvolume.h>

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

    bool Contains(const Vector3& point) const override;
    float Distance(const Vector3& point) const override;
    bool IntersectRay(const Ray& ray, float& t) const override;
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
