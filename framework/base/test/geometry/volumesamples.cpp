#include "volumesamples.h"

#include <algorithm>
#include <cmath>

using namespace qel;

namespace qeltest
{

namespace
{

const float kPi = 3.14159265f;

void AddQuad(std::vector<Triangle>& out, const Vector3& a, const Vector3& b, const Vector3& c,
             const Vector3& d)
{
    out.emplace_back(a, b, c);
    out.emplace_back(a, c, d);
}

} // namespace

std::vector<Triangle> CubeTriangles(const Vector3& center, float h)
{
    std::vector<Triangle> out;
    for (int axis = 0; axis < 3; ++axis)
        for (float side : {-h, h})
        {
            Vector3 corners[4];
            const float u[4] = {-h, h, h, -h}, v[4] = {-h, -h, h, h};
            for (int k = 0; k < 4; ++k)
            {
                corners[k][axis] = side;
                corners[k][(axis + 1) % 3] = u[k];
                corners[k][(axis + 2) % 3] = v[k];
                corners[k] += center;
            }
            AddQuad(out, corners[0], corners[1], corners[2], corners[3]);
        }
    return out;
}

std::vector<Triangle> OctahedronTriangles(const Vector3& center, float s)
{
    std::vector<Triangle> out;
    for (int sx = -1; sx <= 1; sx += 2)
        for (int sy = -1; sy <= 1; sy += 2)
            for (int sz = -1; sz <= 1; sz += 2)
                out.emplace_back(center + Vector3(sx * s, 0, 0), center + Vector3(0, sy * s, 0),
                                 center + Vector3(0, 0, sz * s));
    return out;
}

VolumePtr MakeMesh(const std::vector<Triangle>& triangles)
{
    return VolumePtr(new BoundingMesh(triangles.data(), unsigned(triangles.size())));
}

VolumePtr RandomVolume(GeometryRandom& random, int kind, int index)
{
    const bool degenerate = index % 4 == 3;
    const Vector3 center = random.Point(2);
    switch (kind)
    {
    case 0:
        return VolumePtr(
            new BoundingSphere(center, degenerate ? 0.0f : random.Uniform(0.1f, 1.5f)));
    case 1:
    {
        Vector3 half(random.Uniform(0.1f, 1.2f), random.Uniform(0.1f, 1.2f),
                     random.Uniform(0.1f, 1.2f));
        if (degenerate)
            for (int i = 0; i <= index % 3; ++i)
                half[(index + i) % 3] = 0.0f;
        return VolumePtr(new BoundingBox(center, random.Rotation().ToMatrix3(), half));
    }
    case 2:
    {
        const Vector3 axis = random.Direction() * random.Uniform(0.2f, 2.0f);
        const float radius = random.Uniform(0.1f, 1.0f);
        if (degenerate && (index / 4) % 2) // a disc
            return VolumePtr(new BoundingCylinder(center, axis, 0.0f, radius));
        return VolumePtr(new BoundingCylinder(center, center + axis, degenerate ? 0.0f : radius));
    }
    default:
    {
        std::vector<Triangle> triangles;
        const int shape = index % 3;
        if (shape == 0)
            triangles = CubeTriangles(Vector3(0.0f), random.Uniform(0.2f, 1.0f));
        else if (shape == 1)
            triangles = OctahedronTriangles(Vector3(0.0f), random.Uniform(0.3f, 1.4f));
        else
        {
            triangles = CubeTriangles(Vector3(-0.8f, 0, 0), 0.4f);
            const std::vector<Triangle> second = OctahedronTriangles(Vector3(0.8f, 0, 0), 0.5f);
            triangles.insert(triangles.end(), second.begin(), second.end());
        }
        VolumePtr mesh = MakeMesh(triangles);
        mesh->Transform(Matrix4::Compose(center, random.Rotation(), Vector3(1.0f)));
        return mesh;
    }
    }
}

SurfaceSamples SampleSurface(const BoundingVolume& volume)
{
    SurfaceSamples s;
    const int n = 40;
    switch (volume.GetType())
    {
    case BoundingVolumeType::Sphere:
    {
        const BoundingSphere& sphere = static_cast<const BoundingSphere&>(volume);
        const float r = sphere.GetRadius();
        for (int i = 0; i <= n; ++i)
            for (int j = 0; j < 2 * n; ++j)
            {
                const float theta = kPi * i / n, phi = kPi * j / n;
                s.points.push_back(sphere.GetCenter() + Vector3(std::sin(theta) * std::cos(phi),
                                                                std::sin(theta) * std::sin(phi),
                                                                std::cos(theta)) *
                                                            r);
            }
        s.spacing = r * kPi / n;
        break;
    }
    case BoundingVolumeType::Box:
    {
        const BoundingBox& box = static_cast<const BoundingBox&>(volume);
        const Vector3 h = box.GetHalfExtents();
        for (int axis = 0; axis < 3; ++axis)
            for (float side : {-1.0f, 1.0f})
                for (int i = 0; i <= n; ++i)
                    for (int j = 0; j <= n; ++j)
                    {
                        Vector3 local;
                        local[axis] = side * h[axis];
                        local[(axis + 1) % 3] = (2.0f * i / n - 1) * h[(axis + 1) % 3];
                        local[(axis + 2) % 3] = (2.0f * j / n - 1) * h[(axis + 2) % 3];
                        s.points.push_back(box.GetCenter() + box.GetAxes() * local);
                    }
        s.spacing = 2.0f * h.Length() / n;
        break;
    }
    case BoundingVolumeType::Cylinder:
    {
        const BoundingCylinder& c = static_cast<const BoundingCylinder&>(volume);
        const Vector3 along = c.GetTop() - c.GetBase();
        const Vector3 axis = c.GetAxis();
        const Vector3 u = Vector3::Perpendicular(axis), v = axis.Cross(u);
        const float r = c.GetRadius();
        for (int j = 0; j < 2 * n; ++j)
        {
            const float phi = kPi * j / n;
            const Vector3 radial = (u * std::cos(phi) + v * std::sin(phi)) * r;
            for (int i = 0; i <= n; ++i)
            {
                s.points.push_back(c.GetBase() + along * (float(i) / n) + radial);
                s.points.push_back(c.GetBase() + radial * (float(i) / n));
                s.points.push_back(c.GetTop() + radial * (float(i) / n));
            }
        }
        s.spacing = along.Length() / n + 2 * r * kPi / n;
        break;
    }
    case BoundingVolumeType::Mesh:
    {
        const BoundingMesh& mesh = static_cast<const BoundingMesh&>(volume);
        for (const Triangle& t : mesh.GetTriangles())
        {
            for (int i = 0; i <= n; ++i)
                for (int j = 0; i + j <= n; ++j)
                    s.points.push_back(t.a + (t.b - t.a) * (float(i) / n) +
                                       (t.c - t.a) * (float(j) / n));
            s.spacing = std::max(s.spacing, ((t.b - t.a).Length() + (t.c - t.a).Length()) / n);
        }
        break;
    }
    case BoundingVolumeType::Infinite:
        break;
    }
    return s;
}

} // namespace qeltest
