// A sphere; radius 0 is a point.
#pragma once

#include <qel/boundingvolume.h>

#include <algorithm>
#include <cmath>

namespace qel
{

class QEL_API BoundingSphere final : public BoundingVolume
{
public:
    BoundingSphere() : BoundingVolume(BoundingVolumeType::Sphere), m_Center(0.0f), m_Radius(0.0f) {}
    // A negative radius is taken as 0.
    BoundingSphere(const Vector3& center, float radius);

    // A sphere around every point (Ritter's: within a few percent of the
    // smallest); no points give a point sphere at the origin.
    static BoundingSphere FromPoints(const Vector3* points, unsigned int count);

    const Vector3& GetCenter() const { return m_Center; }
    float GetRadius() const { return m_Radius; }
    void Set(const Vector3& center, float radius);

    bool Contains(const Vector3& point) const override;
    float Distance(const Vector3& point) const override;
    // Inline, so that bulk tests on a known sphere compile to straight code.
    bool IntersectRay(const Ray& ray, float& t) const override
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
        // a times the squared half chord, from the cross product rather than
        // b * b - a * c, which cancels catastrophically for distant spheres; no
        // division on the way to a miss.
        const float h = a * m_Radius * m_Radius - o.Cross(ray.direction).LengthSquared();
        if (h < 0.0f)
            return false;
        t = (std::max)((-b - std::sqrt(h)) / a, 0.0f);
        return true;
    }
    void Transform(const Matrix4& m) override;
    void GetBounds(Vector3& min, Vector3& max) const override;
    BoundingVolume* Clone() const override;

private:
    Vector3 m_Center;
    float m_Radius;
};

} // namespace qel
