#include <qel/triangle.h>

#include <algorithm>
#include <cmath>

namespace qel
{

namespace
{

// Closest point of segment [p, q] to x, and its parameter.
Vector3 ClosestOnSegment(const Vector3& p, const Vector3& q, const Vector3& x, float& s)
{
    const Vector3 e = q - p;
    const float l = e.LengthSquared();
    s = l > 0.0f ? std::min(std::max((x - p).Dot(e) / l, 0.0f), 1.0f) : 0.0f;
    return p + e * s;
}

} // namespace

bool Triangle::IsDegenerate() const
{
    // Twice the area against the squared longest edge: a sliver whose height
    // is below float noise counts as a segment.
    const float cross = (b - a).Cross(c - a).Length();
    const float edge = std::max((b - a).LengthSquared(),
                                std::max((c - b).LengthSquared(), (a - c).LengthSquared()));
    return !(cross > edge * 1e-6f);
}

Vector3 Triangle::Barycentric(const Vector3& p) const
{
    if (IsDegenerate())
    {
        const Vector3 edges[3] = {b - a, c - b, a - c};
        int longest = 0;
        for (int i = 1; i < 3; ++i)
            if (edges[i].LengthSquared() > edges[longest].LengthSquared())
                longest = i;
        float s;
        ClosestOnSegment((*this)[longest], (*this)[(longest + 1) % 3], p, s);
        Vector3 weights(0.0f);
        weights[longest] = 1.0f - s;
        weights[(longest + 1) % 3] = s;
        return weights;
    }
    const Vector3 e0 = b - a, e1 = c - a, ep = p - a;
    const float d00 = e0.Dot(e0), d01 = e0.Dot(e1), d11 = e1.Dot(e1);
    const float d20 = ep.Dot(e0), d21 = ep.Dot(e1);
    const float inv = 1.0f / (d00 * d11 - d01 * d01);
    const float v = (d11 * d20 - d01 * d21) * inv;
    const float w = (d00 * d21 - d01 * d20) * inv;
    return {1.0f - v - w, v, w};
}

Vector3 Triangle::ClosestPoint(const Vector3& p) const
{
    if (IsDegenerate())
    {
        float s;
        Vector3 best = ClosestOnSegment(a, b, p, s);
        for (const Vector3& candidate :
             {ClosestOnSegment(b, c, p, s), ClosestOnSegment(c, a, p, s)})
            if ((candidate - p).LengthSquared() < (best - p).LengthSquared())
                best = candidate;
        return best;
    }
    // Voronoi regions of the vertices, then the edges, then the face.
    const Vector3 ab = b - a, ac = c - a, ap = p - a;
    const float d1 = ab.Dot(ap), d2 = ac.Dot(ap);
    if (d1 <= 0.0f && d2 <= 0.0f)
        return a;
    const Vector3 bp = p - b;
    const float d3 = ab.Dot(bp), d4 = ac.Dot(bp);
    if (d3 >= 0.0f && d4 <= d3)
        return b;
    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0.0f && d1 >= 0.0f && d3 <= 0.0f)
        return a + ab * (d1 / (d1 - d3));
    const Vector3 cp = p - c;
    const float d5 = ab.Dot(cp), d6 = ac.Dot(cp);
    if (d6 >= 0.0f && d5 <= d6)
        return c;
    const float vb = d5 * d2 - d1 * d6;
    if (vb <= 0.0f && d2 >= 0.0f && d6 <= 0.0f)
        return a + ac * (d2 / (d2 - d6));
    const float va = d3 * d6 - d5 * d4;
    if (va <= 0.0f && (d4 - d3) >= 0.0f && (d5 - d6) >= 0.0f)
        return b + (c - b) * ((d4 - d3) / ((d4 - d3) + (d5 - d6)));
    const float inv = 1.0f / (va + vb + vc);
    return a + ab * (vb * inv) + ac * (vc * inv);
}

} // namespace qel
