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

void BoundingMesh::UpdateBox()
{
    if (m_Triangles.empty())
    {
        m_Box = BoundingBox();
        return;
    }
    Vector3 min = m_Triangles[0].a, max = min;
    for (const Triangle& t : m_Triangles)
        for (int i = 0; i < 3; ++i)
        {
            min = Vector3::Min(min, t[i]);
            max = Vector3::Max(max, t[i]);
        }
    m_Box = BoundingBox(min, max);
}

bool BoundingMesh::Contains(const Vector3& point) const
{
    if (m_Triangles.empty() || !m_Box.Contains(point))
        return false;
    // Crossing parity along three unrelated directions, by majority: a ray
    // through an edge or a vertex can miscount, three rays rarely do so at once.
    static const Vector3 directions[3] = {
        {0.5773f, 0.5774f, 0.5776f}, {-0.8017f, 0.2672f, 0.5345f}, {0.1231f, -0.9847f, 0.1231f}};
    int odd = 0;
    for (const Vector3& direction : directions)
    {
        const Ray ray(point, direction);
        int crossings = 0;
        float t;
        for (const Triangle& triangle : m_Triangles)
            crossings += triangle.IntersectRay(ray, t) ? 1 : 0;
        odd += crossings & 1;
    }
    if (odd >= 2)
        return true;
    // A point on the surface belongs to the closed volume.
    const Vector3 extent = m_Box.GetHalfExtents();
    const float tolerance = std::max(extent.MaxComponent(), 1e-20f) * 1e-6f;
    for (const Triangle& triangle : m_Triangles)
        if ((triangle.ClosestPoint(point) - point).LengthSquared() <= tolerance * tolerance)
            return true;
    return false;
}

float BoundingMesh::Distance(const Vector3& point) const
{
    if (m_Triangles.empty())
        return FLT_MAX;
    if (Contains(point))
        return 0.0f;
    float best = FLT_MAX;
    for (const Triangle& triangle : m_Triangles)
        best = std::min(best, (triangle.ClosestPoint(point) - point).LengthSquared());
    return std::sqrt(best);
}

bool BoundingMesh::FirstSurfaceHit(const Ray& ray, float& t) const
{
    bool hit = false;
    float best = FLT_MAX, candidate;
    for (const Triangle& triangle : m_Triangles)
        if (triangle.IntersectRay(ray, candidate) && candidate < best)
        {
            best = candidate;
            hit = true;
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
