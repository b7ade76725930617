#include "geometrytesthelpers.h"

#include <qel/plane.h>
#include <qel/triangle.h>

#include <gtest/gtest.h>

#include <cmath>

using namespace qel;
using qeltest::GeometryRandom;
using qeltest::Near;

namespace
{

// Nearest of a dense barycentric grid over the triangle: the reference.
float SampledDistance(const Triangle& t, const Vector3& p, int steps)
{
    float best = 1e30f;
    for (int i = 0; i <= steps; ++i)
        for (int j = 0; i + j <= steps; ++j)
        {
            const float u = float(i) / steps, v = float(j) / steps;
            const Vector3 q = t.a + (t.b - t.a) * u + (t.c - t.a) * v;
            best = std::min(best, (q - p).Length());
        }
    return best;
}

Triangle RandomTriangle(GeometryRandom& random, int i)
{
    Triangle t(random.Point(2), random.Point(2), random.Point(2));
    if (i % 5 == 1)
        t.c = Vector3::Lerp(t.a, t.b, random.Uniform(-0.5f, 1.5f)); // collinear
    else if (i % 5 == 2)
        t.b = t.a; // two equal corners
    else if (i % 5 == 3)
        t.b = t.c = t.a; // a point
    return t;
}

} // namespace

TEST(Plane, ConstructionsDistancesAndProjectionAgree)
{
    GeometryRandom random(21);
    for (int i = 0; i < 200; ++i)
    {
        const Vector3 a = random.Point(5), b = random.Point(5), c = random.Point(5);
        const Plane p = Plane::FromPoints(a, b, c);
        ASSERT_TRUE(p.IsValid());
        EXPECT_NEAR(p.normal.Length(), 1.0f, 1e-5f);
        for (const Vector3& corner : {a, b, c})
            EXPECT_NEAR(p.SignedDistance(corner), 0.0f, 1e-4f);
        // Counter-clockwise corners see the normal.
        EXPECT_GT((b - a).Cross(c - a).Dot(p.normal), 0.0f);
        const Vector3 x = random.Point(5);
        EXPECT_NEAR(p.SignedDistance(p.Project(x)), 0.0f, 1e-4f);
        EXPECT_NEAR((x - p.Project(x)).Length(), std::fabs(p.SignedDistance(x)), 1e-4f);

        // Carried through a transform, the transformed points stay on it.
        const Matrix4 m = Matrix4::Compose(random.Point(3), random.Rotation(), Vector3(0.5f, 2, 3));
        const Plane moved = p.Transformed(m);
        for (const Vector3& corner : {a, b, c})
            EXPECT_NEAR(moved.SignedDistance(m.TransformPoint(corner)), 0.0f, 1e-3f);
        EXPECT_GT(moved.SignedDistance(m.TransformPoint(a + p.normal)), 0.0f);

        float t = -1;
        const Ray ray(x, random.Direction());
        if (p.IntersectRay(ray, t))
            EXPECT_NEAR(p.SignedDistance(ray.At(t)), 0.0f, 1e-3f);
        else
            EXPECT_GT(p.SignedDistance(x) * p.normal.Dot(ray.direction), 0.0f);
    }
    EXPECT_FALSE(Plane::FromPoints(Vector3(0.0f), Vector3(1, 1, 1), Vector3(2, 2, 2)).IsValid());
    const Plane floor(Vector3(0, 1, 0), Vector3(0, 3, 0));
    float t = -1;
    EXPECT_FALSE(floor.IntersectRay(Ray(Vector3(0, 2, 0), Vector3(1, 0, 0)), t));
    EXPECT_TRUE(floor.IntersectRay(Ray(Vector3(5, 1, 5), Vector3(1, 0, 0)), t));
    EXPECT_EQ(t, 0.0f);
}

// Over the same triangles, degenerate ones among them: the closest point
// against dense sampling, barycentric weights rebuilding the point, and
// ray hits.
TEST(Triangle, ClosestPointBarycentricAndRayHitsAgreeIncludingDegenerateTriangles)
{
    GeometryRandom random(23);
    int hits = 0;
    for (int i = 0; i < 400; ++i)
    {
        const Triangle t = RandomTriangle(random, i);
        const Vector3 p = random.Point(3);
        const Vector3 q = t.ClosestPoint(p);
        const float sampled = SampledDistance(t, p, 200);
        const float spacing = 4 * std::sqrt(3.0f) / 200;
        EXPECT_LE((q - p).Length(), sampled + 1e-4f) << i;
        EXPECT_GE((q - p).Length(), sampled - spacing) << i;
        // The closest point lies on the triangle.
        EXPECT_LE(SampledDistance(t, q, 200), spacing) << i;

        const Vector3 w = t.Barycentric(p);
        EXPECT_NEAR(w.x + w.y + w.z, 1.0f, 1e-4f);
        const Vector3 rebuilt = t.a * w.x + t.b * w.y + t.c * w.z;
        if (!t.IsDegenerate())
        {
            EXPECT_TRUE(Near(rebuilt, Plane::FromPoints(t.a, t.b, t.c).Project(p), 1e-3f)) << i;
            EXPECT_NEAR(t.Area(), 0.5f * (t.b - t.a).Cross(t.c - t.a).Length(), 1e-6f);
        }
        else
        {
            EXPECT_EQ(t.Normal(), Vector3(0.0f));
            EXPECT_TRUE(Near(rebuilt, q, 1e-3f)) << i;
        }

        // Rays aimed at a random point of the triangle (or beside it).
        const float u = random.Uniform(-0.2f, 1), v = random.Uniform(-0.2f, 1);
        const Vector3 target = t.a + (t.b - t.a) * u + (t.c - t.a) * v;
        const bool inside = u >= 0 && v >= 0 && u + v <= 1;
        const Ray ray(p, target - p);
        float hit = -1;
        const bool result = t.IntersectRay(ray, hit);
        if (t.IsDegenerate())
        {
            // Slivers may be hit, but only on themselves.
            if (result)
            {
                EXPECT_TRUE(Near(t.ClosestPoint(ray.At(hit)), ray.At(hit), 1e-3f)) << i;
            }
        }
        else if (inside && u > 1e-3f && v > 1e-3f && u + v < 0.999f)
        {
            ASSERT_TRUE(result) << i;
            EXPECT_TRUE(Near(ray.At(hit), target, 1e-3f)) << i;
            ++hits;
        }
        else if (!inside && (u < -1e-3f || v < -1e-3f || u + v > 1.001f))
        {
            EXPECT_FALSE(result) << i;
        }
        // Backwards, the same ray misses.
        EXPECT_FALSE(t.IntersectRay(Ray(target, target - p), hit) && hit > 1e-3f);
    }
    EXPECT_GT(hits, 40);
}
