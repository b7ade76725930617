// The geometry library's intersection and distance tests on the same data as
// their peers, in one program and run: glm's tests where glm has one (rays
// against a sphere, a triangle and a plane, points against a sphere and a
// plane), and a straightforward version written here on glm's types for the
// others (the mesh's calls glm's triangle test).
//
// Each row runs ours and one peer pass by pass in turn (benchpair.h), and
// times the same work on both sides: the same rays, points and volumes, and
// every answer (hit or not, and the distance of a hit) is stored, so neither
// side can skip what it computes. Where glm's
// test answers less than ours, its peer adds what a caller would write to get
// our answer: a hit ahead of the origin for a triangle, and for a sphere a
// second peer that takes a direction of any length and answers 0 inside.
// Where the straightforward version answers less than ours, a second peer
// does what ours promises too: spheres that touch meet, and a degenerate
// triangle has a closest point.
#include "benchpair.h"

#include <qel/boundingbox.h>
#include <qel/boundingcylinder.h>
#include <qel/boundingmesh.h>
#include <qel/boundingsphere.h>
#include <qel/plane.h>
#include <qel/triangle.h>

#define GLM_ENABLE_EXPERIMENTAL
#include <glm/glm.hpp>
#include <glm/gtx/intersect.hpp>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

namespace
{

// Items of a pass. Every pass asks the same questions again, and a branch
// predictor learns the answers to a few thousand of them: with 4096 items,
// peers that branch on each answer gained up to a factor of three against
// ours (box Contains: 1.36 then, 4.8 now; glm's ray and sphere: 0.52, 0.88),
// by amounts that changed from run to run. At 32768 it learns next to
// nothing (65536 moves the rows by less than a tenth), as in a caller's
// loop over new rays.
const int kCount = 32768;

glm::vec3 ToGlm(const qel::Vector3& v)
{
    return {v.x, v.y, v.z};
}

// ---- straightforward versions on glm's types -------------------------------

struct Box
{
    glm::vec3 center;
    glm::vec3 axes[3];
    glm::vec3 half;
};

struct Cylinder
{
    glm::vec3 center, axis;
    float half, radius;
};

// Slabs in the box's frame.
bool RayBox(const Box& box, const glm::vec3& origin, const glm::vec3& direction, float& t)
{
    const glm::vec3 offset = origin - box.center;
    float enter = 0.0f, leave = FLT_MAX;
    for (int i = 0; i < 3; ++i)
    {
        const float o = glm::dot(box.axes[i], offset), d = glm::dot(box.axes[i], direction);
        if (d == 0.0f)
        {
            if (std::fabs(o) > box.half[i])
                return false;
            continue;
        }
        float t0 = (-box.half[i] - o) / d, t1 = (box.half[i] - o) / d;
        if (t0 > t1)
            std::swap(t0, t1);
        enter = std::max(enter, t0);
        leave = std::min(leave, t1);
        if (enter > leave)
            return false;
    }
    t = enter;
    return true;
}

// The slab between the caps, then the quadratic of the infinite cylinder.
bool RayCylinder(const Cylinder& c, const glm::vec3& origin, const glm::vec3& direction, float& t)
{
    const glm::vec3 offset = origin - c.center;
    const float oa = glm::dot(offset, c.axis), da = glm::dot(direction, c.axis);
    float enter = 0.0f, leave = FLT_MAX;
    if (da == 0.0f)
    {
        if (std::fabs(oa) > c.half)
            return false;
    }
    else
    {
        float t0 = (-c.half - oa) / da, t1 = (c.half - oa) / da;
        if (t0 > t1)
            std::swap(t0, t1);
        enter = std::max(enter, t0);
        leave = std::min(leave, t1);
    }
    const glm::vec3 o = offset - c.axis * oa, d = direction - c.axis * da;
    const float a = glm::dot(d, d), b = glm::dot(o, d), k = glm::dot(o, o) - c.radius * c.radius;
    if (a == 0.0f)
    {
        if (k > 0.0f)
            return false;
    }
    else
    {
        const float discriminant = b * b - a * k;
        if (discriminant < 0.0f)
            return false;
        const float root = std::sqrt(discriminant);
        enter = std::max(enter, (-b - root) / a);
        leave = std::min(leave, (-b + root) / a);
    }
    if (enter > leave)
        return false;
    t = enter;
    return true;
}

float BoxDistance(const Box& box, const glm::vec3& p)
{
    const glm::vec3 offset = p - box.center;
    float squared = 0.0f;
    for (int i = 0; i < 3; ++i)
    {
        const float outside = std::fabs(glm::dot(box.axes[i], offset)) - box.half[i];
        if (outside > 0.0f)
            squared += outside * outside;
    }
    return std::sqrt(squared);
}

bool BoxContains(const Box& box, const glm::vec3& p)
{
    const glm::vec3 offset = p - box.center;
    for (int i = 0; i < 3; ++i)
        if (std::fabs(glm::dot(box.axes[i], offset)) > box.half[i])
            return false;
    return true;
}

float CylinderDistance(const Cylinder& c, const glm::vec3& p)
{
    const glm::vec3 offset = p - c.center;
    const float along = glm::dot(offset, c.axis);
    const float axial = std::max(std::fabs(along) - c.half, 0.0f);
    const float radial = std::max(glm::length(offset - c.axis * along) - c.radius, 0.0f);
    return std::sqrt(axial * axial + radial * radial);
}

bool CylinderContains(const Cylinder& c, const glm::vec3& p)
{
    const glm::vec3 offset = p - c.center;
    const float along = glm::dot(offset, c.axis);
    const glm::vec3 radial = offset - c.axis * along;
    return std::fabs(along) <= c.half && glm::dot(radial, radial) <= c.radius * c.radius;
}

// The closest point of a triangle, by the Voronoi regions of its corners and
// edges (Ericson, Real-Time Collision Detection 5.1.5).
glm::vec3 ClosestOnTriangle(const glm::vec3& a, const glm::vec3& b, const glm::vec3& c,
                            const glm::vec3& p)
{
    const glm::vec3 ab = b - a, ac = c - a, ap = p - a;
    const float d1 = glm::dot(ab, ap), d2 = glm::dot(ac, ap);
    if (d1 <= 0.0f && d2 <= 0.0f)
        return a;
    const glm::vec3 bp = p - b;
    const float d3 = glm::dot(ab, bp), d4 = glm::dot(ac, bp);
    if (d3 >= 0.0f && d4 <= d3)
        return b;
    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0.0f && d1 >= 0.0f && d3 <= 0.0f)
        return a + ab * (d1 / (d1 - d3));
    const glm::vec3 cp = p - c;
    const float d5 = glm::dot(ab, cp), d6 = glm::dot(ac, cp);
    if (d6 >= 0.0f && d5 <= d6)
        return c;
    const float vb = d5 * d2 - d1 * d6;
    if (vb <= 0.0f && d2 >= 0.0f && d6 <= 0.0f)
        return a + ac * (d2 / (d2 - d6));
    const float va = d3 * d6 - d5 * d4;
    if (va <= 0.0f && d4 - d3 >= 0.0f && d5 - d6 >= 0.0f)
        return b + (c - b) * ((d4 - d3) / ((d4 - d3) + (d5 - d6)));
    const float denominator = 1.0f / (va + vb + vc);
    return a + ab * (vb * denominator) + ac * (vc * denominator);
}

// What a caller adds for a triangle that may be degenerate (a segment or a
// point), where the face region above divides by zero: the closest of the
// three edges when twice the area is within 1e-6 of the longest edge
// squared, asked on every call, as a function for any triangle must.
glm::vec3 ClosestOnSegment(const glm::vec3& p, const glm::vec3& q, const glm::vec3& x)
{
    const glm::vec3 e = q - p;
    const float l = glm::dot(e, e);
    return p + e * (l > 0.0f ? glm::clamp(glm::dot(x - p, e) / l, 0.0f, 1.0f) : 0.0f);
}

glm::vec3 ClosestOnAnyTriangle(const glm::vec3& a, const glm::vec3& b, const glm::vec3& c,
                               const glm::vec3& p)
{
    const glm::vec3 ab = b - a, ac = c - a, bc = c - b, n = glm::cross(ab, ac);
    const float longest = std::max({glm::dot(ab, ab), glm::dot(ac, ac), glm::dot(bc, bc)});
    if (glm::dot(n, n) > longest * longest * 1e-12f)
        return ClosestOnTriangle(a, b, c, p);
    glm::vec3 best = ClosestOnSegment(a, b, p);
    for (const glm::vec3& q : {ClosestOnSegment(b, c, p), ClosestOnSegment(c, a, p)})
        if (glm::dot(q - p, q - p) < glm::dot(best - p, best - p))
            best = q;
    return best;
}

struct Mesh
{
    std::vector<glm::vec3> corners; // three per triangle
    glm::vec3 min, max;
};

// glm's triangle test on every triangle: the nearest hit ahead, and an odd
// number of crossings when the origin is inside the box puts it inside.
bool RayMesh(const Mesh& mesh, const glm::vec3& origin, const glm::vec3& direction, float& t)
{
    float enter = 0.0f, leave = FLT_MAX;
    for (int i = 0; i < 3; ++i)
    {
        if (direction[i] == 0.0f)
        {
            if (origin[i] < mesh.min[i] || origin[i] > mesh.max[i])
                return false;
            continue;
        }
        float t0 = (mesh.min[i] - origin[i]) / direction[i];
        float t1 = (mesh.max[i] - origin[i]) / direction[i];
        if (t0 > t1)
            std::swap(t0, t1);
        enter = std::max(enter, t0);
        leave = std::min(leave, t1);
        if (enter > leave)
            return false;
    }
    float nearest = FLT_MAX;
    int crossings = 0;
    for (size_t i = 0; i < mesh.corners.size(); i += 3)
    {
        glm::vec2 uv;
        float distance;
        if (glm::intersectRayTriangle(origin, direction, mesh.corners[i], mesh.corners[i + 1],
                                      mesh.corners[i + 2], uv, distance) &&
            distance >= 0.0f)
        {
            ++crossings;
            nearest = std::min(nearest, distance);
        }
    }
    if (crossings == 0)
        return false;
    t = enter == 0.0f && crossings % 2 ? 0.0f : nearest;
    return true;
}

float MeshDistance(const Mesh& mesh, const glm::vec3& p)
{
    bool inBox = true;
    for (int i = 0; i < 3; ++i)
        inBox = inBox && p[i] >= mesh.min[i] && p[i] <= mesh.max[i];
    float t;
    if (inBox && RayMesh(mesh, p, glm::vec3(0.5773f, 0.5774f, 0.5776f), t) && t == 0.0f)
        return 0.0f;
    float best = FLT_MAX;
    for (size_t i = 0; i < mesh.corners.size(); i += 3)
    {
        const glm::vec3 q =
            ClosestOnTriangle(mesh.corners[i], mesh.corners[i + 1], mesh.corners[i + 2], p);
        best = std::min(best, glm::dot(q - p, q - p));
    }
    return std::sqrt(best);
}

bool SpheresMeet(const glm::vec3& a, float ra, const glm::vec3& b, float rb)
{
    return glm::dot(a - b, a - b) <= (ra + rb) * (ra + rb);
}

// What a caller adds so that touching spheres meet through the rounding of
// the squares: the sum of the radii widened by 1e-6 of itself, as ours is.
bool SpheresMeetWidened(const glm::vec3& a, float ra, const glm::vec3& b, float rb)
{
    const float reach = (ra + rb) * (1.0f + 1e-6f);
    return glm::dot(a - b, a - b) <= reach * reach;
}

bool SphereMeetsBox(const glm::vec3& center, float radius, const Box& box)
{
    return BoxDistance(box, center) <= radius;
}

// Separating axes: the six face normals and the nine edge cross products
// (Gottschalk's OBB tree test), with a small term against parallel edges.
bool BoxesMeet(const Box& a, const Box& b)
{
    float r[3][3], absR[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
        {
            r[i][j] = glm::dot(a.axes[i], b.axes[j]);
            absR[i][j] = std::fabs(r[i][j]) + 1e-6f;
        }
    const glm::vec3 offset = b.center - a.center;
    const glm::vec3 t(glm::dot(offset, a.axes[0]), glm::dot(offset, a.axes[1]),
                      glm::dot(offset, a.axes[2]));
    for (int i = 0; i < 3; ++i)
        if (std::fabs(t[i]) >
            a.half[i] + b.half[0] * absR[i][0] + b.half[1] * absR[i][1] + b.half[2] * absR[i][2])
            return false;
    for (int j = 0; j < 3; ++j)
        if (std::fabs(t[0] * r[0][j] + t[1] * r[1][j] + t[2] * r[2][j]) >
            a.half[0] * absR[0][j] + a.half[1] * absR[1][j] + a.half[2] * absR[2][j] + b.half[j])
            return false;
    for (int i = 0; i < 3; ++i)
    {
        const int i1 = (i + 1) % 3, i2 = (i + 2) % 3;
        for (int j = 0; j < 3; ++j)
        {
            const int j1 = (j + 1) % 3, j2 = (j + 2) % 3;
            if (std::fabs(t[i2] * r[i1][j] - t[i1] * r[i2][j]) >
                a.half[i1] * absR[i2][j] + a.half[i2] * absR[i1][j] + b.half[j1] * absR[i][j2] +
                    b.half[j2] * absR[i][j1])
                return false;
        }
    }
    return true;
}

// ---- the shared data --------------------------------------------------------

qel::BoundingBox MakeBox(const qel::Vector3& center, const qel::Vector3& axis, float angle,
                         const qel::Vector3& half)
{
    return {center, qel::Matrix3::Rotation(axis, angle), half};
}

Box ToGlm(const qel::BoundingBox& box)
{
    Box out;
    out.center = ToGlm(box.GetCenter());
    for (int i = 0; i < 3; ++i)
        out.axes[i] = ToGlm(box.GetAxes().columns[i]);
    out.half = ToGlm(box.GetHalfExtents());
    return out;
}

// A closed sphere of 112 triangles.
std::vector<qel::Triangle> SphereTriangles(float radius)
{
    const int rings = 8, segments = 8;
    auto at = [&](int ring, int segment)
    {
        const float theta = 3.14159265f * float(ring) / rings;
        const float phi = 2 * 3.14159265f * float(segment % segments) / segments;
        return qel::Vector3(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                            std::cos(theta)) *
               radius;
    };
    std::vector<qel::Triangle> triangles;
    for (int ring = 0; ring < rings; ++ring)
        for (int segment = 0; segment < segments; ++segment)
        {
            const qel::Vector3 a = at(ring, segment), b = at(ring + 1, segment),
                               c = at(ring + 1, segment + 1), d = at(ring, segment + 1);
            if (ring + 1 < rings)
                triangles.emplace_back(a, b, c);
            if (ring > 0)
                triangles.emplace_back(a, c, d);
        }
    return triangles;
}

struct Data
{
    // Rays from above aimed at the cube [-1, 1], about half of them hit;
    // points in that cube, and pairs of volumes around it. Each side's
    // items start on a cache line.
    alignas(64) qel::Vector3 origins[kCount], directions[kCount], points[kCount];
    alignas(64) glm::vec3 gorigins[kCount], gdirections[kCount], gpoints[kCount];
    alignas(64) qel::BoundingSphere spheres[kCount];
    alignas(64) qel::BoundingBox boxes[kCount];
    alignas(64) Box gboxes[kCount];

    const qel::BoundingSphere sphere{qel::Vector3(0.0f), 0.8f};
    const qel::BoundingBox box =
        MakeBox(qel::Vector3(0.0f), qel::Vector3(1, 1, 0), 0.6f, qel::Vector3(0.7f, 0.5f, 0.6f));
    const qel::BoundingCylinder cylinder{qel::Vector3(0.1f, -0.2f, 0.0f), qel::Vector3(1, 2, 0.5f),
                                         0.7f, 0.5f};
    const qel::Triangle triangle{qel::Vector3(-1, -1, 0), qel::Vector3(1, -1, 0),
                                 qel::Vector3(0, 1, 0.2f)};
    // Through the rays' origins: those above it hit.
    const qel::Plane plane{qel::Vector3(0, 0, 8), qel::Vector3(0.1f, 0.2f, 1)};
    const std::vector<qel::Triangle> meshTriangles = SphereTriangles(0.9f);
    const qel::BoundingMesh mesh{meshTriangles.data(), unsigned(meshTriangles.size())};

    Box gbox;
    Cylinder gcylinder;
    Mesh gmesh;

    Data()
    {
        std::mt19937 engine(7);
        std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
        auto vector = [&](float scale)
        { return qel::Vector3(uniform(engine), uniform(engine), uniform(engine)) * scale; };
        for (int i = 0; i < kCount; ++i)
        {
            origins[i] = vector(5) + qel::Vector3(0, 0, 8);
            directions[i] = (vector(1) - origins[i]).Normalized();
            points[i] = vector(1);
            spheres[i] = qel::BoundingSphere(vector(1), 0.2f + 0.4f * (uniform(engine) + 1));
            boxes[i] = MakeBox(vector(1), vector(1), uniform(engine) * 3,
                               qel::Vector3(0.5f) + vector(0.3f));
            gorigins[i] = ToGlm(origins[i]);
            gdirections[i] = ToGlm(directions[i]);
            gpoints[i] = ToGlm(points[i]);
            gboxes[i] = ToGlm(boxes[i]);
        }
        gbox = ToGlm(box);
        gcylinder = {ToGlm(cylinder.GetCenter()), ToGlm(cylinder.GetAxis()),
                     cylinder.GetHalfHeight(), cylinder.GetRadius()};
        for (const qel::Triangle& t : meshTriangles)
            for (int k = 0; k < 3; ++k)
                gmesh.corners.push_back(ToGlm(t[k]));
        qel::Vector3 min, max;
        mesh.GetBounds(min, max);
        gmesh.min = ToGlm(min);
        gmesh.max = ToGlm(max);
    }
};

Data& GetData()
{
    static Data data;
    return data;
}

// The answers, ours in [0] and the peer's in [1]: hit or not, and the
// distance or the hit's t. Arrays of their own, which a compiler knows apart
// from any volume: a store of an answer makes neither side read its volume
// again. Each pass hands them to the benchmark library, so that no store can
// be dropped.
alignas(64) int g_Hits[2][kCount];
alignas(64) float g_Answers[2][kCount];
alignas(64) qel::Vector3 g_Closest[kCount];
alignas(64) glm::vec3 g_GlmClosest[kCount];

// One pass of test(i, t) on every item, keeping each answer and each t
// (which starts at -1 and is left alone by a miss, or not, as each side does)
// in the answers of side (0 ours, 1 the peer's).
template <int side, class Test>
QEL_BENCH_INLINE void HitPass(const Test& test)
{
    for (int i = 0; i < kCount; ++i)
    {
        float t = -1.0f;
        g_Hits[side][i] = test(i, t);
        g_Answers[side][i] = t;
    }
    benchmark::DoNotOptimize(g_Hits[side]);
    benchmark::DoNotOptimize(g_Answers[side]);
}

// Ours against a peer on every item, with each side's number of hits: a
// pair whose counts differ is not answering the same question. Each test
// holds a copy of its volume.
template <class Ours, class Peer>
void Hits(benchmark::State& state, const Ours& ours, const Peer& peer)
{
    qelbench::RunPair(
        state, kCount, [ours] { HitPass<0>(ours); }, [peer] { HitPass<1>(peer); });
    state.counters["hits"] = float(std::count(g_Hits[0], g_Hits[0] + kCount, 1));
    state.counters["peer hits"] = float(std::count(g_Hits[1], g_Hits[1] + kCount, 1));
}

// One pass of test(i) on every item, keeping each distance.
template <int side, class Test>
QEL_BENCH_INLINE void DistancePass(const Test& test)
{
    for (int i = 0; i < kCount; ++i)
        g_Answers[side][i] = test(i);
    benchmark::DoNotOptimize(g_Answers[side]);
}

// Ours against a peer on every item; the counters are each side's number of
// zero distances.
template <class Ours, class Peer>
void Distances(benchmark::State& state, const Ours& ours, const Peer& peer)
{
    qelbench::RunPair(
        state, kCount, [ours] { DistancePass<0>(ours); }, [peer] { DistancePass<1>(peer); });
    state.counters["zero"] = float(std::count(g_Answers[0], g_Answers[0] + kCount, 0.0f));
    state.counters["peer zero"] = float(std::count(g_Answers[1], g_Answers[1] + kCount, 0.0f));
}

// Ours for a volume on the data's rays.
template <class Volume>
auto OursOnRays(const Data& d, const Volume& volume)
{
    return [&d, volume](int i, float& t)
    { return volume.IntersectRay(qel::Ray(d.origins[i], d.directions[i]), t); };
}

// ---- rays: items are rays ---------------------------------------------------

void RaySphere_glm(benchmark::State& state)
{
    const Data& d = GetData();
    const glm::vec3 center = ToGlm(d.sphere.GetCenter());
    const float radius2 = d.sphere.GetRadius() * d.sphere.GetRadius();
    Hits(state, OursOnRays(d, d.sphere),
         [&d, center, radius2](int i, float& t)
         { return glm::intersectRaySphere(d.gorigins[i], d.gdirections[i], center, radius2, t); });
}
QEL_BENCHMARK_PAIR(RaySphere_glm);

// glm's test wants a unit direction and answers the far side for an origin
// inside; ours takes a direction of any length and answers 0 inside. This is
// what a caller of glm's test writes for that: the same answers, on the same
// (unit) directions.
void RaySphere_glmAnyLength(benchmark::State& state)
{
    const Data& d = GetData();
    const glm::vec3 center = ToGlm(d.sphere.GetCenter());
    const float radius2 = d.sphere.GetRadius() * d.sphere.GetRadius();
    Hits(state, OursOnRays(d, d.sphere),
         [&d, center, radius2](int i, float& t)
         {
             const glm::vec3 offset = d.gorigins[i] - center;
             if (glm::dot(offset, offset) <= radius2)
             {
                 t = 0.0f;
                 return true;
             }
             const float length = glm::length(d.gdirections[i]);
             if (!glm::intersectRaySphere(d.gorigins[i], d.gdirections[i] / length, center, radius2,
                                          t))
                 return false;
             t /= length;
             return true;
         });
}
QEL_BENCHMARK_PAIR(RaySphere_glmAnyLength);

void RayTriangle_glm(benchmark::State& state)
{
    const Data& d = GetData();
    const glm::vec3 a = ToGlm(d.triangle.a), b = ToGlm(d.triangle.b), c = ToGlm(d.triangle.c);
    Hits(state, OursOnRays(d, d.triangle),
         [&d, a, b, c](int i, float& t)
         {
             // glm's test also reports triangles behind the origin.
             glm::vec2 uv;
             return glm::intersectRayTriangle(d.gorigins[i], d.gdirections[i], a, b, c, uv, t) &&
                    t >= 0.0f;
         });
}
QEL_BENCHMARK_PAIR(RayTriangle_glm);

void RayPlane_glm(benchmark::State& state)
{
    const Data& d = GetData();
    const glm::vec3 normal = ToGlm(d.plane.normal), point = normal * -d.plane.d;
    Hits(state, OursOnRays(d, d.plane),
         [&d, normal, point](int i, float& t)
         { return glm::intersectRayPlane(d.gorigins[i], d.gdirections[i], point, normal, t); });
}
QEL_BENCHMARK_PAIR(RayPlane_glm);

void RayBox_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(state, OursOnRays(d, d.box),
         [&d, box = d.gbox](int i, float& t)
         { return RayBox(box, d.gorigins[i], d.gdirections[i], t); });
}
QEL_BENCHMARK_PAIR(RayBox_scalar);

void RayCylinder_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(state, OursOnRays(d, d.cylinder),
         [&d, cylinder = d.gcylinder](int i, float& t)
         { return RayCylinder(cylinder, d.gorigins[i], d.gdirections[i], t); });
}
QEL_BENCHMARK_PAIR(RayCylinder_scalar);

// The meshes are not copied: both sides read theirs where they are.
void RayMesh_glm(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(
        state,
        [&d](int i, float& t)
        { return d.mesh.IntersectRay(qel::Ray(d.origins[i], d.directions[i]), t); },
        [&d](int i, float& t) { return RayMesh(d.gmesh, d.gorigins[i], d.gdirections[i], t); });
}
QEL_BENCHMARK_PAIR(RayMesh_glm);

// ---- points: items are points -----------------------------------------------

// Ours for a volume on the data's points.
template <class Volume>
auto OursOnPoints(const Data& d, const Volume& volume)
{
    return [&d, volume](int i) { return volume.Distance(d.points[i]); };
}

void SphereDistance_glm(benchmark::State& state)
{
    const Data& d = GetData();
    const glm::vec3 center = ToGlm(d.sphere.GetCenter());
    const float radius = d.sphere.GetRadius();
    Distances(state, OursOnPoints(d, d.sphere),
              [&d, center, radius](int i)
              { return std::max(glm::distance(d.gpoints[i], center) - radius, 0.0f); });
}
QEL_BENCHMARK_PAIR(SphereDistance_glm);

void BoxDistance_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Distances(state, OursOnPoints(d, d.box),
              [&d, box = d.gbox](int i) { return BoxDistance(box, d.gpoints[i]); });
}
QEL_BENCHMARK_PAIR(BoxDistance_scalar);

void CylinderDistance_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Distances(state, OursOnPoints(d, d.cylinder),
              [&d, cylinder = d.gcylinder](int i)
              { return CylinderDistance(cylinder, d.gpoints[i]); });
}
QEL_BENCHMARK_PAIR(CylinderDistance_scalar);

void MeshDistance_glm(benchmark::State& state)
{
    const Data& d = GetData();
    Distances(
        state, [&d](int i) { return d.mesh.Distance(d.points[i]); },
        [&d](int i) { return MeshDistance(d.gmesh, d.gpoints[i]); });
}
QEL_BENCHMARK_PAIR(MeshDistance_glm);

void PlaneDistance_glm(benchmark::State& state)
{
    const Data& d = GetData();
    const glm::vec3 normal = ToGlm(d.plane.normal);
    const float offset = d.plane.d;
    Distances(
        state, [&d, plane = d.plane](int i) { return plane.SignedDistance(d.points[i]); },
        [&d, normal, offset](int i) { return glm::dot(normal, d.gpoints[i]) + offset; });
}
QEL_BENCHMARK_PAIR(PlaneDistance_glm);

// The closest point itself is the answer: all three coordinates are kept.
template <class Test, class Point>
QEL_BENCH_INLINE void ClosestPass(const Test& test, Point (&closest)[kCount])
{
    for (int i = 0; i < kCount; ++i)
        closest[i] = test(i);
    benchmark::DoNotOptimize(closest);
}

template <class Closest>
void TriangleClosest(benchmark::State& state, Closest closest)
{
    const Data& d = GetData();
    const glm::vec3 a = ToGlm(d.triangle.a), b = ToGlm(d.triangle.b), c = ToGlm(d.triangle.c);
    const auto ours = [&d, triangle = d.triangle](int i)
    { return triangle.ClosestPoint(d.points[i]); };
    const auto peer = [&d, a, b, c, closest](int i) { return closest(a, b, c, d.gpoints[i]); };
    qelbench::RunPair(
        state, kCount, [ours] { ClosestPass(ours, g_Closest); },
        [peer] { ClosestPass(peer, g_GlmClosest); });
}

// The peers are called by name, where the compiler can inline them.
void TriangleClosest_scalar(benchmark::State& state)
{
    TriangleClosest(state, [](const auto&... corners) { return ClosestOnTriangle(corners...); });
}
QEL_BENCHMARK_PAIR(TriangleClosest_scalar);

// Ours also answers for degenerate triangles; this peer does too.
void TriangleClosest_scalarAnyTriangle(benchmark::State& state)
{
    TriangleClosest(state, [](const auto&... corners) { return ClosestOnAnyTriangle(corners...); });
}
QEL_BENCHMARK_PAIR(TriangleClosest_scalarAnyTriangle);

void SphereContains_glm(benchmark::State& state)
{
    const Data& d = GetData();
    const glm::vec3 center = ToGlm(d.sphere.GetCenter());
    const float radius2 = d.sphere.GetRadius() * d.sphere.GetRadius();
    Hits(
        state, [&d, sphere = d.sphere](int i, float&) { return sphere.Contains(d.points[i]); },
        [&d, center, radius2](int i, float&)
        {
            const glm::vec3 offset = d.gpoints[i] - center;
            return glm::dot(offset, offset) <= radius2;
        });
}
QEL_BENCHMARK_PAIR(SphereContains_glm);

void BoxContains_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(
        state, [&d, box = d.box](int i, float&) { return box.Contains(d.points[i]); },
        [&d, box = d.gbox](int i, float&) { return BoxContains(box, d.gpoints[i]); });
}
QEL_BENCHMARK_PAIR(BoxContains_scalar);

void CylinderContains_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(
        state,
        [&d, cylinder = d.cylinder](int i, float&) { return cylinder.Contains(d.points[i]); },
        [&d, cylinder = d.gcylinder](int i, float&)
        { return CylinderContains(cylinder, d.gpoints[i]); });
}
QEL_BENCHMARK_PAIR(CylinderContains_scalar);

// ---- pairs: items are pairs of volumes, about half of them apart ------------

// Ours on the pairs of spheres; the peers read the same spheres.
auto OursOnSpheres(const Data& d)
{
    return [&d](int i, float&) { return d.spheres[i].Intersects(d.spheres[i ^ 1]); };
}

void SphereSphere_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(state, OursOnSpheres(d),
         [&d](int i, float&)
         {
             const qel::BoundingSphere &a = d.spheres[i], &b = d.spheres[i ^ 1];
             return SpheresMeet(ToGlm(a.GetCenter()), a.GetRadius(), ToGlm(b.GetCenter()),
                                b.GetRadius());
         });
}
QEL_BENCHMARK_PAIR(SphereSphere_scalar);

void SphereSphere_scalarWidened(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(state, OursOnSpheres(d),
         [&d](int i, float&)
         {
             const qel::BoundingSphere &a = d.spheres[i], &b = d.spheres[i ^ 1];
             return SpheresMeetWidened(ToGlm(a.GetCenter()), a.GetRadius(), ToGlm(b.GetCenter()),
                                       b.GetRadius());
         });
}
QEL_BENCHMARK_PAIR(SphereSphere_scalarWidened);

void SphereBox_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(
        state, [&d](int i, float&) { return d.spheres[i].Intersects(d.boxes[i]); },
        [&d](int i, float&) {
            return SphereMeetsBox(ToGlm(d.spheres[i].GetCenter()), d.spheres[i].GetRadius(),
                                  d.gboxes[i]);
        });
}
QEL_BENCHMARK_PAIR(SphereBox_scalar);

void BoxBox_scalar(benchmark::State& state)
{
    const Data& d = GetData();
    Hits(
        state, [&d](int i, float&) { return d.boxes[i].Intersects(d.boxes[i ^ 1]); },
        [&d](int i, float&) { return BoxesMeet(d.gboxes[i], d.gboxes[i ^ 1]); });
}
QEL_BENCHMARK_PAIR(BoxBox_scalar);

} // namespace
