// The geometry library against glm on the same data, in one program and run:
// 4x4 matrix products, point transforms, quaternion rotations of vectors and
// quaternion products. The intersection and distance tests are in
// geometry_query_bench.cpp, in the same program. Each row runs ours and
// glm pass by pass in turn (benchpair.h).
#include "benchpair.h"

#include <qel/matrix4.h>
#include <qel/quaternion.h>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include <cstring>
#include <random>

namespace
{

const int kCount = 4096;

// Both sides' inputs and outputs start on a cache line.
struct Data
{
    alignas(64) qel::Matrix4 a[kCount], b[kCount], c[kCount];
    alignas(64) glm::mat4 ga[kCount], gb[kCount], gc[kCount];
    alignas(64) qel::Vector3 points[kCount], directions[kCount], results[kCount];
    alignas(64) glm::vec3 gpoints[kCount], gdirections[kCount], gresults[kCount];
    alignas(64) qel::Quaternion q[kCount], r[kCount];
    alignas(64) glm::quat gq[kCount], gr[kCount];

    Data()
    {
        std::mt19937 engine(7);
        std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
        for (int i = 0; i < kCount; ++i)
        {
            for (int k = 0; k < 16; ++k)
            {
                (&a[i].columns[0].x)[k] = uniform(engine);
                (&b[i].columns[0].x)[k] = uniform(engine);
            }
            std::memcpy(static_cast<void*>(&ga[i]), &a[i], sizeof a[i]);
            std::memcpy(static_cast<void*>(&gb[i]), &b[i], sizeof b[i]);
            const qel::Vector3 p(uniform(engine) * 5, uniform(engine) * 5, uniform(engine) * 5 + 8);
            points[i] = p;
            directions[i] =
                (qel::Vector3(uniform(engine), uniform(engine), uniform(engine)) - p).Normalized();
            gpoints[i] = glm::vec3(p.x, p.y, p.z);
            gdirections[i] = glm::vec3(directions[i].x, directions[i].y, directions[i].z);
            q[i] = qel::Quaternion::FromAxisAngle(directions[i], p.x);
            gq[i] = glm::angleAxis(p.x, gdirections[i]);
        }
    }
};

Data& GetData()
{
    static Data data;
    return data;
}

void MatrixProduct(benchmark::State& state)
{
    Data& d = GetData();
    qelbench::RunPair(
        state, kCount,
        [&d]
        {
            for (int i = 0; i < kCount; ++i)
                d.c[i] = d.a[i] * d.b[i];
            benchmark::ClobberMemory();
        },
        [&d]
        {
            for (int i = 0; i < kCount; ++i)
                d.gc[i] = d.ga[i] * d.gb[i];
            benchmark::ClobberMemory();
        });
}
QEL_BENCHMARK_PAIR(MatrixProduct);

void TransformPoint(benchmark::State& state)
{
    Data& d = GetData();
    const qel::Matrix4 m = d.a[0];
    const glm::mat4 gm = d.ga[0];
    qelbench::RunPair(
        state, kCount,
        [&d, m]
        {
            for (int i = 0; i < kCount; ++i)
                d.results[i] = m.TransformPoint(d.points[i]);
            benchmark::ClobberMemory();
        },
        [&d, gm]
        {
            for (int i = 0; i < kCount; ++i)
                d.gresults[i] = glm::vec3(gm * glm::vec4(d.gpoints[i], 1.0f));
            benchmark::ClobberMemory();
        });
}
QEL_BENCHMARK_PAIR(TransformPoint);

void QuaternionRotate(benchmark::State& state)
{
    Data& d = GetData();
    const qel::Quaternion q = qel::Quaternion::FromAxisAngle(qel::Vector3(1, 2, 3), 0.7f);
    const glm::quat gq = glm::angleAxis(0.7f, glm::normalize(glm::vec3(1, 2, 3)));
    qelbench::RunPair(
        state, kCount,
        [&d, q]
        {
            for (int i = 0; i < kCount; ++i)
                d.results[i] = q.Rotate(d.points[i]);
            benchmark::ClobberMemory();
        },
        [&d, gq]
        {
            for (int i = 0; i < kCount; ++i)
                d.gresults[i] = gq * d.gpoints[i];
            benchmark::ClobberMemory();
        });
}
QEL_BENCHMARK_PAIR(QuaternionRotate);

void QuaternionProduct(benchmark::State& state)
{
    Data& d = GetData();
    qelbench::RunPair(
        state, kCount - 1,
        [&d]
        {
            for (int i = 1; i < kCount; ++i)
                d.r[i] = d.q[i] * d.q[i - 1];
            benchmark::ClobberMemory();
        },
        [&d]
        {
            for (int i = 1; i < kCount; ++i)
                d.gr[i] = d.gq[i] * d.gq[i - 1];
            benchmark::ClobberMemory();
        });
}
QEL_BENCHMARK_PAIR(QuaternionProduct);

} // namespace

BENCHMARK_MAIN();
