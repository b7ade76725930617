#include <qel/boundingcylinder.h>

#include "base/geometry/convex.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace qel
{

BoundingCylinder::BoundingCylinder()
    : BoundingVolume(BoundingVolumeType::Cylinder), m_Center(0.0f), m_Axis(0, 1, 0),
      m_HalfHeight(0.0f), m_Radius(0.0f)
{
}

BoundingCylinder::BoundingCylinder(const Vector3& base, const Vector3& top, float radius)
    : BoundingCylinder()
{
    Set((base + top) * 0.5f, top - base, (top - base).Length() * 0.5f, radius);
}

BoundingCylinder::BoundingCylinder(const Vector3& center, const Vector3& axis, float halfHeight,
                                   float radius)
    : BoundingCylinder()
{
    Set(center, axis, halfHeight, radius);
}

void BoundingCylinder::Set(const Vector3& center, const Vector3& axis, float halfHeight,
                           float radius)
{
    m_Center = center;
    m_Axis = axis.Normalized();
    if (m_Axis.LengthSquared() == 0.0f)
        m_Axis = Vector3(0, 1, 0);
    m_HalfHeight = std::max(halfHeight, 0.0f);
    m_Radius = std::max(radius, 0.0f);
}

Vector3 BoundingCylinder::Support(const Vector3& direction) const
{
    const float along = direction.Dot(m_Axis);
    Vector3 radial = (direction - m_Axis * along).Normalized();
    // For a direction almost along the axis the radial part is rounding noise
    // with an axial component of its own; normalising blows that up, so
    // project it out again or the point would leave the cylinder.
    radial = (radial - m_Axis * radial.Dot(m_Axis)).Normalized();
    return m_Center + m_Axis * (along >= 0.0f ? m_HalfHeight : -m_HalfHeight) + radial * m_Radius;
}

void BoundingCylinder::Transform(const Matrix4& m)
{
    // The image is an oblique elliptic cylinder around the transformed axis.
    // Its radial reach is at most radius times the largest stretch, and its
    // tilted caps reach beyond the transformed ends by the axial part of the
    // stretched radius: lengthen by that, so the result always holds it.
    const Matrix3 linear = m.Linear();
    const Vector3 stretchedAxis = linear * m_Axis;
    Vector3 axis = stretchedAxis.Normalized();
    if (axis.LengthSquared() == 0.0f)
    {
        // Flattened along the axis: the image is the disc's ellipse.
        const Vector3 u = Vector3::Perpendicular(m_Axis), v = m_Axis.Cross(u);
        axis = (linear * u).Cross(linear * v).Normalized();
        if (axis.LengthSquared() == 0.0f)
            axis = Vector3::Perpendicular(linear * u);
    }
    const Vector3 back = linear.Transposed() * axis; // radial r gives r . back along axis
    const float capReach = m_Radius * (back - m_Axis * back.Dot(m_Axis)).Length();
    m_Center = m.TransformPoint(m_Center);
    m_HalfHeight = std::fabs(stretchedAxis.Dot(axis)) * m_HalfHeight + capReach;
    m_Radius *= geometry::MaxStretch(linear);
    m_Axis = axis;
}

void BoundingCylinder::GetBounds(Vector3& min, Vector3& max) const
{
    Vector3 extent;
    for (int i = 0; i < 3; ++i)
        extent[i] = std::fabs(m_Axis[i]) * m_HalfHeight +
                    m_Radius * std::sqrt(std::max(1.0f - m_Axis[i] * m_Axis[i], 0.0f));
    min = m_Center - extent;
    max = m_Center + extent;
}

BoundingVolume* BoundingCylinder::Clone() const
{
    return new BoundingCylinder(*this);
}

} // namespace qel
