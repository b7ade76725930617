#include <qel/plane.h>

#include <cmath>

namespace qel
{

Plane::Plane(const Vector3& point, const Vector3& n) : normal(n.Normalized()), d(0.0f)
{
    d = -normal.Dot(point);
}

Plane Plane::FromPoints(const Vector3& a, const Vector3& b, const Vector3& c)
{
    return Plane(a, (b - a).Cross(c - a));
}

Plane Plane::Transformed(const Matrix4& m) const
{
    // Normals go through the inverse transpose; points simply through m.
    Matrix3 inverse;
    if (!m.Linear().Inverse(inverse))
        return Plane(m.TransformPoint(normal * -d), Vector3(0.0f));
    return Plane(m.TransformPoint(normal * -d), inverse.Transposed() * normal);
}

} // namespace qel
