#include <qel/boundingmesh.h>

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace qel
{

BoundingMesh::BoundingMesh() : BoundingVolume(BoundingVolumeType::Mesh) {}

BoundingMesh::BoundingMesh(const Triangle* triangles, unsigned int count)
    : BoundingVolume(BoundingVolumeType::Mesh)
{
    SetTriangles(triangles, count);
}

void BoundingMesh::SetTriangles(const Triangle* triangles, unsigned int count)
{
    m_Triangles.assign(triangles, triangles + count);
    UpdateBox();
}

namespace
{

// Twice the signed area of the triangle (0, p, q) in the xy plane: positive
// when the origin lies to the left of p -> q. The coordinates are differences
// of floats, exact in double, and so are their products in all but extreme
// cases: the sign is exact, and the same whatever precision the compiler
// keeps intermediate values in (x87 keeps more than a float).
double Side(double px, double py, double qx, double qy)
{
    return px * qy - py * qx;
}

// The side a point exactly on the edge p -> q is taken to lie on: the side it
// would lie on if moved by (e, e * e) for a vanishing e. Read on q -> p the
// answer is the opposite, so that a point on an edge shared by two triangles
// that face the same way falls in exactly one of them, and in both or
// neither where they face opposite ways.
bool LeftWhenOn(const Vector3& p, const Vector3& q)
{
    return q.y < p.y || (q.y == p.y && q.x > p.x);
}

// True when the ray from point along +z crosses the triangle. Each edge's
// side is computed from its own two corners only, so two triangles sharing
// an edge see the point on exactly opposite sides of it.
bool CrossesUpward(const Triangle& t, const Vector3& point)
{
    const double x = point.x, y = point.y;
    const double ax = t.a.x - x, ay = t.a.y - y, bx = t.b.x - x, by = t.b.y - y;
    const double cx = t.c.x - x, cy = t.c.y - y;
    const double sab = Side(ax, ay, bx, by), sbc = Side(bx, by, cx, cy), sca = Side(cx, cy, ax, ay);
    const bool lab = sab > 0.0 || (sab == 0.0 && LeftWhenOn(t.a, t.b));
    const bool lbc = sbc > 0.0 || (sbc == 0.0 && LeftWhenOn(t.b, t.c));
    const bool lca = sca > 0.0 || (sca == 0.0 && LeftWhenOn(t.c, t.a));
    if (lab != lbc || lbc != lca)
        return false;
    // Above the point: the height of the crossing, weighted by the areas,
    // has the sign of their sum.
    const double z = point.z;
    const double height = sbc * (t.a.z - z) + sca * (t.b.z - z) + sab * (t.c.z - z);
    return lab ? height > 0.0 : height < 0.0;
}

} // namespace

void BoundingMesh::UpdateBox()
{
    m_Bounds.clear();
    if (m_Triangles.empty())
    {
        m_Box = BoundingBox();
        return;
    }
    m_Bounds.reserve(m_Triangles.size());
    for (const Triangle& t : m_Triangles)
        m_Bounds.push_back(
            {Vector3::Min(t.a, Vector3::Min(t.b, t.c)), Vector3::Max(t.a, Vector3::Max(t.b, t.c))});
    Vector3 min = m_Bounds[0].min, max = m_Bounds[0].max;
    for (const Bounds& b : m_Bounds)
    {
        min = Vector3::Min(min, b.min);
        max = Vector3::Max(max, b.max);
    }
    m_Box = BoundingBox(min, max);
}

int BoundingMesh::CountCrossings(const Vector3& point) const
{
    int crossings = 0;
    for (size_t i = 0; i < m_Triangles.size(); ++i)
    {
        // Only the triangles over the point and reaching above it.
        const Bounds& b = m_Bounds[i];
        if (point.x < b.min.x || point.x > b.max.x || point.y < b.min.y || point.y > b.max.y ||
            point.z > b.max.z)
            continue;
        crossings += CrossesUpward(m_Triangles[i], point) ? 1 : 0;
    }
    return crossings;
}

float BoundingMesh::SurfaceTolerance() const
{
    return std::max(m_Box.GetHalfExtents().MaxComponent(), 1e-20f) * 1e-6f;
}

bool BoundingMesh::Contains(const Vector3& point) const
{
    if (m_Triangles.empty() || !m_Box.Contains(point))
        return false;
    if (CountCrossings(point) & 1)
        return true;
    // A point on the surface belongs to the closed volume, whatever the count.
    const float tolerance = SurfaceTolerance();
    return NearestSquared(point, 2 * tolerance * tolerance) <= tolerance * tolerance;
}

float BoundingMesh::NearestSquared(const Vector3& point, float limit) const
{
    float best = limit;
    for (size_t i = 0; i < m_Triangles.size(); ++i)
    {
        // No nearer than the triangle's box: most triangles stop there.
        const Bounds& b = m_Bounds[i];
        const Vector3 outside =
            Vector3::Max(Vector3::Max(b.min - point, point - b.max), Vector3(0.0f));
        if (outside.LengthSquared() > best)
            continue;
        best = std::min(best, (m_Triangles[i].ClosestPoint(point) - point).LengthSquared());
    }
    return best;
}

float BoundingMesh::Distance(const Vector3& point) const
{
    if (m_Triangles.empty())
        return FLT_MAX;
    if (m_Box.Contains(point) && (CountCrossings(point) & 1))
        return 0.0f;
    const float tolerance = SurfaceTolerance();
    const float squared = NearestSquared(point, FLT_MAX);
    return squared <= tolerance * tolerance ? 0.0f : std::sqrt(squared);
}

bool BoundingMesh::FirstSurfaceHit(const Ray& ray, float& t) const
{
    // The ray cannot hit a triangle better than the best so far unless it
    // enters the triangle's box sooner. Along an axis the ray does not move,
    // the box is entered everywhere or nowhere.
    bool parallel[3];
    Vector3 inverse;
    for (int k = 0; k < 3; ++k)
    {
        parallel[k] = ray.direction[k] == 0.0f;
        inverse[k] = parallel[k] ? 0.0f : 1.0f / ray.direction[k];
    }
    bool hit = false;
    float best = FLT_MAX, candidate;
    for (size_t i = 0; i < m_Triangles.size(); ++i)
    {
        const Bounds& b = m_Bounds[i];
        float enter = 0.0f, leave = best;
        for (int k = 0; k < 3; ++k)
        {
            if (parallel[k])
            {
                if (ray.origin[k] < b.min[k] || ray.origin[k] > b.max[k])
                    leave = -1.0f;
                continue;
            }
            const float near = (b.min[k] - ray.origin[k]) * inverse[k];
            const float far = (b.max[k] - ray.origin[k]) * inverse[k];
            enter = std::max(enter, std::min(near, far));
            leave = std::min(leave, std::max(near, far));
        }
        if (enter > leave)
            continue;
        if (m_Triangles[i].IntersectRay(ray, candidate) && candidate < best)
        {
            best = candidate;
            hit = true;
        }
    }
    if (hit)
        t = best;
    return hit;
}

bool BoundingMesh::IntersectRay(const Ray& ray, float& t) const
{
    float boxHit;
    if (m_Triangles.empty() || !m_Box.IntersectRay(ray, boxHit))
        return false;
    if (Contains(ray.origin))
    {
        t = 0.0f;
        return true;
    }
    return FirstSurfaceHit(ray, t);
}

void BoundingMesh::Transform(const Matrix4& m)
{
    for (Triangle& t : m_Triangles)
        t = Triangle(m.TransformPoint(t.a), m.TransformPoint(t.b), m.TransformPoint(t.c));
    UpdateBox();
}

void BoundingMesh::GetBounds(Vector3& min, Vector3& max) const
{
    m_Box.GetBounds(min, max);
}

BoundingVolume* BoundingMesh::Clone() const
{
    return new BoundingMesh(*this);
}

} // namespace qel
