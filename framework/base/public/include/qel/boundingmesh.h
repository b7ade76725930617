// A closed triangle mesh and the axis-aligned box around it. The volume is
// the inside of the surface: a point is contained when it lies on a triangle
// (within 1e-6 of the box's largest half extent) or when the ray from it
// along +z crosses the surface an odd number of times. The crossings are
// counted so that a ray through an edge or a corner shared by triangles
// crosses exactly one of them (or none, where the surface only touches the
// ray), however the float values round: for a closed mesh whose triangles
// share their corners exactly, the count is exact. An open mesh still
// answers, but its inside is then only as meaningful as the crossing count.
#pragma once

#include <qel/boundingbox.h>
#include <qel/boundingvolume.h>
#include <qel/generalallocator.h>
#include <qel/triangle.h>

#include <vector>

namespace qel
{

class QEL_API BoundingMesh final : public BoundingVolume
{
public:
    typedef std::vector<Triangle, GeneralAllocator<Triangle>> TriangleList;

    BoundingMesh();
    BoundingMesh(const Triangle* triangles, unsigned int count);

    const TriangleList& GetTriangles() const { return m_Triangles; }
    void SetTriangles(const Triangle* triangles, unsigned int count);
    // The axis-aligned box around every triangle (empty mesh: a point at 0).
    const BoundingBox& GetBox() const { return m_Box; }

    // An empty mesh contains nothing, is hit by nothing and lies at FLT_MAX
    // from every point.
    bool Contains(const Vector3& point) const override;
    float Distance(const Vector3& point) const override;
    bool IntersectRay(const Ray& ray, float& t) const override;
    void Transform(const Matrix4& m) override;
    void GetBounds(Vector3& min, Vector3& max) const override;
    BoundingVolume* Clone() const override;

private:
    // The axis-aligned box of each triangle, to skip most of them in every
    // query.
    struct Bounds
    {
        Vector3 min, max;
    };
    typedef std::vector<Bounds, GeneralAllocator<Bounds>> BoundsList;

    void UpdateBox();
    // The number of triangles the ray from point along +z crosses.
    int CountCrossings(const Vector3& point) const;
    // Points this close to a triangle are on the surface.
    float SurfaceTolerance() const;
    // The smallest squared distance from point to a triangle, or limit when
    // no triangle is nearer.
    float NearestSquared(const Vector3& point, float limit) const;
    // The first triangle hit along the ray, ignoring the inside.
    bool FirstSurfaceHit(const Ray& ray, float& t) const;

    TriangleList m_Triangles;
    BoundsList m_Bounds;
    BoundingBox m_Box;
};

} // namespace qel
