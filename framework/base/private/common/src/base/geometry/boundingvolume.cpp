#include <qel/boundingbox.h>
#include <qel/boundingcylinder.h>
#include <qel/boundinginfinite.h>
#include <qel/boundingmesh.h>
#include <qel/boundingsphere.h>

#include "base/geometry/convex.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

namespace qel
{

BoundingVolume::~BoundingVolume() = default;

bool BoundingVolume::IntersectSegment(const Vector3& start, const Vector3& end,
                                      float& distance) const
{
    float t;
    if (!IntersectRay(Ray(start, end - start), t) || t > 1.0f)
        return false;
    distance = t * (end - start).Length();
    return true;
}

// ---- the infinite volume ---------------------------------------------------

bool BoundingInfinite::Contains(const Vector3&) const
{
    return true;
}

float BoundingInfinite::Distance(const Vector3&) const
{
    return 0.0f;
}

bool BoundingInfinite::IntersectRay(const Ray&, float& t) const
{
    t = 0.0f;
    return true;
}

void BoundingInfinite::Transform(const Matrix4&) {}

void BoundingInfinite::GetBounds(Vector3& min, Vector3& max) const
{
    min = Vector3(-FLT_MAX);
    max = Vector3(FLT_MAX);
}

BoundingVolume* BoundingInfinite::Clone() const
{
    return new BoundingInfinite(*this);
}

// ---- pair tests -------------------------------------------------------------

namespace
{

using geometry::ConvexDistance;
using geometry::ConvexShape;
using geometry::TriangleShape;

class BoxShape final : public ConvexShape
{
public:
    explicit BoxShape(const BoundingBox& box) : m_Box(box) {}
    Vector3 Support(const Vector3& d) const override { return m_Box.Support(d); }
    Vector3 Inside() const override { return m_Box.GetCenter(); }

private:
    const BoundingBox& m_Box;
};

class CylinderShape final : public ConvexShape
{
public:
    explicit CylinderShape(const BoundingCylinder& cylinder) : m_Cylinder(cylinder) {}
    Vector3 Support(const Vector3& d) const override { return m_Cylinder.Support(d); }
    Vector3 Inside() const override { return m_Cylinder.GetBase(); }

private:
    const BoundingCylinder& m_Cylinder;
};

struct Bounds
{
    Vector3 min, max;
    explicit Bounds(const BoundingVolume& v) { v.GetBounds(min, max); }
    explicit Bounds(const Triangle& t)
        : min(Vector3::Min(t.a, Vector3::Min(t.b, t.c))),
          max(Vector3::Max(t.a, Vector3::Max(t.b, t.c)))
    {
    }
    bool Overlaps(const Bounds& o) const
    {
        return min.x <= o.max.x && o.min.x <= max.x && min.y <= o.max.y && o.min.y <= max.y &&
               min.z <= o.max.z && o.min.z <= max.z;
    }
};

bool MeshAgainstConvex(const BoundingMesh& mesh, const BoundingVolume& volume,
                       const ConvexShape& shape)
{
    const Bounds bounds(volume);
    if (mesh.GetTriangles().empty() || !Bounds(mesh).Overlaps(bounds))
        return false;
    for (const Triangle& t : mesh.GetTriangles())
        if (Bounds(t).Overlaps(bounds) && ConvexDistance(TriangleShape(t), shape) == 0.0f)
            return true;
    // No triangle meets the volume: either apart or wholly inside the mesh.
    return mesh.Contains(shape.Inside());
}

bool MeshAgainstMesh(const BoundingMesh& a, const BoundingMesh& b)
{
    if (a.GetTriangles().empty() || b.GetTriangles().empty() || !Bounds(a).Overlaps(Bounds(b)))
        return false;
    const Bounds bBounds(b);
    for (const Triangle& ta : a.GetTriangles())
    {
        const Bounds taBounds(ta);
        if (!taBounds.Overlaps(bBounds))
            continue;
        const TriangleShape sa(ta);
        for (const Triangle& tb : b.GetTriangles())
            if (taBounds.Overlaps(Bounds(tb)) && ConvexDistance(sa, TriangleShape(tb)) == 0.0f)
                return true;
    }
    return a.Contains(b.GetTriangles()[0].a) || b.Contains(a.GetTriangles()[0].a);
}

} // namespace

// Separating axes of two oriented boxes: the six face normals and the nine
// edge cross products. A small term on the rotation keeps nearly parallel
// edges from inventing a separation out of rounding.
bool BoundingBox::Intersects(const BoundingBox& other) const
{
    const Matrix3& axesA = m_Axes;
    const Matrix3& axesB = other.m_Axes;
    const Vector3 ea = m_HalfExtents, eb = other.m_HalfExtents;
    const Vector3 offset = other.m_Center - m_Center;
    float r[3][3], absR[3][3];
    Vector3 t;
    for (int i = 0; i < 3; ++i)
    {
        t[i] = offset.Dot(axesA.columns[i]);
        for (int j = 0; j < 3; ++j)
        {
            r[i][j] = axesA.columns[i].Dot(axesB.columns[j]);
            absR[i][j] = std::fabs(r[i][j]) + 1e-6f;
        }
    }
    // Touching counts as intersecting, up to the rounding of the distances.
    const float slack = (ea.MaxComponent() + eb.MaxComponent() + offset.Length()) * 1e-6f;
    for (int i = 0; i < 3; ++i)
        if (std::fabs(t[i]) >
            ea[i] + eb[0] * absR[i][0] + eb[1] * absR[i][1] + eb[2] * absR[i][2] + slack)
            return false;
    for (int j = 0; j < 3; ++j)
        if (std::fabs(t[0] * r[0][j] + t[1] * r[1][j] + t[2] * r[2][j]) >
            ea[0] * absR[0][j] + ea[1] * absR[1][j] + ea[2] * absR[2][j] + eb[j] + slack)
            return false;
    for (int i = 0; i < 3; ++i)
    {
        const int i1 = (i + 1) % 3, i2 = (i + 2) % 3;
        for (int j = 0; j < 3; ++j)
        {
            const int j1 = (j + 1) % 3, j2 = (j + 2) % 3;
            const float distance = std::fabs(t[i2] * r[i1][j] - t[i1] * r[i2][j]);
            const float ra = ea[i1] * absR[i2][j] + ea[i2] * absR[i1][j];
            const float rb = eb[j1] * absR[i][j2] + eb[j2] * absR[i][j1];
            if (distance > ra + rb + slack)
                return false;
        }
    }
    return true;
}

bool BoundingBox::Intersects(const BoundingSphere& sphere) const
{
    return sphere.Intersects(*this);
}

bool BoundingVolume::Intersects(const BoundingVolume& other) const
{
    // Order the pair by kind so each test is written once.
    const BoundingVolume* a = this;
    const BoundingVolume* b = &other;
    if (a->GetType() > b->GetType())
        std::swap(a, b);
    if (b->GetType() == BoundingVolumeType::Infinite)
        return true;
    switch (a->GetType())
    {
    case BoundingVolumeType::Sphere:
    {
        const BoundingSphere& sphere = *static_cast<const BoundingSphere*>(a);
        if (b->GetType() == BoundingVolumeType::Sphere)
            return sphere.Intersects(*static_cast<const BoundingSphere*>(b));
        if (b->GetType() == BoundingVolumeType::Box)
            return sphere.Intersects(*static_cast<const BoundingBox*>(b));
        return sphere.Reaches(b->Distance(sphere.GetCenter()));
    }
    case BoundingVolumeType::Box:
    {
        const BoundingBox& box = *static_cast<const BoundingBox*>(a);
        if (b->GetType() == BoundingVolumeType::Mesh)
            return MeshAgainstConvex(*static_cast<const BoundingMesh*>(b), box, BoxShape(box));
        if (b->GetType() == BoundingVolumeType::Box)
            return box.Intersects(*static_cast<const BoundingBox*>(b));
        return ConvexDistance(BoxShape(box),
                              CylinderShape(*static_cast<const BoundingCylinder*>(b))) == 0.0f;
    }
    case BoundingVolumeType::Cylinder:
    {
        const BoundingCylinder& cylinder = *static_cast<const BoundingCylinder*>(a);
        if (b->GetType() == BoundingVolumeType::Mesh)
            return MeshAgainstConvex(*static_cast<const BoundingMesh*>(b), cylinder,
                                     CylinderShape(cylinder));
        return ConvexDistance(CylinderShape(cylinder),
                              CylinderShape(*static_cast<const BoundingCylinder*>(b))) == 0.0f;
    }
    case BoundingVolumeType::Mesh:
        return MeshAgainstMesh(*static_cast<const BoundingMesh*>(a),
                               *static_cast<const BoundingMesh*>(b));
    case BoundingVolumeType::Infinite:
        break;
    }
    return true;
}

} // namespace qel
