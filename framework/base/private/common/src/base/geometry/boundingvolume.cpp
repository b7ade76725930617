#include <qel/boundingbox.h>
#include <qel/boundingcylinder.h>
#include <qel/boundinginfinite.h>
#include <qel/boundingmesh.h>
#include <qel/boundingsphere.h>

#include "base/geometry/convex.h"

#include <algorithm>
#include <cfloat>
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

// Sphere against anything with an exact distance: compare with the radius,
// leaving room for the rounding of that distance.
bool SphereAgainst(const BoundingSphere& sphere, const BoundingVolume& other)
{
    const float r = sphere.GetRadius();
    const float d = other.Distance(sphere.GetCenter());
    return d <= r + std::max(r, d) * 1e-6f;
}

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
        return SphereAgainst(*static_cast<const BoundingSphere*>(a), *b);
    case BoundingVolumeType::Box:
    {
        const BoundingBox& box = *static_cast<const BoundingBox*>(a);
        if (b->GetType() == BoundingVolumeType::Mesh)
            return MeshAgainstConvex(*static_cast<const BoundingMesh*>(b), box, BoxShape(box));
        if (b->GetType() == BoundingVolumeType::Box)
            return ConvexDistance(BoxShape(box), BoxShape(*static_cast<const BoundingBox*>(b))) ==
                   0.0f;
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
