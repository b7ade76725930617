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

bool BoundingSphere::IntersectRay(const Ray& ray, float& t) const
{
    const Vector3 o = ray.origin - m_Center;
    const float c = o.LengthSquared() - m_Radius * m_Radius;
    if (c <= 0.0f)
    {
        t = 0.0f;
        return true;
    }
    const float a = ray.direction.LengthSquared();
    const float b = o.Dot(ray.direction);
    if (b >= 0.0f || a == 0.0f)
        return false; // outside and moving away (or not moving)
    // Discriminant from the closest approach rather than b*b - a*c, which
    // cancels catastrophically for distant spheres.
    const float inv = 1.0f / a;
    const Vector3 offset = o - ray.direction * (b * inv);
    const float h = m_Radius * m_Radius - offset.LengthSquared();
    if (h < 0.0f)
        return false;
    t = std::max((-b - std::sqrt(a * h)) * inv, 0.0f);
    return true;
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
