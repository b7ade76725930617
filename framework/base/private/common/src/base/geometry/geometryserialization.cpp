#include <qel/geometryserialization.h>

#include <qel/exception.h>
#include <qel/serializer.h>

namespace qel
{

namespace
{

void Floats(Serializer& s, float* first, u32 count)
{
    s.Serialize(first, count, u32(sizeof(float)));
}

template <class T>
void Named(Serializer& s, const char* name, T& value)
{
    s.Identify(name);
    Serialize(s, value);
}

void Named(Serializer& s, const char* name, float& value)
{
    s.Identify(name);
    s.Serialize(value);
}

} // namespace

void Serialize(Serializer& s, Vector2& v)
{
    Floats(s, &v.x, 2);
}

void Serialize(Serializer& s, Vector3& v)
{
    Floats(s, &v.x, 3);
}

void Serialize(Serializer& s, Vector4& v)
{
    Floats(s, &v.x, 4);
}

void Serialize(Serializer& s, Quaternion& q)
{
    Floats(s, &q.x, 4);
}

void Serialize(Serializer& s, Matrix3& m)
{
    static_assert(sizeof(Matrix3) == 9 * sizeof(float), "a Matrix3 is nine packed floats");
    Floats(s, &m.columns[0].x, 9);
}

void Serialize(Serializer& s, Matrix4& m)
{
    static_assert(sizeof(Matrix4) == 16 * sizeof(float), "a Matrix4 is sixteen packed floats");
    Floats(s, &m.columns[0].x, 16);
}

void Serialize(Serializer& s, Plane& plane)
{
    Named(s, "Normal", plane.normal);
    Named(s, "Distance", plane.d);
}

void Serialize(Serializer& s, Ray& ray)
{
    Named(s, "Origin", ray.origin);
    Named(s, "Direction", ray.direction);
}

void Serialize(Serializer& s, Triangle& triangle)
{
    Floats(s, &triangle.a.x, 9);
}

void Serialize(Serializer& s, BoundingSphere& sphere)
{
    Vector3 center = sphere.GetCenter();
    float radius = sphere.GetRadius();
    s.Begin();
    Named(s, "Center", center);
    Named(s, "Radius", radius);
    s.End();
    if (s.IsReading())
        sphere.Set(center, radius);
}

void Serialize(Serializer& s, BoundingBox& box)
{
    Vector3 center = box.GetCenter();
    Matrix3 axes = box.GetAxes();
    Vector3 halfExtents = box.GetHalfExtents();
    s.Begin();
    Named(s, "Center", center);
    Named(s, "Axes", axes);
    Named(s, "Half Extents", halfExtents);
    s.End();
    if (s.IsReading())
        box.Set(center, axes, halfExtents);
}

void Serialize(Serializer& s, BoundingCylinder& cylinder)
{
    Vector3 center = cylinder.GetCenter();
    Vector3 axis = cylinder.GetAxis();
    float halfHeight = cylinder.GetHalfHeight();
    float radius = cylinder.GetRadius();
    s.Begin();
    Named(s, "Center", center);
    Named(s, "Axis", axis);
    Named(s, "Half Height", halfHeight);
    Named(s, "Radius", radius);
    s.End();
    if (s.IsReading())
        cylinder.Set(center, axis, halfHeight, radius);
}

void Serialize(Serializer& s, BoundingMesh& mesh)
{
    u32 count = u32(mesh.GetTriangles().size());
    s.Begin();
    s.Identify("Triangle Count");
    s.Serialize(count);
    s.Identify("Triangles");
    if (s.IsWriting())
    {
        // Triangles are nine packed floats each: one array for all of them.
        static_assert(sizeof(Triangle) == 9 * sizeof(float), "a Triangle is nine packed floats");
        Triangle* first = const_cast<Triangle*>(mesh.GetTriangles().data());
        if (count != 0)
            Floats(s, &first->a.x, count * 9);
    }
    else
    {
        BoundingMesh::TriangleList triangles(count);
        if (count != 0)
            Floats(s, &triangles[0].a.x, count * 9);
        mesh.SetTriangles(triangles.data(), count);
    }
    s.End();
}

void Serialize(Serializer& s, BoundingInfinite&)
{
    s.Begin();
    s.End();
}

void SerializeVolume(Serializer& s, BoundingVolume*& volume)
{
    u32 kind = s.IsWriting() ? u32(volume->GetType()) : 0;
    s.Identify("Kind");
    s.Serialize(kind);
    if (s.IsReading())
    {
        switch (BoundingVolumeType(kind))
        {
        case BoundingVolumeType::Sphere:
            volume = new BoundingSphere;
            break;
        case BoundingVolumeType::Box:
            volume = new BoundingBox;
            break;
        case BoundingVolumeType::Cylinder:
            volume = new BoundingCylinder;
            break;
        case BoundingVolumeType::Mesh:
            volume = new BoundingMesh;
            break;
        case BoundingVolumeType::Infinite:
            volume = new BoundingInfinite;
            break;
        default:
            throw Exception("Unknown kind of bounding volume");
        }
    }
    s.Identify("Volume");
    switch (volume->GetType())
    {
    case BoundingVolumeType::Sphere:
        Serialize(s, static_cast<BoundingSphere&>(*volume));
        break;
    case BoundingVolumeType::Box:
        Serialize(s, static_cast<BoundingBox&>(*volume));
        break;
    case BoundingVolumeType::Cylinder:
        Serialize(s, static_cast<BoundingCylinder&>(*volume));
        break;
    case BoundingVolumeType::Mesh:
        Serialize(s, static_cast<BoundingMesh&>(*volume));
        break;
    case BoundingVolumeType::Infinite:
        Serialize(s, static_cast<BoundingInfinite&>(*volume));
        break;
    }
}

} // namespace qel
