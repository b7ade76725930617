// Reference shapes and dense surface samples of the bounding volumes, for
// brute-force checks of their exact tests.
#pragma once

#include "geometrytesthelpers.h"

#include <qel/boundingbox.h>
#include <qel/boundingcylinder.h>
#include <qel/boundingmesh.h>
#include <qel/boundingsphere.h>

#include "base/geometry/convex.h"

#include <memory>
#include <vector>

namespace qeltest
{

typedef std::unique_ptr<qel::BoundingVolume> VolumePtr;

// Closed meshes: a cube of half size h, an octahedron |x|+|y|+|z| <= s,
// and a two-piece mesh (a cube and a tetrahedron apart).
std::vector<qel::Triangle> CubeTriangles(const qel::Vector3& center, float h);
std::vector<qel::Triangle> OctahedronTriangles(const qel::Vector3& center, float s);
VolumePtr MakeMesh(const std::vector<qel::Triangle>& triangles);

// A random volume of the given kind (0 sphere, 1 box, 2 cylinder, 3 mesh);
// every fourth one is degenerate (zero radius, flat or zero box, disc or
// segment cylinder).
VolumePtr RandomVolume(GeometryRandom& random, int kind, int index);

// Points densely covering the volume's surface, and an upper bound on the
// distance from any surface point to the nearest sample.
struct SurfaceSamples
{
    std::vector<qel::Vector3> points;
    float spacing = 0.0f;
};
SurfaceSamples SampleSurface(const qel::BoundingVolume& volume);

// A box or a cylinder as the convex distance sees it.
template <class Volume>
class VolumeSupport final : public qel::geometry::ConvexShape
{
public:
    explicit VolumeSupport(const Volume& v) : m_V(v) {}
    qel::Vector3 Support(const qel::Vector3& d) const override { return m_V.Support(d); }
    qel::Vector3 Inside() const override { return m_V.GetCenter(); }

private:
    const Volume& m_V;
};

} // namespace qeltest
