// The interface every bounding volume answers: sphere, oriented box, capped
// cylinder, closed triangle mesh, and the infinite volume.
//
// Volumes are closed sets: a point on the surface is contained, and two
// volumes that only touch intersect. Every pair of kinds has its own test
// (the infinite volume intersects everything); the convex pairs without a
// closed form use a GJK distance query, so touching, zero-size and parallel
// configurations need no extra handling from the caller.
//
// Exact tests compare the float results themselves, with no tolerance: they
// can differ from the true answer only by the rounding of those results.
// - Sphere: Contains, Distance and IntersectRay are exact (the ray test works
//   in double precision). Sphere and sphere: the sum of the radii is widened
//   by 1e-6 of itself. Sphere and any other volume: the volume's exact
//   Distance from the center against the radius widened by 1e-6 of the
//   larger of the two (for a box, both squared).
// - Box: Contains, Distance and IntersectRay are exact. Box and box
//   (separating axes): 1e-6 is added to every term of the rotation between
//   the boxes, and a separation must exceed 1e-6 of the sum of their largest
//   half extents and the distance between their centers.
// - Cylinder: Contains and Distance are exact; IntersectRay takes a
//   direction within 1e-6 (the sine of the angle) of the axis as along it.
// - Mesh: the crossing count is exact (see BoundingMesh); a point within 1e-6
//   of its box's largest half extent from a triangle is on the surface; rays
//   hit triangles as Triangle::IntersectRay decides.
// - Box and cylinder, two cylinders, and a mesh's triangles against a box, a
//   cylinder or another mesh (GJK): shapes within 1e-5 of the pair's size
//   touch.
// - Infinite: exact.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/matrix4.h>
#include <qel/ray.h>
#include <qel/vector3.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace qel
{

enum class BoundingVolumeType
{
    Sphere,
    Box,
    Cylinder,
    Mesh,
    Infinite,
};

class QEL_API BoundingVolume
{
public:
    QEL_ALLOCATION_OPERATORS

    virtual ~BoundingVolume();

    BoundingVolumeType GetType() const { return m_Type; }

    virtual bool Contains(const Vector3& point) const = 0;
    // Euclidean distance from point to the volume; 0 inside.
    virtual float Distance(const Vector3& point) const = 0;
    // The first point of the ray inside the volume: t >= 0 in units of the
    // ray's direction, 0 when the ray starts inside. A zero direction hits
    // exactly when the origin is inside. A miss may change t.
    virtual bool IntersectRay(const Ray& ray, float& t) const = 0;
    // The first point of the segment from start to end inside the volume, as
    // a distance from start (0 when start is inside).
    bool IntersectSegment(const Vector3& start, const Vector3& end, float& distance) const;
    // True when the two volumes share at least one point.
    bool Intersects(const BoundingVolume& other) const;
    // Carries the volume through an affine transform (the last row of m is
    // taken as 0 0 0 1). Rigid motions and uniform scales are exact; other
    // transforms give a volume of the same kind that holds the exact image
    // (sphere and cylinder radii grow by the largest stretch of m and a
    // cylinder lengthens to hold its tilted caps; boxes are refitted around
    // the sheared box).
    virtual void Transform(const Matrix4& m) = 0;
    // The axis-aligned box around the volume (the infinite volume returns
    // -FLT_MAX and FLT_MAX).
    virtual void GetBounds(Vector3& min, Vector3& max) const = 0;
    // A copy of the volume, from the General allocator.
    virtual BoundingVolume* Clone() const = 0;

protected:
    explicit BoundingVolume(BoundingVolumeType type) : m_Type(type) {}
    BoundingVolume(const BoundingVolume&) = default;
    BoundingVolume& operator=(const BoundingVolume&) = default;

    // Narrows [enter, leave] to where a ray at `o` along an axis, moving `d`
    // along it, lies within [-h, h]; false when the ray runs parallel
    // outside the slab. The range may come out empty (enter > leave), which
    // the caller asks after its last slab: a branch out of every slab would
    // be mispredicted on every other ray of a loop that hits half the time.
    static bool ClipToSlab(float o, float d, float h, float& enter, float& leave)
    {
        if (d == 0.0f)
            return std::fabs(o) <= h;
        // The near face is the one the ray moves toward: h signed as d,
        // without a select, which compilers turn into a branch.
        const float inverse = 1.0f / d, toward = std::copysign(h, d);
        const float near = (-toward - o) * inverse, far = (toward - o) * inverse;
        enter = (std::max)(enter, near);
        leave = (std::min)(leave, far);
        return true;
    }

private:
    BoundingVolumeType m_Type;
};

} // namespace qel
