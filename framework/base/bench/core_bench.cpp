// Lower-casing a path through the library's table against the C runtime's
// locale-aware tolower, the peer a user would otherwise call.
#include <qel/systembase.h>

#include <benchmark/benchmark.h>

#include <cctype>
#include <cstring>

namespace
{

const char kPath[] = "/Disks/Home/Ann/Projects/Game/Data/Textures/Terrain/GrassBlade_Diffuse.DDS";

void BM_QelCopyLowerCase(benchmark::State& state)
{
    char out[256];
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(qel::SystemBase::CopyLowerCase(out, kPath, sizeof out));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * (sizeof kPath - 1));
}
BENCHMARK(BM_QelCopyLowerCase);

void BM_CRuntimeTolower(benchmark::State& state)
{
    char out[256];
    for (auto _ : state)
    {
        size_t i = 0;
        for (; kPath[i] != '\0'; ++i)
            out[i] = char(std::tolower(static_cast<unsigned char>(kPath[i])));
        out[i] = '\0';
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * (sizeof kPath - 1));
}
BENCHMARK(BM_CRuntimeTolower);

} // namespace

BENCHMARK_MAIN();
