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

Vector3 Triangle::ClosestOnEdges(Vector3 a, Vector3 b, Vector3 c, Vector3 p)
{
    float s;
    Vector3 best = ClosestOnSegment(a, b, p, s);
    for (const Vector3& candidate : {ClosestOnSegment(b, c, p, s), ClosestOnSegment(c, a, p, s)})
        if ((candidate - p).LengthSquared() < (best - p).LengthSquared())
            best = candidate;
    return best;
}

} // namespace qel
