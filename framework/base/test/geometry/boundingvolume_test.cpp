#include "volumesamples.h"

#include <qel/boundinginfinite.h>

#include "base/geometry/convex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>

using namespace qel;
using namespace qeltest;

namespace
{

const char* const kKinds[] = {"sphere", "box", "cylinder", "mesh"};

// Points of the volume: its surface samples and an interior grid.
std::vector<Vector3> SolidSamples(const BoundingVolume& v, float& spacing)
{
    SurfaceSamples surface = SampleSurface(v);
    spacing = surface.spacing;
    Vector3 min, max;
    v.GetBounds(min, max);
    const int n = 12;
    for (int i = 0; i <= n; ++i)
        for (int j = 0; j <= n; ++j)
            for (int k = 0; k <= n; ++k)
            {
                const Vector3 p =
                    min + (max - min) * Vector3(float(i), float(j), float(k)) * (1.0f / n);
                if (v.Contains(p))
                    surface.points.push_back(p);
            }
    return surface.points;
}

} // namespace

TEST(BoundingVolume, DistanceMatchesTheNearestSurfaceSampleAndIsZeroInside)
{
    GeometryRandom random(31);
    for (int kind = 0; kind < 4; ++kind)
        for (int i = 0; i < 24; ++i)
        {
            const VolumePtr volume = RandomVolume(random, kind, i);
            const SurfaceSamples surface = SampleSurface(*volume);
            for (int k = 0; k < 40; ++k)
            {
                const Vector3 p = random.Point(4);
                const float distance = volume->Distance(p);
                if (volume->Contains(p))
                {
                    EXPECT_EQ(distance, 0.0f) << kKinds[kind] << " " << i;
                    continue;
                }
                float nearest = FLT_MAX;
                for (const Vector3& s : surface.points)
                    nearest = std::min(nearest, (s - p).Length());
                EXPECT_LE(distance, nearest + 1e-4f) << kKinds[kind] << " " << i;
                EXPECT_GE(distance, nearest - surface.spacing - 1e-4f) << kKinds[kind] << " " << i;
                EXPECT_GT(distance, 0.0f) << kKinds[kind] << " " << i;
            }
            // Surface points are contained (closed sets), up to rounding.
            for (size_t k = 0; k < surface.points.size(); k += 97)
                EXPECT_LE(volume->Distance(surface.points[k]), 1e-5f) << kKinds[kind] << " " << i;
        }
}

TEST(BoundingMesh, ContainsAgreesWithTheSolidsItsSurfacesBound)
{
    GeometryRandom random(32);
    const VolumePtr cube = MakeMesh(CubeTriangles(Vector3(0.5f, 0, 0), 1.0f));
    const BoundingBox box(Vector3(-0.5f, -1, -1), Vector3(1.5f, 1, 1));
    const VolumePtr octahedron = MakeMesh(OctahedronTriangles(Vector3(0.0f), 1.0f));
    for (int i = 0; i < 4000; ++i)
    {
        // Some points exactly on faces, edges and vertices.
        Vector3 p = random.Point(1.6f);
        if (i % 4 == 0)
            p[i % 3] = i % 8 ? 1.0f : -1.0f;
        if (i % 8 == 0)
            p[(i + 1) % 3] = 1.0f;
        EXPECT_EQ(cube->Contains(p + Vector3(0.5f, 0, 0)), box.Contains(p + Vector3(0.5f, 0, 0)))
            << p.x << " " << p.y << " " << p.z;
        const float l1 = std::fabs(p.x) + std::fabs(p.y) + std::fabs(p.z);
        if (std::fabs(l1 - 1.0f) > 1e-5f)
        {
            EXPECT_EQ(octahedron->Contains(p), l1 < 1.0f) << p.x << " " << p.y << " " << p.z;
        }
    }
    EXPECT_TRUE(octahedron->Contains(Vector3(0, 0, 1)));
    EXPECT_TRUE(octahedron->Contains(Vector3(0.5f, 0.5f, 0)));
    const BoundingMesh empty;
    float t;
    EXPECT_FALSE(empty.Contains(Vector3(0.0f)));
    EXPECT_FALSE(empty.IntersectRay(Ray(Vector3(0.0f), Vector3(1, 0, 0)), t));
    EXPECT_FALSE(empty.Intersects(BoundingSphere(Vector3(0.0f), 10)));
}

// Rays from outside whose +z line passes exactly through edges and corners
// that triangles share: each must be crossed once, not twice or never.
TEST(BoundingMesh, CrossingsThroughSharedEdgesAndCornersCountOnce)
{
    // The cube's faces are cut along x == y (top and bottom) and the
    // octahedron's faces meet on the planes x == 0 and y == 0.
    const VolumePtr cube = MakeMesh(CubeTriangles(Vector3(0.0f), 1.0f));
    const VolumePtr octahedron = MakeMesh(OctahedronTriangles(Vector3(0.0f), 1.0f));
    const struct
    {
        const BoundingVolume* mesh;
        Vector3 point;
        bool inside;
    } cases[] = {
        {cube.get(), {0.3f, 0.3f, 0.5f}, true},
        {cube.get(), {-0.7f, -0.7f, 0}, true},
        {cube.get(), {0, 0, 0}, true},
        {cube.get(), {0.3f, 0.3f, -1.5f}, false},
        {cube.get(), {0, 0, -3}, false},
        {octahedron.get(), {0, 0, 0.5f}, true},
        {octahedron.get(), {0, 0, -2}, false},
        {octahedron.get(), {0.3f, 0, 0.2f}, true},
        {octahedron.get(), {0.3f, 0, -1.5f}, false},
        {octahedron.get(), {0, -0.4f, 0.1f}, true},
        {octahedron.get(), {0, -0.4f, -0.7f}, false},
        {octahedron.get(), {0.5f, 0, -0.6f}, false},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(c.mesh->Contains(c.point), c.inside)
            << c.point.x << " " << c.point.y << " " << c.point.z;
        EXPECT_EQ(c.mesh->Distance(c.point) == 0.0f, c.inside);
    }
}

// A small volume far from the ray's origin, hit and missed by a tenth of its
// size: a ray test whose terms cancel (b * b - a * c in float for a sphere)
// answers by rounding there.
TEST(BoundingVolume, SmallVolumesFarAwayAreHitAndMissedByATenthOfTheirSize)
{
    const Vector3 center(1e4f, 0, 0), up(0, 0, 0.1f);
    const float size = 0.1f;
    const VolumePtr volumes[] = {
        VolumePtr(new BoundingSphere(center, size)),
        VolumePtr(new BoundingBox(center - Vector3(size), center + Vector3(size))),
        VolumePtr(new BoundingCylinder(center - up, center + up, size)),
        MakeMesh(CubeTriangles(center, size)),
    };
    for (int kind = 0; kind < 4; ++kind)
        for (const float offset : {0.9f, -0.9f, 1.1f, -1.1f})
        {
            const Ray ray(Vector3(0.0f), Vector3(1e4f, offset * size, 0));
            float t = -1;
            const bool hit = volumes[kind]->IntersectRay(ray, t);
            EXPECT_EQ(hit, std::fabs(offset) < 1) << kKinds[kind] << " " << offset;
            if (hit)
            {
                // Within two float steps of 1e4 of the surface.
                EXPECT_LE(volumes[kind]->Distance(ray.At(t)), 2e-3f) << kKinds[kind];
                EXPECT_GT(t, 0.999f) << kKinds[kind];
            }
        }
}

TEST(BoundingVolume, EveryPairTestAgreesWithSampledSeparation)
{
    GeometryRandom random(33);
    int hits = 0, misses = 0;
    for (int ka = 0; ka < 4; ++ka)
        for (int kb = ka; kb < 4; ++kb)
            for (int i = 0; i < 30; ++i)
            {
                const VolumePtr a = RandomVolume(random, ka, i);
                const VolumePtr b = RandomVolume(random, kb, i + 1);
                // Near each other, so both answers come up often.
                Vector3 aMin, aMax, bMin, bMax;
                a->GetBounds(aMin, aMax);
                b->GetBounds(bMin, bMax);
                b->Transform(Matrix4::Translation((aMin + aMax - bMin - bMax) * 0.5f +
                                                  random.Direction() * random.Uniform(0, 2.5f)));
                // Sampled both ways: a small volume may sit between the
                // samples of a large one.
                float spacingA, spacingB;
                float separation = FLT_MAX;
                for (const Vector3& p : SolidSamples(*a, spacingA))
                    separation = std::min(separation, b->Distance(p));
                for (const Vector3& p : SolidSamples(*b, spacingB))
                    separation = std::min(separation, a->Distance(p));
                const float spacing = std::max(spacingA, spacingB);
                const bool result = a->Intersects(*b);
                EXPECT_EQ(result, b->Intersects(*a)) << kKinds[ka] << "-" << kKinds[kb] << " " << i;
                if (separation == 0.0f)
                {
                    EXPECT_TRUE(result) << kKinds[ka] << "-" << kKinds[kb] << " " << i;
                    ++hits;
                }
                else if (separation > spacing + 1e-4f)
                {
                    EXPECT_FALSE(result)
                        << kKinds[ka] << "-" << kKinds[kb] << " " << i << " " << separation;
                    ++misses;
                }
                const BoundingInfinite everything;
                EXPECT_TRUE(a->Intersects(everything));
                EXPECT_TRUE(everything.Intersects(*b));
            }
    // The configurations must exercise both answers.
    EXPECT_GT(hits, 100);
    EXPECT_GT(misses, 100);
}

TEST(BoundingVolume, RayAndSegmentHitsMatchMarchingAlongTheRay)
{
    GeometryRandom random(34);
    const float step = 0.005f;
    int hits = 0;
    for (int kind = 0; kind < 4; ++kind)
        for (int i = 0; i < 150; ++i)
        {
            const VolumePtr volume = RandomVolume(random, kind, i);
            Vector3 min, max;
            volume->GetBounds(min, max);
            const Vector3 target = (min + max) * 0.5f + random.Point(1.0f);
            const Vector3 origin = i % 5 == 0 ? target : random.Point(4);
            Vector3 direction = (target - origin).Normalized();
            if (i % 5 == 0)
                direction = random.Direction();
            else if (i % 7 == 0) // parallel to a world axis (and so to many faces)
                direction = Vector3(0, 0, 1);
            const Ray ray(origin, direction);
            float t = -1;
            const bool hit = volume->IntersectRay(ray, t);
            float marched = -1;
            for (float s = 0; s < 10.0f; s += step)
                if (volume->Contains(ray.At(s)))
                {
                    marched = s;
                    break;
                }
            if (hit)
            {
                ++hits;
                EXPECT_GE(t, 0.0f);
                EXPECT_LE(volume->Distance(ray.At(t)), 1e-4f) << kKinds[kind] << " " << i;
                EXPECT_TRUE(marched < 0 ? t > 10.0f - step || volume->Distance(ray.At(t)) <= 1e-4f
                                        : t <= marched + 1e-4f)
                    << kKinds[kind] << " " << i;
                if (marched >= 0)
                {
                    EXPECT_GE(t, marched - step - 1e-4f) << kKinds[kind] << " " << i;
                }
                EXPECT_EQ(t == 0.0f, volume->Contains(origin)) << kKinds[kind] << " " << i;
            }
            else
            {
                EXPECT_LT(marched, 0.0f) << kKinds[kind] << " " << i << " " << marched;
            }

            // The segment of length 3 from the origin agrees with the ray.
            float distance = -1;
            const bool segmentHit = volume->IntersectSegment(origin, ray.At(3.0f), distance);
            EXPECT_EQ(segmentHit, hit && t <= 3.0f) << kKinds[kind] << " " << i;
            if (segmentHit)
            {
                EXPECT_NEAR(distance, t, 1e-4f);
            }
            // A zero-length segment hits exactly where its point is inside.
            EXPECT_EQ(volume->IntersectSegment(origin, origin, distance), volume->Contains(origin));
        }
    EXPECT_GT(hits, 150);
}

TEST(BoundingVolume, TransformKeepsEveryPointAndIsExactForSimilarities)
{
    GeometryRandom random(35);
    for (int kind = 0; kind < 4; ++kind)
        for (int i = 0; i < 24; ++i)
        {
            const VolumePtr volume = RandomVolume(random, kind, i);
            const bool similar = i % 2 == 0;
            const float scale = random.Uniform(0.3f, 2.5f);
            Matrix4 m =
                Matrix4::Compose(random.Point(3), random.Rotation(),
                                 similar ? Vector3(scale)
                                         : Vector3(random.Uniform(0.3f, 2), random.Uniform(0.3f, 2),
                                                   random.Uniform(0.3f, 2)));
            if (!similar) // add a shear
                m = m * Matrix4(Matrix3({1, 0, 0}, {random.Uniform(-1, 1), 1, 0}, {0, 0, 1}),
                                Vector3(0.0f));
            VolumePtr moved(volume->Clone());
            moved->Transform(m);
            float spacing;
            for (const Vector3& p : SolidSamples(*volume, spacing))
                EXPECT_LE(moved->Distance(m.TransformPoint(p)), 1e-4f * (1 + scale))
                    << kKinds[kind] << " " << i;
            if (!similar)
                continue;
            for (int k = 0; k < 30; ++k)
            {
                const Vector3 p = random.Point(4);
                EXPECT_NEAR(moved->Distance(m.TransformPoint(p)), volume->Distance(p) * scale,
                            1e-3f * (1 + scale))
                    << kKinds[kind] << " " << i;
            }
        }
}

TEST(BoundingVolume, TouchingZeroSizeAndParallelCasesAreDecidedExactly)
{
    const Matrix3 identity = Matrix3::Identity();
    const BoundingSphere unit(Vector3(0.0f), 1.0f);
    const BoundingBox cube(Vector3(-1.0f), Vector3(1.0f));
    EXPECT_TRUE(unit.Intersects(BoundingSphere(Vector3(2, 0, 0), 1)));
    EXPECT_FALSE(unit.Intersects(BoundingSphere(Vector3(2.001f, 0, 0), 1)));
    EXPECT_TRUE(cube.Intersects(BoundingBox(Vector3(1, -1, -1), Vector3(3, 1, 1)))); // faces
    EXPECT_TRUE(cube.Intersects(BoundingBox(Vector3(1, 1, 1), Vector3(2, 2, 2))));   // corners
    EXPECT_FALSE(cube.Intersects(BoundingBox(Vector3(1.001f, 1, 1), Vector3(2, 2, 2))));
    // A box turned 45 degrees whose edge touches the cube's face.
    const Matrix3 turned = Matrix3::Rotation(Vector3(0, 0, 1), 0.78539816f);
    EXPECT_TRUE(
        cube.Intersects(BoundingBox(Vector3(1 + std::sqrt(2.0f), 0, 0), turned, Vector3(1))));
    EXPECT_FALSE(
        cube.Intersects(BoundingBox(Vector3(1.01f + std::sqrt(2.0f), 0, 0), turned, Vector3(1))));
    // Spheres touching and missing that box's far edge, whose distance rounds.
    const BoundingBox diamond(Vector3(0.0f), turned, Vector3(1));
    EXPECT_TRUE(BoundingSphere(Vector3(std::sqrt(2.0f) + 0.3f, 0, 0), 0.3f).Intersects(diamond));
    EXPECT_FALSE(
        BoundingSphere(Vector3(std::sqrt(2.0f) + 0.3f, 0, 0), 0.2999f).Intersects(diamond));
    // A cylinder standing on the cube, and one lying along its top edge.
    EXPECT_TRUE(cube.Intersects(BoundingCylinder(Vector3(0, 1, 0), Vector3(0, 3, 0), 0.5f)));
    EXPECT_FALSE(cube.Intersects(BoundingCylinder(Vector3(0, 1.01f, 0), Vector3(0, 3, 0), 0.5f)));
    EXPECT_TRUE(cube.Intersects(BoundingCylinder(Vector3(-3, 2, 1), Vector3(3, 2, 1), 1.0f)));
    EXPECT_TRUE(BoundingCylinder(Vector3(0.0f), Vector3(0, 1, 0), 1)
                    .Intersects(BoundingCylinder(Vector3(2, 0, 0), Vector3(2, 1, 0), 1)));
    EXPECT_FALSE(BoundingCylinder(Vector3(0.0f), Vector3(0, 1, 0), 1)
                     .Intersects(BoundingCylinder(Vector3(2.01f, 0, 0), Vector3(2.01f, 1, 0), 1)));
    // Zero-size volumes: points, a flat box, a disc.
    const BoundingBox point(Vector3(1, 0, 0), identity, Vector3(0.0f));
    EXPECT_TRUE(unit.Intersects(point));
    EXPECT_TRUE(point.Contains(Vector3(1, 0, 0)));
    EXPECT_TRUE(BoundingSphere(Vector3(1, 1, 1), 0).Intersects(cube));
    EXPECT_TRUE(BoundingBox(Vector3(0.0f), identity, Vector3(2, 0, 2))
                    .Intersects(BoundingCylinder(Vector3(0.0f), Vector3(0.0f), 0.1f)));
    const VolumePtr mesh = MakeMesh(CubeTriangles(Vector3(0.0f), 1.0f));
    EXPECT_TRUE(mesh->Intersects(BoundingSphere(Vector3(0.0f), 0.1f))); // wholly inside
    EXPECT_TRUE(mesh->Intersects(BoundingBox(Vector3(1, -1, -1), Vector3(2, 1, 1))));
    EXPECT_TRUE(mesh->Intersects(*MakeMesh(CubeTriangles(Vector3(0.0f), 0.2f))));
    EXPECT_FALSE(mesh->Intersects(*MakeMesh(CubeTriangles(Vector3(3, 0, 0), 0.5f))));

    // Rays grazing a face, starting inside, with a zero direction.
    float t = -1;
    EXPECT_TRUE(cube.IntersectRay(Ray(Vector3(-5, 1, 0), Vector3(1, 0, 0)), t));
    EXPECT_FLOAT_EQ(t, 4.0f);
    EXPECT_FALSE(cube.IntersectRay(Ray(Vector3(-5, 1.001f, 0), Vector3(1, 0, 0)), t));
    EXPECT_TRUE(BoundingCylinder(Vector3(0.0f), Vector3(0, 2, 0), 1)
                    .IntersectRay(Ray(Vector3(1, 5, 0), Vector3(0, -1, 0)), t));
    EXPECT_FLOAT_EQ(t, 3.0f);
    const BoundingVolume* const volumes[] = {&unit, &cube, mesh.get()};
    for (const BoundingVolume* v : volumes)
    {
        EXPECT_TRUE(v->IntersectRay(Ray(Vector3(0.5f, 0, 0), Vector3(0, 1, 0)), t));
        EXPECT_EQ(t, 0.0f);
        EXPECT_FALSE(v->IntersectRay(Ray(Vector3(5, 0, 0), Vector3(0.0f)), t));
        EXPECT_FALSE(v->IntersectRay(Ray(Vector3(5, 0, 0), Vector3(1, 0, 0)), t));
    }
    EXPECT_TRUE(mesh->IntersectRay(Ray(Vector3(-5, 0, 0), Vector3(2, 0, 0)), t));
    EXPECT_FLOAT_EQ(t, 2.0f); // in units of the direction
}

TEST(BoundingBox, SeparatingAxesAgreeWithTheConvexDistanceOverManyPairs)
{
    // The box pair has its own test; the GJK distance is the reference.
    GeometryRandom random(36);
    int both[2] = {0, 0};
    for (int i = 0; i < 3000; ++i)
    {
        const VolumePtr a = RandomVolume(random, 1, i);
        const VolumePtr b = RandomVolume(random, 1, i / 4);
        const BoundingBox& boxA = static_cast<const BoundingBox&>(*a);
        const BoundingBox& boxB = static_cast<const BoundingBox&>(*b);
        const float distance = geometry::ConvexDistance(VolumeSupport<BoundingBox>(boxA),
                                                        VolumeSupport<BoundingBox>(boxB));
        if (distance == 0.0f || distance > 1e-4f)
        {
            EXPECT_EQ(a->Intersects(*b), distance == 0.0f) << i << " " << distance;
            ++both[distance == 0.0f];
        }
    }
    EXPECT_GT(both[0], 500);
    EXPECT_GT(both[1], 300);
}

TEST(BoundingVolume, VolumesBuiltFromPointsHoldThemAllAndStayTight)
{
    GeometryRandom random(37);
    for (int i = 0; i < 200; ++i)
    {
        std::vector<Vector3> points(1 + random.Int(0, 60));
        const Vector3 center = random.Point(100);
        for (Vector3& p : points)
            p = i % 10 == 0 ? center : center + random.Point(random.Uniform(0, 5)); // some coincide
        const BoundingSphere sphere =
            BoundingSphere::FromPoints(points.data(), unsigned(points.size()));
        const BoundingBox box = BoundingBox::FromPoints(points.data(), unsigned(points.size()));
        float widest = 0.0f;
        for (const Vector3& p : points)
        {
            EXPECT_TRUE(sphere.Contains(p)) << i;
            EXPECT_TRUE(box.Contains(p)) << i;
            for (const Vector3& q : points)
                widest = std::max(widest, (p - q).Length());
        }
        // The smallest sphere has a radius between 1/2 and sqrt(3/8) of the
        // widest pair (Jung); Ritter's stays within some percent of it.
        EXPECT_LE(sphere.GetRadius(), widest * 0.6124f * 1.15f + 1e-4f) << i;
        EXPECT_GE(sphere.GetRadius(), widest * 0.5f * (1 - 1e-5f)) << i;
    }
    EXPECT_EQ(BoundingSphere::FromPoints(nullptr, 0).GetRadius(), 0.0f);
    EXPECT_EQ(BoundingBox::FromPoints(nullptr, 0).GetHalfExtents(), Vector3(0.0f));
}
