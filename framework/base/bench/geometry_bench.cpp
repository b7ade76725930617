// The geometry library against glm on the same data, in one program and run:
// 4x4 matrix products, point transforms, quaternion rotations of vectors and
// quaternion products. The intersection and distance tests are in
// geometry_query_bench.cpp, in the same program.
#include <qel/matrix4.h>
#include <qel/quaternion.h>

#include <benchmark/benchmark.h>

#include <glm/glm.hpp>
#include <glm/gtc/quaternion.hpp>

#include <cstring>
#include <random>
#include <vector>

namespace
{

const int kCount = 4096;

struct Data
{
    std::vector<qel::Matrix4> a, b, c;
    std::vector<glm::mat4> ga, gb, gc;
    std::vector<qel::Vector3> points, directions;
    std::vector<glm::vec3> gpoints, gdirections;
    std::vector<qel::Vector3> results;
    std::vector<glm::vec3> gresults;

    Data()
    {
        std::mt19937 engine(7);
        std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
        for (int i = 0; i < kCount; ++i)
        {
            qel::Matrix4 m, n;
            for (int k = 0; k < 16; ++k)
            {
                (&m.columns[0].x)[k] = uniform(engine);
                (&n.columns[0].x)[k] = uniform(engine);
            }
            a.push_back(m);
            b.push_back(n);
            glm::mat4 gm, gn;
            std::memcpy(static_cast<void*>(&gm), &m, sizeof m);
            std::memcpy(static_cast<void*>(&gn), &n, sizeof n);
            ga.push_back(gm);
            gb.push_back(gn);
            const qel::Vector3 p(uniform(engine) * 5, uniform(engine) * 5, uniform(engine) * 5 + 8);
            const qel::Vector3 d =
                (qel::Vector3(uniform(engine), uniform(engine), uniform(engine)) - p).Normalized();
            points.push_back(p);
            directions.push_back(d);
            gpoints.emplace_back(p.x, p.y, p.z);
            gdirections.emplace_back(d.x, d.y, d.z);
        }
        c.resize(kCount);
        gc.resize(kCount);
        results.resize(kCount);
        gresults.resize(kCount);
    }
};

Data& GetData()
{
    static Data data;
    return data;
}

void MatrixProduct_qel(benchmark::State& state)
{
    Data& d = GetData();
    for (auto _ : state)
    {
        for (int i = 0; i < kCount; ++i)
            d.c[i] = d.a[i] * d.b[i];
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(MatrixProduct_qel);

void MatrixProduct_glm(benchmark::State& state)
{
    Data& d = GetData();
    for (auto _ : state)
    {
        for (int i = 0; i < kCount; ++i)
            d.gc[i] = d.ga[i] * d.gb[i];
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(MatrixProduct_glm);

void TransformPoint_qel(benchmark::State& state)
{
    Data& d = GetData();
    const qel::Matrix4 m = d.a[0];
    for (auto _ : state)
    {
        for (int i = 0; i < kCount; ++i)
            d.results[i] = m.TransformPoint(d.points[i]);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(TransformPoint_qel);

void TransformPoint_glm(benchmark::State& state)
{
    Data& d = GetData();
    const glm::mat4 m = d.ga[0];
    for (auto _ : state)
    {
        for (int i = 0; i < kCount; ++i)
            d.gresults[i] = glm::vec3(m * glm::vec4(d.gpoints[i], 1.0f));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(TransformPoint_glm);

void QuaternionRotate_qel(benchmark::State& state)
{
    Data& d = GetData();
    const qel::Quaternion q = qel::Quaternion::FromAxisAngle(qel::Vector3(1, 2, 3), 0.7f);
    for (auto _ : state)
    {
        for (int i = 0; i < kCount; ++i)
            d.results[i] = q.Rotate(d.points[i]);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(QuaternionRotate_qel);

void QuaternionRotate_glm(benchmark::State& state)
{
    Data& d = GetData();
    const glm::quat q = glm::angleAxis(0.7f, glm::normalize(glm::vec3(1, 2, 3)));
    for (auto _ : state)
    {
        for (int i = 0; i < kCount; ++i)
            d.gresults[i] = q * d.gpoints[i];
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(QuaternionRotate_glm);

void QuaternionProduct_qel(benchmark::State& state)
{
    Data& d = GetData();
    std::vector<qel::Quaternion> q(kCount), r(kCount);
    for (int i = 0; i < kCount; ++i)
        q[i] = qel::Quaternion::FromAxisAngle(d.directions[i], d.points[i].x);
    for (auto _ : state)
    {
        for (int i = 1; i < kCount; ++i)
            r[i] = q[i] * q[i - 1];
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * (kCount - 1));
}
BENCHMARK(QuaternionProduct_qel);

void QuaternionProduct_glm(benchmark::State& state)
{
    Data& d = GetData();
    std::vector<glm::quat> q(kCount), r(kCount);
    for (int i = 0; i < kCount; ++i)
        q[i] = glm::angleAxis(d.points[i].x, d.gdirections[i]);
    for (auto _ : state)
    {
        for (int i = 1; i < kCount; ++i)
            r[i] = q[i] * q[i - 1];
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * (kCount - 1));
}
BENCHMARK(QuaternionProduct_glm);

} // namespace

BENCHMARK_MAIN();
