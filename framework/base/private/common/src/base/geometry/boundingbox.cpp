#include <qel/boundingbox.h>

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace qel
{

namespace
{

Vector3 NonNegative(const Vector3& v)
{
    return Vector3::Max(v, Vector3(0.0f));
}

} // namespace

BoundingBox::BoundingBox()
    : BoundingVolume(BoundingVolumeType::Box), m_Center(0.0f), m_Axes(Matrix3::Identity()),
      m_HalfExtents(0.0f)
{
}

BoundingBox::BoundingBox(const Vector3& min, const Vector3& max)
    : BoundingVolume(BoundingVolumeType::Box), m_Center((min + max) * 0.5f),
      m_Axes(Matrix3::Identity()),
      m_HalfExtents((Vector3::Max(min, max) - Vector3::Min(min, max)) * 0.5f)
{
    // Center and half extents are rounded: widen by an ulp or two so that
    // min and max themselves stay inside.
    for (int i = 0; i < 3; ++i)
        m_HalfExtents[i] += (std::fabs(m_Center[i]) + m_HalfExtents[i]) * FLT_EPSILON;
}

BoundingBox::BoundingBox(const Vector3& center, const Matrix3& axes, const Vector3& halfExtents)
    : BoundingVolume(BoundingVolumeType::Box), m_Center(center), m_Axes(axes),
      m_HalfExtents(NonNegative(halfExtents))
{
}

BoundingBox BoundingBox::FromPoints(const Vector3* points, unsigned int count)
{
    if (count == 0)
        return BoundingBox();
    Vector3 min = points[0], max = points[0];
    for (unsigned int i = 1; i < count; ++i)
    {
        min = Vector3::Min(min, points[i]);
        max = Vector3::Max(max, points[i]);
    }
    return BoundingBox(min, max);
}

void BoundingBox::Set(const Vector3& center, const Matrix3& axes, const Vector3& halfExtents)
{
    m_Center = center;
    m_Axes = axes;
    m_HalfExtents = NonNegative(halfExtents);
}

Vector3 BoundingBox::GetCorner(int index) const
{
    Vector3 corner = m_Center;
    for (int i = 0; i < 3; ++i)
        corner += m_Axes.columns[i] * ((index >> i) & 1 ? m_HalfExtents[i] : -m_HalfExtents[i]);
    return corner;
}

Vector3 BoundingBox::Support(const Vector3& direction) const
{
    Vector3 p = m_Center;
    for (int i = 0; i < 3; ++i)
        p += m_Axes.columns[i] *
             (m_Axes.columns[i].Dot(direction) >= 0.0f ? m_HalfExtents[i] : -m_HalfExtents[i]);
    return p;
}

Vector3 BoundingBox::ClosestPoint(const Vector3& point) const
{
    const Vector3 offset = point - m_Center;
    Vector3 p = m_Center;
    for (int i = 0; i < 3; ++i)
    {
        const float h = m_HalfExtents[i];
        p += m_Axes.columns[i] * std::min(std::max(m_Axes.columns[i].Dot(offset), -h), h);
    }
    return p;
}

void BoundingBox::Transform(const Matrix4& m)
{
    // The image is a parallelepiped with edges e; fit an orthonormal frame to
    // it (Gram-Schmidt from the longest edge) and take its extent along each
    // axis. For a rotation and uniform scale the frame is exact.
    const Matrix3 linear = m.Linear();
    Vector3 e[3];
    int order[3] = {0, 1, 2};
    for (int i = 0; i < 3; ++i)
        e[i] = linear * (m_Axes.columns[i] * m_HalfExtents[i]);
    std::sort(order, order + 3,
              [&](int a, int b) { return e[a].LengthSquared() > e[b].LengthSquared(); });
    Vector3 a0 = e[order[0]].Normalized();
    if (a0.LengthSquared() == 0.0f)
        a0 = (linear * m_Axes.columns[0]).Normalized();
    if (a0.LengthSquared() == 0.0f)
        a0 = Vector3(1, 0, 0);
    Vector3 a1 = (e[order[1]] - a0 * a0.Dot(e[order[1]])).Normalized();
    if (!(a1.LengthSquared() > 0.5f))
        a1 = Vector3::Perpendicular(a0);
    Vector3 axes[3];
    axes[order[0]] = a0;
    axes[order[1]] = a1;
    axes[order[2]] = a0.Cross(a1);
    // Keep a right-handed frame whatever the order.
    if (axes[0].Cross(axes[1]).Dot(axes[2]) < 0.0f)
        axes[order[2]] = -axes[order[2]];
    Vector3 half;
    for (int j = 0; j < 3; ++j)
        half[j] = std::fabs(e[0].Dot(axes[j])) + std::fabs(e[1].Dot(axes[j])) +
                  std::fabs(e[2].Dot(axes[j]));
    m_Center = m.TransformPoint(m_Center);
    m_Axes = Matrix3(axes[0], axes[1], axes[2]);
    m_HalfExtents = half;
}

void BoundingBox::GetBounds(Vector3& min, Vector3& max) const
{
    Vector3 extent(0.0f);
    for (int i = 0; i < 3; ++i)
    {
        const Vector3& axis = m_Axes.columns[i];
        extent +=
            Vector3(std::fabs(axis.x), std::fabs(axis.y), std::fabs(axis.z)) * m_HalfExtents[i];
    }
    min = m_Center - extent;
    max = m_Center + extent;
}

BoundingVolume* BoundingBox::Clone() const
{
    return new BoundingBox(*this);
}

} // namespace qel
