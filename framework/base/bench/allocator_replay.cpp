// Replays real programs' allocation traffic through the General allocator
// and the peers, each replay in a fresh process, and prints the times, the
// resident memory and the ratios.
//
//   qel_allocator_replay_bench --convert LOG TRACE   a recorder's log to a trace
//   qel_allocator_replay_bench [--repetitions N] [--seconds S] [--only API] TRACE...
//
// A trace keeps each thread's calls in its order, every block named by a
// number that the thread reuses after the block is freed, and for each call
// the block's count of earlier calls: a replaying thread waits until the
// block's earlier calls are done (by whichever thread made them), so that
// every block is freed after it was handed out, as in the program, while
// the threads otherwise run freely. Every block is written at both ends
// when it is handed out, and those bytes are checked before it is
// reallocated or freed (and what a reallocation kept, after it). calloc is
// malloc and a clearing memset for every allocator; an aligned request is
// served by the General allocator as a larger block aligned by hand. The
// General allocator's ValidateMemory is asked after its replay.
//
// Time is the wall time of the replay proper, after the trace is mapped and
// the threads are made; resident memory is the peak resident size during
// the replay less the resident size before it (the trace's own pages are in
// both). The replayer's own memory comes from mmap, so that glibc's heap is
// the replay's alone. Each repetition runs every allocator once, in an
// order that turns each time. A short trace is repeated more than N times
// (5 by default), until its fastest allocator has had about S seconds of
// replay (1 by default, at most 50 repetitions): a replay of 50 ms swings
// by a third with the machine's load, and only many of them, interleaved,
// give medians that hold from one run to the next. The table gives the
// medians and the spread of each allocator's times (the middle half's
// width over the median), and ratios of the peers' time over ours (above
// 1: ours faster) and of resident memory (ours over theirs). The General
// allocator without its thread caches (QelUncached, a hybrid over a pool and
// a packed allocator of its own) is replayed too: the resident bar is the
// larger of glibc's figure and its figure plus the caches' budget for each
// thread of the trace.
#include "allocatorpeers.h"

#include <qel/allocator.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using qelbench::Api;

// ---- the trace ----------------------------------------------------------------

enum Kind : uint8_t
{
    kMalloc,
    kCalloc,
    kAligned,
    kRealloc,
    kFree,
};

struct Op
{
    uint32_t id;
    uint32_t size;
    uint32_t sequence; // the block's calls before this one
    uint8_t kind;
    uint8_t alignShift;
    uint16_t unused;
};
static_assert(sizeof(Op) == 16, "ops are packed");

const char kMagic[8] = {'q', 'e', 'l', 't', 'r', 'c', '1', '\n'};

struct Header
{
    char magic[8];
    uint32_t threads;
    uint32_t ids;
    uint64_t ops;
    // then a uint64_t op count for each thread, and each thread's ops
};

bool Fail(const char* what, const char* path)
{
    std::fprintf(stderr, "%s: %s (%s)\n", path, what, std::strerror(errno));
    return false;
}

// ---- converting a recorder's log ----------------------------------------------

struct LogReader
{
    const unsigned char* at;
    const unsigned char* end;

    bool Next(unsigned char& operation, unsigned& thread, uint64_t (&fields)[3])
    {
        if (end - at < 2)
            return false;
        operation = at[0];
        thread = at[1];
        const int count = operation == 'F' ? 1 : (operation == 'R' || operation == 'A') ? 3 : 2;
        if (end - at < 2 + 8 * count)
            return false;
        std::memcpy(fields, at + 2, 8 * size_t(count));
        at += 2 + 8 * count;
        return true;
    }
};

struct Converter
{
    std::vector<std::vector<Op>> threads;
    std::vector<unsigned> threadOf; // the log's thread number to ours
    std::vector<std::vector<uint32_t>> freeIds;
    std::vector<uint32_t> sequence;
    std::unordered_map<uint64_t, uint32_t> live;
    uint64_t liveBytes = 0, peakBytes = 0, peakBlocks = 0;
    std::vector<uint32_t> sizes;
    uint64_t counts[5] = {};
    uint64_t bySize[4] = {}; // up to 256, 4096, 65536, above

    unsigned Thread(unsigned logged)
    {
        if (logged >= threadOf.size())
            threadOf.resize(logged + 1, ~0u);
        if (threadOf[logged] == ~0u)
        {
            threadOf[logged] = unsigned(threads.size());
            threads.emplace_back();
            freeIds.emplace_back();
        }
        return threadOf[logged];
    }

    void Emit(unsigned thread, Kind kind, uint32_t id, uint64_t size, unsigned alignShift = 0)
    {
        threads[thread].push_back(
            Op{id, uint32_t(size), sequence[id]++, uint8_t(kind), uint8_t(alignShift), 0});
        ++counts[kind];
        if (kind != kFree)
            ++bySize[size <= 256 ? 0 : size <= 4096 ? 1 : size <= 65536 ? 2 : 3];
    }

    void Allocate(unsigned thread, Kind kind, uint64_t size, uint64_t p, unsigned alignShift)
    {
        if (size > 0xFFFF0000u)
            return; // larger than any allocator here serves through this interface
        uint32_t id;
        if (!freeIds[thread].empty())
        {
            id = freeIds[thread].back();
            freeIds[thread].pop_back();
        }
        else
        {
            id = uint32_t(sequence.size());
            sequence.push_back(0);
            sizes.push_back(0);
        }
        Forget(p);
        live[p] = id;
        sizes[id] = uint32_t(size);
        Count(int64_t(size));
        Emit(thread, kind, id, size, alignShift);
    }

    void Forget(uint64_t p)
    {
        auto found = live.find(p);
        if (found == live.end())
            return;
        Count(-int64_t(sizes[found->second]));
        live.erase(found);
    }

    void Count(int64_t bytes)
    {
        liveBytes += uint64_t(bytes);
        peakBytes = std::max(peakBytes, liveBytes);
        peakBlocks = std::max<uint64_t>(peakBlocks, live.size());
    }

    void Free(unsigned thread, uint64_t p)
    {
        auto found = live.find(p);
        if (found == live.end())
            return; // handed out before the recording began
        const uint32_t id = found->second;
        Forget(p);
        Emit(thread, kFree, id, 0);
        freeIds[thread].push_back(id);
    }

    void Realloc(unsigned thread, uint64_t old, uint64_t size, uint64_t p)
    {
        auto found = live.find(old);
        if (old == 0 || found == live.end())
        {
            if (p != 0)
                Allocate(thread, kMalloc, size, p, 0);
            return;
        }
        if (size == 0 || size > 0xFFFF0000u)
        {
            Free(thread, old); // glibc frees the block on a size of 0
            return;
        }
        const uint32_t id = found->second;
        Forget(old);
        Forget(p);
        live[p] = id;
        sizes[id] = uint32_t(size);
        Count(int64_t(size));
        Emit(thread, kRealloc, id, size);
    }
};

unsigned AlignShift(uint64_t alignment)
{
    unsigned shift = 0;
    while ((uint64_t(1) << shift) < alignment)
        ++shift;
    return shift;
}

int Convert(const char* logPath, const char* tracePath)
{
    const int file = open(logPath, O_RDONLY);
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0)
        return Fail("cannot read the log", logPath), 1;
    const size_t length = size_t(status.st_size);
    void* mapped = length ? mmap(nullptr, length, PROT_READ, MAP_PRIVATE, file, 0) : nullptr;
    close(file);
    if (mapped == MAP_FAILED)
        return Fail("cannot map the log", logPath), 1;
    Converter converter;
    LogReader reader{static_cast<const unsigned char*>(mapped),
                     static_cast<const unsigned char*>(mapped) + length};
    unsigned char operation;
    unsigned logged;
    uint64_t f[3];
    while (reader.Next(operation, logged, f))
    {
        const unsigned thread = converter.Thread(logged);
        switch (operation)
        {
        case 'M':
            converter.Allocate(thread, kMalloc, f[0], f[1], 0);
            break;
        case 'C':
            converter.Allocate(thread, kCalloc, f[0], f[1], 0);
            break;
        case 'A':
            converter.Allocate(thread, f[0] <= 16 ? kMalloc : kAligned, f[1], f[2],
                               AlignShift(f[0]));
            break;
        case 'R':
            converter.Realloc(thread, f[0], f[1], f[2]);
            break;
        case 'F':
            converter.Free(thread, f[0]);
            break;
        default:
            std::fprintf(stderr, "%s: unknown record '%c'\n", logPath, operation);
            return 1;
        }
    }
    if (length)
        munmap(mapped, length);

    FILE* out = std::fopen(tracePath, "wb");
    if (out == nullptr)
        return Fail("cannot write the trace", tracePath), 1;
    Header header = {};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    header.threads = uint32_t(converter.threads.size());
    header.ids = uint32_t(converter.sequence.size());
    for (const std::vector<Op>& ops : converter.threads)
        header.ops += ops.size();
    bool written = std::fwrite(&header, sizeof header, 1, out) == 1;
    for (const std::vector<Op>& ops : converter.threads)
    {
        const uint64_t count = ops.size();
        written = written && std::fwrite(&count, sizeof count, 1, out) == 1;
    }
    for (const std::vector<Op>& ops : converter.threads)
        written = written && std::fwrite(ops.data(), sizeof(Op), ops.size(), out) == ops.size();
    if (std::fclose(out) != 0 || !written)
        return Fail("cannot write the trace", tracePath), 1;

    const uint64_t* c = converter.counts;
    const uint64_t* s = converter.bySize;
    const double allocations = double(s[0] + s[1] + s[2] + s[3]);
    std::printf("%s: %" PRIu64 " calls in %u threads: %" PRIu64 " malloc, %" PRIu64
                " calloc, %" PRIu64 " aligned, %" PRIu64 " realloc, %" PRIu64 " free\n",
                tracePath, header.ops, header.threads, c[kMalloc], c[kCalloc], c[kAligned],
                c[kRealloc], c[kFree]);
    std::printf("  sizes: %.1f%% up to 256 B, %.1f%% to 4 KB, %.1f%% to 64 KB, %.1f%% above; "
                "peak %" PRIu64 " blocks, %.1f MB live\n",
                100 * s[0] / allocations, 100 * s[1] / allocations, 100 * s[2] / allocations,
                100 * s[3] / allocations, converter.peakBlocks, converter.peakBytes / 1048576.0);
    return 0;
}

// ---- replaying, in the child --------------------------------------------------

struct Slot
{
    unsigned char* user;
    void* base; // differs from user for an aligned block served by hand
    uint32_t size;
    std::atomic<uint32_t> sequence; // the block's calls done so far
};

struct Trace
{
    const Header* header = nullptr;
    const uint64_t* counts = nullptr;
    std::vector<const Op*> threads;
};

bool MapTrace(const char* path, Trace& trace)
{
    const int file = open(path, O_RDONLY);
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0)
        return Fail("cannot read the trace", path);
    void* mapped =
        mmap(nullptr, size_t(status.st_size), PROT_READ, MAP_PRIVATE | MAP_POPULATE, file, 0);
    close(file);
    if (mapped == MAP_FAILED || size_t(status.st_size) < sizeof(Header))
        return Fail("cannot map the trace", path);
    trace.header = static_cast<const Header*>(mapped);
    if (std::memcmp(trace.header->magic, kMagic, sizeof kMagic) != 0)
        return Fail("not a trace", path);
    trace.counts = reinterpret_cast<const uint64_t*>(trace.header + 1);
    const Op* op = reinterpret_cast<const Op*>(trace.counts + trace.header->threads);
    for (uint32_t t = 0; t < trace.header->threads; ++t)
    {
        trace.threads.push_back(op);
        op += trace.counts[t];
    }
    return true;
}

uint64_t Pattern(uint32_t id, bool end)
{
    return (uint64_t(id) * 0x9E3779B97F4A7C15ull) ^
           (end ? 0xA5A5A5A5A5A5A5A5ull : 0x5A5A5A5A5A5A5A5Aull);
}

std::atomic<uint64_t> g_Failures{0};

// A block carries its number in its first 8 bytes (fewer when it is
// smaller) and, from 16 bytes on, in its last 8 as well.
struct Stamps
{
    static void Head(unsigned char* p, uint32_t id, uint32_t size)
    {
        const uint64_t pattern = Pattern(id, false);
        std::memcpy(p, &pattern, size < 8 ? size : 8);
    }
    static void Tail(unsigned char* p, uint32_t id, uint32_t size)
    {
        const uint64_t pattern = Pattern(id, true);
        if (size >= 16)
            std::memcpy(p + size - 8, &pattern, 8);
    }
    static bool HeadHolds(const unsigned char* p, uint32_t id, uint32_t size)
    {
        const uint64_t pattern = Pattern(id, false);
        return std::memcmp(p, &pattern, size < 8 ? size : 8) == 0;
    }
    static bool TailHolds(const unsigned char* p, uint32_t id, uint32_t size)
    {
        const uint64_t pattern = Pattern(id, true);
        return size < 16 || std::memcmp(p + size - 8, &pattern, 8) == 0;
    }
};

struct Replay
{
    const Api& api;
    Slot* slots;

    static void Wait(const Slot& slot, uint32_t sequence)
    {
        for (unsigned spins = 0; slot.sequence.load(std::memory_order_acquire) != sequence;)
            if (++spins > 64)
                sched_yield();
    }

    static void Count(bool ok)
    {
        if (!ok)
            g_Failures.fetch_add(1, std::memory_order_relaxed);
    }

    void* Aligned(Slot& slot, uint32_t size, unsigned shift)
    {
        const uintptr_t alignment = uintptr_t(1) << shift;
        if (api.aligned)
            return slot.base = api.aligned(alignment, size);
        slot.base = api.malloc(size + alignment);
        return slot.base ? reinterpret_cast<void*>(
                               (reinterpret_cast<uintptr_t>(slot.base) + alignment - 1) &
                               ~(alignment - 1))
                         : nullptr;
    }

    // Moves a block aligned by hand: realloc would lose its alignment.
    void* MoveAligned(Slot& slot, uint32_t size)
    {
        void* moved = api.malloc(size);
        if (moved)
            std::memcpy(moved, slot.user, std::min(size, slot.size));
        api.free(slot.base);
        return slot.base = moved;
    }

    void Run(const Op* op, uint64_t count)
    {
        for (const Op* end = op + count; op != end; ++op)
        {
            Slot& slot = slots[op->id];
            const uint32_t id = op->id, size = op->size == 0 ? 1 : op->size;
            Wait(slot, op->sequence);
            switch (op->kind)
            {
            case kMalloc:
            case kCalloc:
                slot.user = static_cast<unsigned char*>(slot.base = api.malloc(size));
                if (slot.user && op->kind == kCalloc)
                    std::memset(slot.user, 0, size);
                break;
            case kAligned:
                slot.user = static_cast<unsigned char*>(Aligned(slot, size, op->alignShift));
                break;
            case kRealloc:
            {
                Count(Stamps::HeadHolds(slot.user, id, slot.size) &&
                      Stamps::TailHolds(slot.user, id, slot.size));
                void* moved = slot.base != slot.user ? MoveAligned(slot, size)
                                                     : (slot.base = api.realloc(slot.base, size));
                slot.user = static_cast<unsigned char*>(moved);
                if (slot.user == nullptr)
                    break;
                // What it kept: its first bytes, and its old end when it grew.
                Count(Stamps::HeadHolds(slot.user, id, std::min(size, slot.size)) &&
                      (size < slot.size || Stamps::TailHolds(slot.user, id, slot.size)));
                if (slot.size < 8)
                    Stamps::Head(slot.user, id, size);
                slot.size = size;
                Stamps::Tail(slot.user, id, size);
                slot.sequence.store(op->sequence + 1, std::memory_order_release);
                continue;
            }
            case kFree:
                Count(Stamps::HeadHolds(slot.user, id, slot.size) &&
                      Stamps::TailHolds(slot.user, id, slot.size));
                api.free(slot.base);
                slot.base = slot.user = nullptr;
                slot.sequence.store(op->sequence + 1, std::memory_order_release);
                continue;
            }
            if (slot.user == nullptr)
            {
                std::fprintf(stderr, "%s: out of memory for %u bytes\n", api.name, size);
                std::_Exit(3);
            }
            slot.size = size;
            Stamps::Head(slot.user, id, size);
            Stamps::Tail(slot.user, id, size);
            slot.sequence.store(op->sequence + 1, std::memory_order_release);
        }
    }
};

long StatusField(const char* name)
{
    long value = -1;
    if (FILE* status = std::fopen("/proc/self/status", "r"))
    {
        char line[256];
        const size_t length = std::strlen(name);
        while (std::fgets(line, sizeof line, status))
            if (std::strncmp(line, name, length) == 0)
                value = std::atol(line + length) * 1024;
        std::fclose(status);
    }
    return value;
}

void* MapZeroed(size_t bytes)
{
    void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : p;
}

double Now()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

// Prints "<ns> <peak resident bytes> <failed checks> <valid>".
int Child(const char* apiName, const char* path)
{
    Trace trace;
    if (!MapTrace(path, trace))
        return 1;
    const Api* api = nullptr;
    static std::vector<Api> apis = qelbench::Apis();
    if (std::strcmp(apiName, "QelUncached") == 0)
        apis.push_back(qelbench::UncachedApi());
    for (const Api& candidate : apis)
        if (std::strcmp(candidate.name, apiName) == 0)
            api = &candidate;
    if (api == nullptr)
        return std::fprintf(stderr, "no allocator %s\n", apiName), 1;
    const uint32_t ids = trace.header->ids;
    Slot* slots = static_cast<Slot*>(MapZeroed(sizeof(Slot) * (ids + 1)));
    if (slots == nullptr)
        return std::fprintf(stderr, "no room for %u blocks\n", ids), 1;
    // Every page resident before the start.
    for (size_t byte = 0; byte < sizeof(Slot) * ids; byte += 4096)
        reinterpret_cast<volatile char*>(slots)[byte] = 0;

    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < trace.header->threads; ++t)
        threads.emplace_back(
            [&, t]
            {
                while (!go.load(std::memory_order_acquire))
                    sched_yield();
                Replay{*api, slots}.Run(trace.threads[t], trace.counts[t]);
            });
    // The peak resident size starts again from here.
    if (FILE* clear = std::fopen("/proc/self/clear_refs", "w"))
    {
        std::fputs("5", clear);
        std::fclose(clear);
    }
    const long before = StatusField("VmRSS:");
    const double start = Now();
    go.store(true, std::memory_order_release);
    for (std::thread& thread : threads)
        thread.join();
    const double elapsed = Now() - start;
    const long peak = StatusField("VmHWM:");
    qel::Allocator* ours = api->aligned != nullptr ? nullptr
                           : std::strcmp(api->name, "QelUncached") == 0
                               ? qelbench::peers::Uncached()
                               : qelbench::peers::General();
    const bool valid = ours == nullptr || ours->ValidateMemory();
    std::printf("%.0f %ld %" PRIu64 " %d\n", elapsed, peak - before, g_Failures.load(),
                valid ? 1 : 0);
    std::fflush(stdout);
    std::_Exit(0); // the blocks stay: no teardown, no leak listings
}

// ---- the parent: fresh processes, interleaved, and the table -----------------

struct Result
{
    double ns;
    double resident;
    bool ok;
};

bool RunChild(const char* api, const char* trace, Result& result)
{
    int ends[2];
    if (pipe(ends) != 0)
        return false;
    const pid_t child = fork();
    if (child == 0)
    {
        dup2(ends[1], 1);
        close(ends[0]);
        execl("/proc/self/exe", "qel_allocator_replay_bench", "--child", api, trace, nullptr);
        _exit(127);
    }
    close(ends[1]);
    char text[256] = {};
    size_t used = 0;
    for (ssize_t n;
         used < sizeof text - 1 && (n = read(ends[0], text + used, sizeof text - 1 - used)) > 0;)
        used += size_t(n);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    unsigned long long failures = 1;
    int valid = 0;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
        std::sscanf(text, "%lf %lf %llu %d", &result.ns, &result.resident, &failures, &valid) != 4)
        return false;
    result.ok = failures == 0 && valid == 1;
    return true;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n == 0 ? 0 : n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

std::string Name(const char* path)
{
    std::string name = path;
    const size_t slash = name.rfind('/');
    if (slash != std::string::npos)
        name = name.substr(slash + 1);
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

// "GlibcMalloc" is "glibc" in the table's heading.
std::string Short(const char* name)
{
    std::string text = name;
    if (text.size() > 6 && text.compare(text.size() - 6, 6, "Malloc") == 0)
        text.erase(text.size() - 6);
    for (char& c : text)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

using qelbench::kCacheBudget;

// The interquartile range of `values` over their median.
double Spread(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    const double median = Median(values);
    return n < 4 || median == 0 ? 0 : (values[n * 3 / 4] - values[n / 4]) / median;
}

const int kMostRepetitions = 50;

int Compare(const std::vector<const char*>& traces, int repetitions, double seconds,
            const char* only)
{
    // Ours, the peers, then ours without caches (for the resident bar).
    std::vector<Api> apis = qelbench::Apis();
    apis.push_back(qelbench::UncachedApi());
    if (only != nullptr)
        apis.erase(std::remove_if(apis.begin(), apis.end(),
                                  [only](const Api& api)
                                  { return std::strcmp(api.name, only) != 0; }),
                   apis.end());
    const size_t n = apis.size();
    const bool full = n > 2 && std::strcmp(apis[n - 1].name, "QelUncached") == 0 &&
                      std::strcmp(apis[1].name, "GlibcMalloc") == 0;
    const size_t peers = full ? n - 2 : 0; // the columns of the summary
    bool allOk = true;
    std::string table;
    char line[512];
    for (const char* trace : traces)
    {
        Trace mapped;
        if (!MapTrace(trace, mapped))
            return 1;
        const double ops = double(mapped.header->ops);
        std::vector<std::vector<double>> times(n), resident(n);
        int rounds = repetitions;
        for (int round = 0; round < rounds; ++round)
        {
            for (size_t k = 0; k < n; ++k)
            {
                const size_t a = (k + size_t(round)) % n;
                Result result;
                if (!RunChild(apis[a].name, trace, result) || !result.ok)
                {
                    std::printf("%s on %s: replay FAILED\n", apis[a].name, trace);
                    allOk = false;
                    continue;
                }
                times[a].push_back(result.ns);
                resident[a].push_back(result.resident);
            }
            if (round == 0) // the fastest sets how many rounds the trace gets
            {
                double fastest = 0;
                for (const std::vector<double>& t : times)
                    if (!t.empty() && (fastest == 0 || t[0] < fastest))
                        fastest = t[0];
                if (fastest > 0)
                    rounds = std::max(rounds, int(std::min(double(kMostRepetitions),
                                                           std::ceil(seconds * 1e9 / fastest))));
            }
        }
        std::printf("\n%s: %.0f calls, %u threads, %d repetitions\n", Name(trace).c_str(), ops,
                    mapped.header->threads, rounds);
        std::printf("  %-12s %10s %10s %9s %12s %9s %9s\n", "allocator", "ms", "ns/call", "spread",
                    "resident MB", "speed", "resident");
        const double ours = Median(times[0]), oursResident = Median(resident[0]);
        for (size_t a = 0; a < n; ++a)
        {
            const double t = Median(times[a]), r = Median(resident[a]);
            std::printf("  %-12s %10.1f %10.1f %8.0f%% %12.2f %9.2f %9.2f\n", apis[a].name, t / 1e6,
                        t / ops, 100 * Spread(times[a]), r / 1048576.0, a == 0 ? 1.0 : t / ours,
                        a == 0 ? 1.0 : oursResident / r);
        }
        if (!full)
            continue;
        std::snprintf(line, sizeof line, "%-12s |", Name(trace).c_str());
        table += line;
        for (size_t a = 1; a <= peers; ++a)
        {
            std::snprintf(line, sizeof line, " %9.2f", Median(times[a]) / ours);
            table += line;
        }
        table += " |";
        for (size_t a = 1; a <= peers; ++a)
        {
            std::snprintf(line, sizeof line, " %9.2f", oursResident / Median(resident[a]));
            table += line;
        }
        const double uncached = Median(resident[n - 1]);
        const double bar =
            std::max(Median(resident[1]), uncached + kCacheBudget * mapped.header->threads);
        std::snprintf(line, sizeof line, " | %9.2f %9.2f\n", uncached / 1048576.0,
                      oursResident / bar);
        table += line;
    }
    if (full)
    {
        std::printf("\nRatios of medians. Speed: the peer's time over ours (above 1: ours "
                    "faster). Resident: our peak over the peer's (below 1: ours smaller);\n"
                    "uncached: the General allocator's peak without its caches, in MB; bar: "
                    "our peak over the larger of glibc's and uncached plus %.2f MB a "
                    "thread (at most 1: met).\n%-12s | speed against",
                    kCacheBudget / 1048576.0, "");
        std::printf("%*s| resident against%*s| resident\n%-12s |", int(10 * peers - 13), "",
                    int(10 * peers - 16), "", "trace");
        for (int group = 0; group < 2; ++group)
        {
            for (size_t a = 1; a <= peers; ++a)
                std::printf(" %9s", Short(apis[a].name).c_str());
            std::printf(" |");
        }
        std::printf(" %9s %9s\n%s", "uncached", "bar", table.c_str());
    }
    std::printf(allOk ? "\nEvery replay checked every block: all intact.\n"
                      : "\nSome replays FAILED.\n");
    return allOk ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--convert") == 0)
        return Convert(argv[2], argv[3]);
    qelbench::EnsureStaticTlsSurplus(argv);
    if (argc == 4 && std::strcmp(argv[1], "--child") == 0)
        return Child(argv[2], argv[3]);
    int repetitions = 5;
    double seconds = 1;
    const char* only = nullptr;
    std::vector<const char*> traces;
    for (int i = 1; i < argc; ++i)
    {
        if (std::strcmp(argv[i], "--repetitions") == 0 && i + 1 < argc)
            repetitions = std::max(1, std::atoi(argv[++i]));
        else if (std::strcmp(argv[i], "--seconds") == 0 && i + 1 < argc)
            seconds = std::max(0.0, std::atof(argv[++i]));
        else if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc)
            only = argv[++i];
        else
            traces.push_back(argv[i]);
    }
    if (traces.empty())
    {
        std::fprintf(stderr,
                     "usage: %s --convert LOG TRACE\n"
                     "       %s [--repetitions N] [--seconds S] [--only API] TRACE...\n",
                     argv[0], argv[0]);
        return 2;
    }
    return Compare(traces, repetitions, seconds, only);
}
