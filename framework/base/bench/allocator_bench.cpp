// The library's allocators beside the allocators a user would pick instead:
// glibc malloc, jemalloc and mimalloc, in the same program and run.
//
// The peers are loaded as allocatorpeers.h says.
//
// Churn: a window of live blocks; each iteration frees one at random and
// allocates a new one in its place. Resident memory: one million live
// 16-byte blocks, measured in a child process per allocator so that no
// allocator inherits another's heap.
//
// The general allocator (Mem::GetGeneralAlloc(), the pool below 257 bytes and
// the packed allocator above) is compared on four workloads, every allocator
// called through function pointers: (a) churn of random sizes 1 to 4096 in a
// window of 1024 blocks; (b) a working set of 100,000 blocks of 16 to 1024
// bytes replaced at random; (c) two and four threads, each churning a window
// of its own as in (a), their items per second summed; (d) a buffer grown by
// realloc from 16 bytes to 1 MB in steps of 1 KB. The resident memory of (a)
// and (b) is measured in a fresh process per allocator: the program runs
// itself with --resident.
#include "allocatorpeers.h"

#include <qel/mem.h>
#include <qel/poolallocator.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

using qelbench::Api;
using qelbench::Jemalloc;
using qelbench::Mimalloc;

// The same sequence of slots and sizes for every allocator.
struct Script
{
    std::vector<unsigned> slots;
    std::vector<unsigned> sizes;
};

const unsigned kWindow = 1024;
const unsigned kSteps = 1 << 16;

const Script& ScriptFor(unsigned minimum, unsigned maximum)
{
    static Script scripts[2];
    Script& script = scripts[minimum == maximum ? 0 : 1];
    script.slots.resize(kSteps);
    script.sizes.resize(kSteps);
    std::mt19937 random(42);
    for (unsigned i = 0; i < kSteps; ++i)
    {
        script.slots[i] = random() % kWindow;
        script.sizes[i] = minimum + random() % (maximum - minimum + 1);
    }
    return script;
}

template <class Malloc, class Free>
void Churn(benchmark::State& state, Malloc allocate, Free release)
{
    const unsigned minimum = unsigned(state.range(0)), maximum = unsigned(state.range(1));
    const Script& script = ScriptFor(minimum, maximum);
    std::vector<void*> window(kWindow);
    for (unsigned i = 0; i < kWindow; ++i)
        window[i] = allocate(script.sizes[i]);
    unsigned step = 0;
    for (auto _ : state)
    {
        const unsigned slot = script.slots[step];
        release(window[slot]);
        window[slot] = allocate(script.sizes[step]);
        benchmark::DoNotOptimize(window[slot]);
        step = (step + 1) & (kSteps - 1);
    }
    for (void* p : window)
        release(p);
    state.SetItemsProcessed(state.iterations());
}

void BM_Churn_QelPool(benchmark::State& state)
{
    qel::Allocator* pool = qel::Mem::GetSmallAlloc();
    Churn(
        state, [pool](unsigned size) { return pool->MallocNoThrow(size); },
        [pool](void* p) { pool->Free(p); });
}

void BM_Churn_GlibcMalloc(benchmark::State& state)
{
    Churn(
        state, [](unsigned size) { return std::malloc(size); }, [](void* p) { std::free(p); });
}

void BM_Churn_Jemalloc(benchmark::State& state)
{
    const Api& peer = Jemalloc();
    if (!peer.malloc)
        return state.SkipWithError("libjemalloc.so.2 not found");
    Churn(
        state, [&peer](unsigned size) { return peer.malloc(size); },
        [&peer](void* p) { peer.free(p); });
}

void BM_Churn_Mimalloc(benchmark::State& state)
{
    const Api& peer = Mimalloc();
    if (!peer.malloc)
        return state.SkipWithError("libmimalloc.so.2 not found");
    Churn(
        state, [&peer](unsigned size) { return peer.malloc(size); },
        [&peer](void* p) { peer.free(p); });
}

#define QEL_CHURN_SIZES Args({16, 16})->Args({64, 64})->Args({256, 256})->Args({1, 256})
BENCHMARK(BM_Churn_QelPool)->QEL_CHURN_SIZES;
BENCHMARK(BM_Churn_GlibcMalloc)->QEL_CHURN_SIZES;
BENCHMARK(BM_Churn_Jemalloc)->QEL_CHURN_SIZES;
BENCHMARK(BM_Churn_Mimalloc)->QEL_CHURN_SIZES;

// ---- resident memory --------------------------------------------------------

long ResidentBytes()
{
    long pages = 0, resident = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r"))
    {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(statm);
    }
    return resident * sysconf(_SC_PAGESIZE);
}

// Resident bytes that one million live 16-byte blocks add, measured in a
// child process.
template <class Malloc>
double MillionBlocksResident(Malloc allocate)
{
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0)
    {
        std::vector<void*> blocks(1000000);
        const long before = ResidentBytes();
        for (void*& p : blocks)
        {
            p = allocate(16);
            std::memset(p, 1, 16);
        }
        const double added = double(ResidentBytes() - before);
        if (write(pipeEnds[1], &added, sizeof added) != sizeof added)
            _exit(1);
        _exit(0);
    }
    double added = -1;
    if (read(pipeEnds[0], &added, sizeof added) != sizeof added)
        added = -1;
    waitpid(child, nullptr, 0);
    close(pipeEnds[0]);
    close(pipeEnds[1]);
    return added;
}

template <class Malloc>
void Resident(benchmark::State& state, Malloc allocate)
{
    double added = 0;
    for (auto _ : state)
        added = MillionBlocksResident(allocate);
    state.counters["resident_MB"] = added / (1 << 20);
    state.counters["bytes_per_block"] = added / 1e6;
}

void BM_Resident1M16_QelPool(benchmark::State& state)
{
    qel::Allocator* pool = qel::Mem::GetSmallAlloc();
    Resident(state, [pool](unsigned size) { return pool->MallocNoThrow(size); });
}

void BM_Resident1M16_GlibcMalloc(benchmark::State& state)
{
    Resident(state, [](unsigned size) { return std::malloc(size); });
}

void BM_Resident1M16_Jemalloc(benchmark::State& state)
{
    const Api& peer = Jemalloc();
    if (!peer.malloc)
        return state.SkipWithError("libjemalloc.so.2 not found");
    Resident(state, [&peer](unsigned size) { return peer.malloc(size); });
}

void BM_Resident1M16_Mimalloc(benchmark::State& state)
{
    const Api& peer = Mimalloc();
    if (!peer.malloc)
        return state.SkipWithError("libmimalloc.so.2 not found");
    Resident(state, [&peer](unsigned size) { return peer.malloc(size); });
}

BENCHMARK(BM_Resident1M16_QelPool)->Iterations(1);
BENCHMARK(BM_Resident1M16_GlibcMalloc)->Iterations(1);
BENCHMARK(BM_Resident1M16_Jemalloc)->Iterations(1);
BENCHMARK(BM_Resident1M16_Mimalloc)->Iterations(1);

// ---- the general allocator against the peers --------------------------------

using qelbench::Apis;

struct Workload
{
    const char* name;
    unsigned window;
    unsigned minimum;
    unsigned maximum;
    unsigned steps; // length of the script, replayed in a loop
};

const Workload kChurn = {"Churn1To4096", 1024, 1, 4096, 1u << 16};
const Workload kWorkingSet = {"WorkingSet100k16To1024", 100000, 16, 1024, 1u << 20};

Script MakeScript(const Workload& workload, unsigned seed)
{
    Script script;
    script.slots.resize(workload.steps);
    script.sizes.resize(workload.steps);
    std::mt19937 random(seed);
    for (unsigned i = 0; i < workload.steps; ++i)
    {
        script.slots[i] = random() % workload.window;
        script.sizes[i] = workload.minimum + random() % (workload.maximum - workload.minimum + 1);
    }
    return script;
}

// One iteration frees a block of the window and allocates its replacement.
void Replace(benchmark::State& state, const Api& api, const Workload& workload)
{
    const Script script = MakeScript(workload, 42 + unsigned(state.thread_index()));
    std::vector<void*> window(workload.window);
    for (unsigned i = 0; i < workload.window; ++i)
        window[i] = api.malloc(script.sizes[(i * 7919u) % workload.steps]);
    unsigned step = 0;
    for (auto _ : state)
    {
        const unsigned slot = script.slots[step];
        api.free(window[slot]);
        window[slot] = api.malloc(script.sizes[step]);
        benchmark::DoNotOptimize(window[slot]);
        if (++step == workload.steps)
            step = 0;
    }
    for (void* p : window)
        api.free(p);
    state.SetItemsProcessed(state.iterations());
}

// One iteration grows a buffer from 16 bytes to 1 MB, 1 KB at a time.
void GrowByRealloc(benchmark::State& state, const Api& api)
{
    for (auto _ : state)
    {
        void* p = api.malloc(16);
        for (size_t size = 1024; size <= (1u << 20); size += 1024)
            p = api.realloc(p, size);
        benchmark::DoNotOptimize(p);
        api.free(p);
    }
    state.SetItemsProcessed(state.iterations() * 1024);
}

// In the child process: builds the working set, replaces a million blocks
// (or the script's length) with every byte written, and prints the resident
// bytes that all of it added.
int ResidentChild(const char* apiName, const char* workloadName)
{
    const Workload& workload = std::strcmp(workloadName, kChurn.name) == 0 ? kChurn : kWorkingSet;
    const Script script = MakeScript(workload, 42);
    std::vector<void*> window(workload.window);
    for (const Api& api : Apis())
    {
        if (std::strcmp(api.name, apiName) != 0)
            continue;
        const long before = ResidentBytes();
        for (unsigned i = 0; i < workload.window; ++i)
        {
            const unsigned size = script.sizes[(i * 7919u) % workload.steps];
            window[i] = api.malloc(size);
            std::memset(window[i], 1, size);
        }
        for (unsigned step = 0; step < (1u << 20); ++step)
        {
            const unsigned slot = script.slots[step % workload.steps];
            const unsigned size = script.sizes[step % workload.steps];
            api.free(window[slot]);
            window[slot] = api.malloc(size);
            std::memset(window[slot], 1, size);
        }
        std::printf("%ld\n", ResidentBytes() - before);
        std::fflush(stdout);
        _exit(0); // the blocks stay: no teardown, no leak listings
    }
    return 1;
}

double ResidentInFreshProcess(const char* api, const char* workload)
{
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0)
    {
        dup2(pipeEnds[1], 1);
        close(pipeEnds[0]);
        execl("/proc/self/exe", "qel_allocator_bench", "--resident", api, workload, nullptr);
        _exit(127);
    }
    close(pipeEnds[1]);
    char text[64] = {};
    const ssize_t length = read(pipeEnds[0], text, sizeof text - 1);
    close(pipeEnds[0]);
    waitpid(child, nullptr, 0);
    return length > 0 ? std::atof(text) : -1;
}

void RegisterGeneralBenchmarks()
{
    for (const Api& api : Apis())
    {
        const std::string peer = std::string("/") + api.name;
        for (const Workload* workload : {&kChurn, &kWorkingSet})
        {
            benchmark::RegisterBenchmark(
                ("BM_General_" + std::string(workload->name) + peer).c_str(),
                [api, workload](benchmark::State& state) { Replace(state, api, *workload); });
            benchmark::RegisterBenchmark(
                ("BM_General_Resident_" + std::string(workload->name) + peer).c_str(),
                [api, workload](benchmark::State& state)
                {
                    double added = 0;
                    for (auto _ : state)
                        added = ResidentInFreshProcess(api.name, workload->name);
                    state.counters["resident_MB"] = added / (1 << 20);
                })
                ->Iterations(1);
        }
        for (int threads : {2, 4})
            benchmark::RegisterBenchmark(("BM_General_ThreadsChurn1To4096" + peer).c_str(),
                                         [api](benchmark::State& state)
                                         { Replace(state, api, kChurn); })
                ->Threads(threads)
                ->UseRealTime();
        benchmark::RegisterBenchmark(("BM_General_ReallocGrowTo1M" + peer).c_str(),
                                     [api](benchmark::State& state) { GrowByRealloc(state, api); });
    }
}

} // namespace

int main(int argc, char** argv)
{
    qelbench::EnsureStaticTlsSurplus(argv);
    if (argc == 4 && std::strcmp(argv[1], "--resident") == 0)
        return ResidentChild(argv[2], argv[3]);
    RegisterGeneralBenchmarks();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
