// The library's allocators beside the allocators a user would pick instead:
// glibc malloc, jemalloc and mimalloc, in the same program and run.
//
// The peers are loaded as allocatorpeers.h says.
//
// Churn: a window of live blocks; each iteration frees one at random and
// allocates a new one in its place.
//
// The general allocator (Mem::GetGeneralAlloc(), the pool below 257 bytes and
// the packed allocator above) is compared on four workloads, every allocator
// called through function pointers: (a) churn of random sizes 1 to 4096 in a
// window of 1024 blocks; (b) a working set of 100,000 blocks of 16 to 1024
// bytes replaced at random; (c) two and four threads, each churning a window
// of its own as in (a), their items per second summed; (d) a buffer grown by
// realloc from 16 bytes to 1 MB in steps of 1 KB, many times over, alone and
// beside 100,000 live blocks of 16 to 1024 bytes, every other one of twice as
// many allocated (a heap with few long stretches of free pages). Beside
// ours, the churns and (a) to (c) also run a model of the least that the
// library's block layout forces (allocatorfloor.h), "QelFloor", whose ratio
// to mimalloc is the best ours can reach. The resident memory of (a)
// and (b), and of one million live 16-byte blocks, is measured in a fresh
// process per allocator (the program runs itself with --resident), the
// General allocator's also without its caches (QelUncached). The program
// ends with a table of ratios against the peers.
#include "allocatorfloor.h"
#include "allocatorpeers.h"

#include <qel/mem.h>
#include <qel/poolallocator.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
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

// The floor of the pool's layout (allocatorfloor.h).
void BM_Churn_QelFloor(benchmark::State& state)
{
    qelbench::floor::Model* model = qelbench::floor::Pool();
    Churn(
        state, [model](unsigned size) { return model->Malloc(size); },
        [model](void* p) { model->Free(p); });
    qelbench::floor::GiveBack();
}

#define QEL_CHURN_SIZES Args({16, 16})->Args({64, 64})->Args({256, 256})->Args({1, 256})
BENCHMARK(BM_Churn_QelPool)->QEL_CHURN_SIZES;
BENCHMARK(BM_Churn_QelFloor)->QEL_CHURN_SIZES;
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
const char* const kMillion16 = "Million16";
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

void* FloorMalloc(size_t size)
{
    return qelbench::floor::General()->Malloc(unsigned(size));
}

void FloorFree(void* p)
{
    qelbench::floor::General()->Free(p);
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
    if (api.malloc == &FloorMalloc)
        qelbench::floor::GiveBack();
    state.SetItemsProcessed(state.iterations());
}

// One iteration grows a buffer from 16 bytes to 1 MB, 1 KB at a time, and
// does it again, kGrowths times: one growth is over in microseconds, and what
// it costs depends on the pages it finds, so each repetition takes many.
const unsigned kGrowths = 64;

void GrowByRealloc(benchmark::State& state, const Api& api)
{
    for (auto _ : state)
        for (unsigned growth = 0; growth < kGrowths; ++growth)
        {
            void* p = api.malloc(16);
            for (size_t size = 1024; size <= (1u << 20); size += 1024)
                p = api.realloc(p, size);
            benchmark::DoNotOptimize(p);
            api.free(p);
        }
    state.SetItemsProcessed(state.iterations() * kGrowths * 1024);
}

// The same growths beside `scattered` live blocks of 16 to 1024 bytes, every
// other one of twice as many allocated, made before the timing starts.
void GrowByReallocBeside(benchmark::State& state, const Api& api, unsigned scattered)
{
    std::mt19937 random(7);
    std::vector<void*> blocks(2 * std::size_t(scattered));
    for (void*& p : blocks)
        p = api.malloc(16 + random() % 1009);
    for (std::size_t i = 1; i < blocks.size(); i += 2)
        api.free(blocks[i]);
    GrowByRealloc(state, api);
    for (std::size_t i = 0; i < blocks.size(); i += 2)
        api.free(blocks[i]);
}

// In the child process: builds the working set, replaces a million blocks
// (or the script's length) with every byte written, and prints the resident
// bytes that all of it added.
int ResidentChild(const char* apiName, const char* workloadName)
{
    const Workload& workload = std::strcmp(workloadName, kChurn.name) == 0 ? kChurn : kWorkingSet;
    const Script script = MakeScript(workload, 42);
    std::vector<void*> window(workload.window);
    std::vector<Api> apis = Apis();
    apis.push_back(qelbench::UncachedApi());
    for (const Api& api : apis)
    {
        if (std::strcmp(api.name, apiName) != 0)
            continue;
        const long before = ResidentBytes();
        if (std::strcmp(workloadName, kMillion16) == 0)
        {
            // One million live 16-byte blocks.
            std::vector<void*> blocks(1000000);
            const long start = ResidentBytes(); // the vector's own pages left out
            for (void*& p : blocks)
            {
                p = api.malloc(16);
                std::memset(p, 1, 16);
            }
            std::printf("%ld\n", ResidentBytes() - start);
            std::fflush(stdout);
            _exit(0);
        }
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

void RegisterResident(const std::string& name, const char* api, const char* workload)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [api, workload](benchmark::State& state)
                                 {
                                     double added = 0;
                                     for (auto _ : state)
                                         added = ResidentInFreshProcess(api, workload);
                                     state.counters["resident_MB"] = added / (1 << 20);
                                 })
        ->Iterations(1);
}

void RegisterGeneralBenchmarks()
{
    // Resident memory, each in a fresh process; the General allocator
    // without its caches beside the others.
    std::vector<Api> resident = Apis();
    resident.push_back(qelbench::UncachedApi());
    for (const Api& api : resident)
    {
        const std::string peer = std::string("/") + api.name;
        for (const char* workload : {kChurn.name, kWorkingSet.name, kMillion16})
            RegisterResident("BM_General_Resident_" + std::string(workload) + peer, api.name,
                             workload);
    }
    // The floor of the General allocator's layout, beside ours and the peers
    // (allocatorfloor.h); it has no realloc.
    std::vector<Api> timed = Apis();
    timed.push_back({"QelFloor", &FloorMalloc, &FloorFree, nullptr, nullptr});
    for (const Api& api : timed)
    {
        const std::string peer = std::string("/") + api.name;
        for (const Workload* workload : {&kChurn, &kWorkingSet})
        {
            benchmark::RegisterBenchmark(
                ("BM_General_" + std::string(workload->name) + peer).c_str(),
                [api, workload](benchmark::State& state) { Replace(state, api, *workload); });
        }
        for (int threads : {2, 4})
            benchmark::RegisterBenchmark(("BM_General_ThreadsChurn1To4096" + peer).c_str(),
                                         [api](benchmark::State& state)
                                         { Replace(state, api, kChurn); })
                ->Threads(threads)
                ->UseRealTime();
        if (api.realloc != nullptr)
        {
            benchmark::RegisterBenchmark(("BM_General_ReallocGrowTo1M" + peer).c_str(),
                                         [api](benchmark::State& state)
                                         { GrowByRealloc(state, api); });
            benchmark::RegisterBenchmark(
                ("BM_General_ReallocGrowTo1MBeside100kBlocks" + peer).c_str(),
                [api](benchmark::State& state) { GrowByReallocBeside(state, api, 100000); });
        }
    }
}

// Prints the runs as the console does, then a table of ratios against the
// peers, one line per workload: above 1 means ours is better (faster, or
// smaller). Speed compares time per item (items per second where the
// benchmark counts them), resident memory the resident bytes; with
// repetitions, the medians. The resident rows add the General allocator's
// figure without its caches and our figure over the bar, the larger of
// glibc's and that figure plus the caches' budget (at most 1: met).
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
        {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median")
                continue;
            std::string name = run.run_name.str();
            std::string allocator;
            for (const char* token : {"QelPool", "QelGeneral", "QelUncached", "QelFloor",
                                      "GlibcMalloc", "Jemalloc", "Mimalloc"})
            {
                const std::size_t at = name.find(token);
                if (at != std::string::npos)
                {
                    allocator = token;
                    name.erase(at, std::strlen(token));
                }
            }
            double value = run.GetAdjustedCPUTime();
            auto counter = run.counters.find("resident_MB");
            if (counter != run.counters.end())
                value = counter->second.value;
            else if ((counter = run.counters.find("items_per_second")) != run.counters.end())
                value = 1 / counter->second.value;
            if (!allocator.empty() && !run.error_occurred)
                m_Values[name][allocator] = value;
        }
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        const double budget = qelbench::kCacheBudget / 1048576; // MB
        std::printf("\nRatios (above 1: ours faster or smaller): the peer's time an item, or "
                    "resident MB, over ours; floor: mimalloc's time over the layout's "
                    "floor.\n%-58s %9s %9s %9s %9s %9s %9s\n",
                    "workload", "glibc", "jemalloc", "mimalloc", "floor", "uncached", "bar");
        for (const auto& workload : m_Values)
        {
            const auto& values = workload.second;
            auto ours = values.find("QelGeneral");
            if (ours == values.end())
                ours = values.find("QelPool");
            if (ours == values.end())
                continue;
            std::printf("%-58s", workload.first.c_str());
            for (const char* peer : {"GlibcMalloc", "Jemalloc", "Mimalloc"})
            {
                const auto found = values.find(peer);
                if (found == values.end())
                    std::printf(" %9s", "-");
                else
                    std::printf(" %9.2f", found->second / ours->second);
            }
            const auto floor = values.find("QelFloor");
            const auto mimalloc = values.find("Mimalloc");
            if (floor != values.end() && mimalloc != values.end())
                std::printf(" %9.2f", mimalloc->second / floor->second);
            else
                std::printf(" %9s", "-");
            const auto uncached = values.find("QelUncached");
            const auto glibc = values.find("GlibcMalloc");
            if (uncached != values.end() && glibc != values.end())
                std::printf(" %9.2f %9.2f", uncached->second,
                            ours->second / std::max(glibc->second, uncached->second + budget));
            std::printf("\n");
        }
    }

private:
    std::map<std::string, std::map<std::string, double>> m_Values;
};

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
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
