// Internal helpers of the bounding volumes: the GJK distance between convex
// shapes given by support functions, and the largest stretch of a linear map.
#pragma once

#include <qel/export.h>
#include <qel/matrix3.h>
#include <qel/triangle.h>
#include <qel/vector3.h>

namespace qel
{
namespace geometry
{

// A convex shape for ConvexDistance: Support(d) is a point of the shape
// farthest along d (any point when d is zero).
class ConvexShape
{
public:
    virtual Vector3 Support(const Vector3& direction) const = 0;
    // Any point of the shape, to start the search from.
    virtual Vector3 Inside() const = 0;

protected:
    ~ConvexShape() = default;
};

class TriangleShape final : public ConvexShape
{
public:
    explicit TriangleShape(const Triangle& t) : m_Triangle(t) {}
    Vector3 Support(const Vector3& d) const override;
    Vector3 Inside() const override { return m_Triangle.a; }

private:
    const Triangle& m_Triangle;
};

// Euclidean distance between two convex shapes (0 when they overlap or touch
// within float noise of their size). Exported for the tests.
QEL_API float ConvexDistance(const ConvexShape& a, const ConvexShape& b);

// The largest factor by which m lengthens a vector (its largest singular value).
float MaxStretch(const Matrix3& m);

} // namespace geometry
} // namespace qel
