#include <qel/boundingsphere.h>

#include "base/geometry/convex.h"

#include <algorithm>
#include <cmath>

namespace qel
{

BoundingSphere::BoundingSphere(const Vector3& center, float radius)
    : BoundingVolume(BoundingVolumeType::Sphere), m_Center(center), m_Radius(std::max(radius, 0.0f))
{
}

void BoundingSphere::Set(const Vector3& center, float radius)
{
    m_Center = center;
    m_Radius = std::max(radius, 0.0f);
}

bool BoundingSphere::Contains(const Vector3& point) const
{
    return (point - m_Center).LengthSquared() <= m_Radius * m_Radius;
}

float BoundingSphere::Distance(const Vector3& point) const
{
    return std::max((point - m_Center).Length() - m_Radius, 0.0f);
}

void BoundingSphere::Transform(const Matrix4& m)
{
    m_Center = m.TransformPoint(m_Center);
    m_Radius *= geometry::MaxStretch(m.Linear());
}

void BoundingSphere::GetBounds(Vector3& min, Vector3& max) const
{
    min = m_Center - Vector3(m_Radius);
    max = m_Center + Vector3(m_Radius);
}

BoundingVolume* BoundingSphere::Clone() const
{
    return new BoundingSphere(*this);
}

} // namespace qel
