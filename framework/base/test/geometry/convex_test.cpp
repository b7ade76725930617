#include "volumesamples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>

using namespace qel;
using namespace qeltest;

namespace
{

class TriangleSupport final : public geometry::ConvexShape
{
public:
    explicit TriangleSupport(const Triangle& t) : m_T(t) {}
    Vector3 Support(const Vector3& d) const override
    {
        const float a = d.Dot(m_T.a), b = d.Dot(m_T.b), c = d.Dot(m_T.c);
        return a >= b && a >= c ? m_T.a : b >= c ? m_T.b : m_T.c;
    }
    Vector3 Inside() const override { return m_T.a; }

private:
    const Triangle& m_T;
};

} // namespace

// The GJK distance between a triangle and a curved or a flat convex volume,
// against the volume's exact point distance over a dense grid of the
// triangle. Curved surfaces converge slowly and leave nearly flat simplices:
// the case that once reported far-apart shapes as touching.
TEST(ConvexDistance, MatchesTheSampledDistanceFromTrianglesToCylindersAndBoxes)
{
    GeometryRandom random(41);
    const int n = 60;
    int apart = 0;
    for (int i = 0; i < 1500; ++i)
    {
        const VolumePtr volume = RandomVolume(random, 1 + i % 2, i);
        Vector3 min, max;
        volume->GetBounds(min, max);
        const Vector3 middle = (min + max) * 0.5f;
        Triangle t(middle + random.Point(2), middle + random.Point(2), middle + random.Point(2));
        if (i % 7 == 0)
            t.c = Vector3::Lerp(t.a, t.b, 0.3f); // degenerate
        float reference = FLT_MAX;
        for (int u = 0; u <= n; ++u)
            for (int v = 0; u + v <= n; ++v)
                reference =
                    std::min(reference, volume->Distance(t.a + (t.b - t.a) * (float(u) / n) +
                                                         (t.c - t.a) * (float(v) / n)));
        const float spacing = ((t.b - t.a).Length() + (t.c - t.a).Length()) / n;
        const float distance =
            i % 2 ? geometry::ConvexDistance(TriangleSupport(t),
                                             VolumeSupport<BoundingCylinder>(
                                                 static_cast<const BoundingCylinder&>(*volume)))
                  : geometry::ConvexDistance(
                        TriangleSupport(t),
                        VolumeSupport<BoundingBox>(static_cast<const BoundingBox&>(*volume)));
        EXPECT_LE(distance, reference + 1e-3f) << i;
        EXPECT_GE(distance, reference - spacing - 1e-3f) << i;
        if (reference == 0.0f)
        {
            EXPECT_EQ(distance, 0.0f) << i;
        }
        apart += reference > spacing;
    }
    EXPECT_GT(apart, 400);
}
