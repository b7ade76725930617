#include <qel/boundingsphere.h>

#include "base/geometry/convex.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace qel
{

BoundingSphere::BoundingSphere(const Vector3& center, float radius)
    : BoundingVolume(BoundingVolumeType::Sphere), m_Center(center), m_Radius(std::max(radius, 0.0f))
{
}

BoundingSphere BoundingSphere::FromPoints(const Vector3* points, unsigned int count)
{
    if (count == 0)
        return BoundingSphere();
    // Start from two far-apart points, then grow to take in any point left out.
    const Vector3 first = points[0];
    Vector3 a = first, b = first;
    for (unsigned int i = 0; i < count; ++i)
        if ((points[i] - first).LengthSquared() > (a - first).LengthSquared())
            a = points[i];
    for (unsigned int i = 0; i < count; ++i)
        if ((points[i] - a).LengthSquared() > (b - a).LengthSquared())
            b = points[i];
    Vector3 center = (a + b) * 0.5f;
    float radius = (b - a).Length() * 0.5f;
    for (unsigned int i = 0; i < count; ++i)
    {
        const float distance = (points[i] - center).Length();
        if (distance > radius)
        {
            const float grown = (radius + distance) * 0.5f;
            center += (points[i] - center) * ((grown - radius) / distance);
            radius = grown;
        }
    }
    // Rounding in the growth steps and in later distance tests must not leave
    // a point a hair outside: widen by a few ulps of the largest coordinate.
    float largest = radius;
    for (unsigned int i = 0; i < count; ++i)
        for (int k = 0; k < 3; ++k)
            largest = std::max(largest, std::fabs(points[i][k]));
    return BoundingSphere(center, radius + largest * 8.0f * FLT_EPSILON);
}

void BoundingSphere::Set(const Vector3& center, float radius)
{
    m_Center = center;
    m_Radius = std::max(radius, 0.0f);
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
