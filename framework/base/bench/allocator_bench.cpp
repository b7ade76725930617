// The library's allocators beside the allocators a user would pick instead:
// glibc malloc, jemalloc and mimalloc, in the same program and run.
//
// jemalloc and mimalloc are loaded with dlopen(RTLD_LOCAL) and called through
// the functions found in them, so that neither replaces the process's malloc.
//
// Churn: a window of live blocks; each iteration frees one at random and
// allocates a new one in its place. Resident memory: one million live
// 16-byte blocks, measured in a child process per allocator so that no
// allocator inherits another's heap.
#include <qel/mem.h>
#include <qel/poolallocator.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

typedef void* (*MallocFunction)(size_t);
typedef void (*FreeFunction)(void*);

struct Peer
{
    MallocFunction malloc = nullptr;
    FreeFunction free = nullptr;
};

Peer LoadPeer(const char* library, const char* mallocName, const char* freeName)
{
    Peer peer;
    if (void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL))
    {
        peer.malloc = reinterpret_cast<MallocFunction>(dlsym(handle, mallocName));
        peer.free = reinterpret_cast<FreeFunction>(dlsym(handle, freeName));
    }
    return peer;
}

const Peer& Jemalloc()
{
    static const Peer peer = LoadPeer("libjemalloc.so.2", "malloc", "free");
    return peer;
}

const Peer& Mimalloc()
{
    static const Peer peer = LoadPeer("libmimalloc.so.2", "mi_malloc", "mi_free");
    return peer;
}

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
    const Peer& peer = Jemalloc();
    if (!peer.malloc)
        return state.SkipWithError("libjemalloc.so.2 not found");
    Churn(
        state, [&peer](unsigned size) { return peer.malloc(size); },
        [&peer](void* p) { peer.free(p); });
}

void BM_Churn_Mimalloc(benchmark::State& state)
{
    const Peer& peer = Mimalloc();
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
    const Peer& peer = Jemalloc();
    if (!peer.malloc)
        return state.SkipWithError("libjemalloc.so.2 not found");
    Resident(state, [&peer](unsigned size) { return peer.malloc(size); });
}

void BM_Resident1M16_Mimalloc(benchmark::State& state)
{
    const Peer& peer = Mimalloc();
    if (!peer.malloc)
        return state.SkipWithError("libmimalloc.so.2 not found");
    Resident(state, [&peer](unsigned size) { return peer.malloc(size); });
}

BENCHMARK(BM_Resident1M16_QelPool)->Iterations(1);
BENCHMARK(BM_Resident1M16_GlibcMalloc)->Iterations(1);
BENCHMARK(BM_Resident1M16_Jemalloc)->Iterations(1);
BENCHMARK(BM_Resident1M16_Mimalloc)->Iterations(1);

} // namespace

// jemalloc uses initial-exec thread-local storage, which dlopen can only
// place in glibc's static TLS surplus: the program starts itself again with
// a larger surplus when it was not given one.
int main(int argc, char** argv)
{
    const char* tunables = std::getenv("GLIBC_TUNABLES");
    if (tunables == nullptr || std::strstr(tunables, "optional_static_tls") == nullptr)
    {
        setenv("GLIBC_TUNABLES", "glibc.rtld.optional_static_tls=65536", 1);
        execv("/proc/self/exe", argv);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
