// A sphere; radius 0 is a point.
#pragma once

#include <qel/boundingvolume.h>

namespace qel
{

class QEL_API BoundingSphere : public BoundingVolume
{
public:
    BoundingSphere() : BoundingVolume(BoundingVolumeType::Sphere), m_Center(0.0f), m_Radius(0.0f) {}
    // A negative radius is taken as 0.
    BoundingSphere(const Vector3& center, float radius);

    const Vector3& GetCenter() const { return m_Center; }
    float GetRadius() const { return m_Radius; }
    void Set(const Vector3& center, float radius);

    bool Contains(const Vector3& point) const override;
    float Distance(const Vector3& point) const override;
    bool IntersectRay(const Ray& ray, float& t) const override;
    void Transform(const Matrix4& m) override;
    void GetBounds(Vector3& min, Vector3& max) const override;
    BoundingVolume* Clone() const override;

private:
    Vector3 m_Center;
    float m_Radius;
};

} // namespace qel
