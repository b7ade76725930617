// The volume that contains everything: every point is inside at distance 0,
// every ray hits where it starts, every volume intersects it.
#pragma once

#include <qel/boundingvolume.h>

namespace qel
{

class QEL_API BoundingInfinite final : public BoundingVolume
{
public:
    BoundingInfinite() : BoundingVolume(BoundingVolumeType::Infinite) {}

    bool Contains(const Vector3& point) const override;
    float Distance(const Vector3& point) const override;
    bool IntersectRay(const Ray& ray, float& t) const override;
    void Transform(const Matrix4& m) override;
    void GetBounds(Vector3& min, Vector3& max) const override;
    BoundingVolume* Clone() const override;
};

} // namespace qel
