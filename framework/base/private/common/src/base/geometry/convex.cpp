#include "base/geometry/convex.h"

#include <algorithm>
#include <cmath>

namespace qel
{
namespace geometry
{

Vector3 TriangleShape::Support(const Vector3& d) const
{
    const float da = d.Dot(m_Triangle.a), db = d.Dot(m_Triangle.b), dc = d.Dot(m_Triangle.c);
    if (da >= db && da >= dc)
        return m_Triangle.a;
    return db >= dc ? m_Triangle.b : m_Triangle.c;
}

namespace
{

// The simplex of the GJK search: up to four points of the Minkowski
// difference A - B, reduced after every step to the smallest face that holds
// the point closest to the origin.
struct Simplex
{
    Vector3 points[4];
    int count = 0;

    void Keep(int i0, int i1 = -1, int i2 = -1)
    {
        const Vector3 p0 = points[i0];
        const Vector3 p1 = i1 >= 0 ? points[i1] : p0;
        const Vector3 p2 = i2 >= 0 ? points[i2] : p0;
        points[0] = p0;
        points[1] = p1;
        points[2] = p2;
        count = 1 + (i1 >= 0) + (i2 >= 0);
    }
};

Vector3 ClosestOnSegment(Simplex& s, int i0, int i1)
{
    const Vector3 a = s.points[i0], b = s.points[i1];
    const Vector3 ab = b - a;
    const float t = -a.Dot(ab);
    if (t <= 0.0f)
    {
        s.Keep(i0);
        return a;
    }
    const float l = ab.LengthSquared();
    if (t >= l)
    {
        s.Keep(i1);
        return b;
    }
    s.Keep(i0, i1);
    return a + ab * (t / l);
}

// Closest point of triangle (i0, i1, i2) to the origin, by Voronoi regions.
Vector3 ClosestOnTriangle(Simplex& s, int i0, int i1, int i2)
{
    const Vector3 a = s.points[i0], b = s.points[i1], c = s.points[i2];
    const Vector3 ab = b - a, ac = c - a, ap = -a;
    const float d1 = ab.Dot(ap), d2 = ac.Dot(ap);
    if (d1 <= 0.0f && d2 <= 0.0f)
        return s.Keep(i0), a;
    const Vector3 bp = -b;
    const float d3 = ab.Dot(bp), d4 = ac.Dot(bp);
    if (d3 >= 0.0f && d4 <= d3)
        return s.Keep(i1), b;
    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0.0f && d1 >= 0.0f && d3 <= 0.0f)
        return s.Keep(i0, i1), a + ab * (d1 / (d1 - d3));
    const Vector3 cp = -c;
    const float d5 = ab.Dot(cp), d6 = ac.Dot(cp);
    if (d6 >= 0.0f && d5 <= d6)
        return s.Keep(i2), c;
    const float vb = d5 * d2 - d1 * d6;
    if (vb <= 0.0f && d2 >= 0.0f && d6 <= 0.0f)
        return s.Keep(i0, i2), a + ac * (d2 / (d2 - d6));
    const float va = d3 * d6 - d5 * d4;
    if (va <= 0.0f && (d4 - d3) >= 0.0f && (d5 - d6) >= 0.0f)
        return s.Keep(i1, i2), b + (c - b) * ((d4 - d3) / ((d4 - d3) + (d5 - d6)));
    const float sum = va + vb + vc;
    if (!(sum > 0.0f))
    {
        // Collinear corners: the best of the three edges.
        Simplex e0 = s, e1 = s, e2 = s;
        const Vector3 p0 = ClosestOnSegment(e0, i0, i1);
        const Vector3 p1 = ClosestOnSegment(e1, i1, i2);
        const Vector3 p2 = ClosestOnSegment(e2, i0, i2);
        const float l0 = p0.LengthSquared(), l1 = p1.LengthSquared(), l2 = p2.LengthSquared();
        if (l0 <= l1 && l0 <= l2)
            return s = e0, p0;
        return l1 <= l2 ? (s = e1, p1) : (s = e2, p2);
    }
    s.Keep(i0, i1, i2);
    return a + ab * (vb / sum) + ac * (vc / sum);
}

// The plane of a face in double precision: the corners are floats, so the
// products are nearly exact and the sides hold even for the slivers that
// near-coincident corners make.
struct FacePlane
{
    double nx, ny, nz, length;
    Vector3 a;

    FacePlane(const Vector3& a_, const Vector3& b, const Vector3& c) : a(a_)
    {
        const double ux = double(b.x) - a.x, uy = double(b.y) - a.y, uz = double(b.z) - a.z;
        const double vx = double(c.x) - a.x, vy = double(c.y) - a.y, vz = double(c.z) - a.z;
        nx = uy * vz - uz * vy;
        ny = uz * vx - ux * vz;
        nz = ux * vy - uy * vx;
        length = std::sqrt(nx * nx + ny * ny + nz * nz);
    }
    // Positive on the side the normal points to (times the normal's length).
    double Side(const Vector3& p) const
    {
        return nx * (double(p.x) - a.x) + ny * (double(p.y) - a.y) + nz * (double(p.z) - a.z);
    }
};

// Closest point of the tetrahedron to the origin; sets inside when the origin
// is within it. Near convergence the new corner lies almost in the plane of
// the old triangle: a tetrahedron thinner than the tolerance holds nothing and
// only its faces count (an origin that close to it is within the tolerance
// anyway).
Vector3 ClosestOnTetrahedron(Simplex& s, float tolerance, bool& inside)
{
    static const int faces[4][4] = {{0, 1, 2, 3}, {0, 2, 3, 1}, {0, 3, 1, 2}, {1, 3, 2, 0}};
    double origin[4], opposite[4];
    bool flat = false;
    for (int f = 0; f < 4; ++f)
    {
        const FacePlane plane(s.points[faces[f][0]], s.points[faces[f][1]], s.points[faces[f][2]]);
        origin[f] = plane.Side(Vector3(0.0f));
        opposite[f] = plane.Side(s.points[faces[f][3]]);
        const double length = plane.length;
        flat = flat || !(std::fabs(opposite[f]) > double(tolerance) * length);
    }
    inside = !flat;
    float best = 0.0f;
    Vector3 closest(0.0f);
    Simplex bestSimplex;
    for (int f = 0; f < 4; ++f)
    {
        // The origin is outside this face when it lies on the other side from
        // the fourth corner.
        if (!flat && origin[f] * opposite[f] > 0.0)
            continue;
        inside = false;
        Simplex face = s;
        const Vector3 p = ClosestOnTriangle(face, faces[f][0], faces[f][1], faces[f][2]);
        if (bestSimplex.count == 0 || p.LengthSquared() < best)
        {
            best = p.LengthSquared();
            closest = p;
            bestSimplex = face;
        }
    }
    if (!inside)
        s = bestSimplex;
    return closest;
}

} // namespace

float ConvexDistance(const ConvexShape& a, const ConvexShape& b)
{
    Vector3 v = a.Inside() - b.Inside();
    Simplex simplex;
    // Relative tolerance: the shapes' own scale decides what is float noise.
    const float scale = std::max(v.Length(), (a.Support(v) - a.Support(-v)).Length() +
                                                 (b.Support(v) - b.Support(-v)).Length());
    const float tolerance = std::max(scale, 1e-20f) * 1e-5f;
    if (v.LengthSquared() == 0.0f)
        return 0.0f;
    // v is itself a point of A - B: the first corner of the simplex.
    simplex.points[simplex.count++] = v;
    float previous = v.LengthSquared();
    // |v| bounds the distance from above; every support plane bounds it from
    // below. When float noise stalls the search before the two meet (shallow
    // contact leaves simplices too thin to enclose the origin), the lower
    // bound is the answer: it never calls touching shapes apart.
    float lower = 0.0f;
    for (int iteration = 0; iteration < 64; ++iteration)
    {
        const Vector3 w = a.Support(-v) - b.Support(v);
        const float vv = v.LengthSquared();
        const float vw = v.Dot(w);
        lower = std::max(lower, vw / std::sqrt(vv));
        // No support point gets nearer than the current one: v is the answer.
        if (vv - vw <= vv * 1e-6f)
        {
            const float distance = std::sqrt(vv);
            return distance <= tolerance ? 0.0f : distance;
        }
        bool duplicate = false;
        for (int i = 0; i < simplex.count; ++i)
            duplicate = duplicate || simplex.points[i] == w;
        if (duplicate)
            break;
        simplex.points[simplex.count++] = w;
        Vector3 next;
        switch (simplex.count)
        {
        case 1:
            next = w;
            break;
        case 2:
            next = ClosestOnSegment(simplex, 0, 1);
            break;
        case 3:
            next = ClosestOnTriangle(simplex, 0, 1, 2);
            break;
        default:
        {
            bool inside;
            next = ClosestOnTetrahedron(simplex, tolerance, inside);
            if (inside)
                return 0.0f;
        }
        }
        const float length = next.LengthSquared();
        if (length <= tolerance * tolerance)
            return 0.0f;
        if (length >= previous)
            break; // float noise: no more progress
        previous = length;
        v = next;
    }
    return lower <= tolerance ? 0.0f : lower;
}

float MaxStretch(const Matrix3& m)
{
    // Square root of the largest eigenvalue of the symmetric m^T m.
    const Matrix3 s = m.Transposed() * m;
    const float p1 = s(0, 1) * s(0, 1) + s(0, 2) * s(0, 2) + s(1, 2) * s(1, 2);
    float largest;
    if (p1 == 0.0f)
        largest = std::max(s(0, 0), std::max(s(1, 1), s(2, 2)));
    else
    {
        const float q = (s(0, 0) + s(1, 1) + s(2, 2)) / 3.0f;
        const float p2 = (s(0, 0) - q) * (s(0, 0) - q) + (s(1, 1) - q) * (s(1, 1) - q) +
                         (s(2, 2) - q) * (s(2, 2) - q) + 2.0f * p1;
        const float p = std::sqrt(p2 / 6.0f);
        Matrix3 b = s;
        for (int i = 0; i < 3; ++i)
            b(i, i) -= q;
        const float r = std::min(std::max(b.Determinant() / (2.0f * p * p * p), -1.0f), 1.0f);
        largest = q + 2.0f * p * std::cos(std::acos(r) / 3.0f);
    }
    // A hair over, so bounds built from it never fall short by rounding.
    return std::sqrt(std::max(largest, 0.0f)) * (1.0f + 1e-5f);
}

} // namespace geometry
} // namespace qel
