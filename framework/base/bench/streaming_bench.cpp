// Streaming requests against plain read() of the same page-cached file, in
// one program and run.
//
// Unmetered: every iteration reads the 64 MB file four ways, starting with
// another each time, into one page-aligned buffer of R bytes: plain read();
// plain read() into a buffer of its own, each piece then copied over (the
// least a reader that keeps the bytes in a ring of its own can do); a
// request with a ring of R bytes, copied out after every read; and the same
// request whose bytes are used where they lie in the ring (Peek, Skip).
// Counters: the rates of plain read() and of the request over their own CPU
// time, and the other three ways' rates over plain read()'s. The file sits in
// the page cache, so this times the request's own work, not the disk.
//
// Metered: a request at 16M, 64M, 256M, 1000M and 4000M bytes per second for
// two seconds each. The benchmark's thread, like a game's frame loop, wakes
// every 10 ms, reads what its clock says is due in slices the ring takes,
// passes over each slice in place, as qeltool stream does, and wakes the
// manager's worker; the file starts over when it ends. Counters: the rate
// achieved over the rate asked and in MB/s, the CPU time of this thread and
// of the manager's worker, each as a share of one core, and the time this
// thread waited for a core, ready to run (what a busy machine takes). Beside
// them, plain read() of the file for two seconds gives the rate this machine
// reaches at the time (MB/s of wall time).
#include <qel/filemanager.h>
#include <qel/streamingmanager.h>
#include <qel/streamingrequest.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace
{

using qel::StreamingManager;
using qel::StreamingRequest;
using qel::u32;
using qel::u64;
using Clock = std::chrono::steady_clock;

constexpr u32 FileSize = 64u << 20;
// The ring of the metered requests, as qeltool stream's.
constexpr u32 MeteredRing = 256u << 10;

std::string g_Native;  // the file's path of the system
std::string g_Virtual; // and its virtual path

double ThreadCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// The scheduler's records of a thread of this process: the time it ran and
// the time it waited, ready, for a core.
struct TaskTimes
{
    double cpu = 0;
    double waited = 0;
};

TaskTimes ReadTaskTimes(long tid)
{
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/schedstat";
    unsigned long long ran = 0, waited = 0;
    TaskTimes times;
    if (std::FILE* f = std::fopen(path.c_str(), "r"))
    {
        if (std::fscanf(f, "%llu %llu", &ran, &waited) == 2)
            times = {double(ran) * 1e-9, double(waited) * 1e-9};
        std::fclose(f);
    }
    return times;
}

// A page-aligned buffer, the kind a program reading files in bulk uses.
struct Buffer
{
    explicit Buffer(u32 size)
        : data(static_cast<unsigned char*>(std::aligned_alloc(4096, (size + 4095) & ~4095u)))
    {
    }
    ~Buffer() { std::free(data); }
    unsigned char* data;
};

// ---- unmetered --------------------------------------------------------------

// Plain read() of the whole file in pieces of `size` bytes.
u64 PlainRead(unsigned char* buffer, u32 size)
{
    const int fd = ::open(g_Native.c_str(), O_RDONLY);
    u64 total = 0;
    ssize_t n;
    while ((n = ::read(fd, buffer, size)) > 0)
        total += u64(n);
    ::close(fd);
    return total;
}

// Plain read() into a buffer of its own, each piece then copied into
// `buffer`: the least that any reader keeping the bytes in its own buffer
// can do.
u64 PlainReadCopied(unsigned char* buffer, unsigned char* own, u32 size)
{
    const int fd = ::open(g_Native.c_str(), O_RDONLY);
    u64 total = 0;
    ssize_t n;
    while ((n = ::read(fd, own, size)) > 0)
    {
        std::memcpy(buffer, own, std::size_t(n));
        total += u64(n);
    }
    ::close(fd);
    return total;
}

// The whole file through a request whose rate no disk reaches, its ring of
// `size` bytes copied out into `buffer` after every read.
u64 RequestRead(unsigned char* buffer, u32 size)
{
    StreamingRequest* request = StreamingRequest::Create(g_Virtual.c_str(), 0xFFFFFFFFu, size + 1);
    u64 total = 0;
    while (request->Read(0x7FFFFFFFFFFFFFFF) > 0)
        total += request->Copy(buffer, size);
    delete request;
    return total;
}

// The same, the bytes used where they lie in the ring.
u64 RequestInPlace(u32 size)
{
    StreamingRequest* request = StreamingRequest::Create(g_Virtual.c_str(), 0xFFFFFFFFu, size + 1);
    u64 total = 0;
    while (request->Read(0x7FFFFFFFFFFFFFFF) > 0)
    {
        const void* data = nullptr;
        while (u32 piece = request->Peek(data))
        {
            benchmark::DoNotOptimize(data);
            total += request->Skip(piece);
        }
    }
    delete request;
    return total;
}

void BM_Unmetered(benchmark::State& state)
{
    const u32 size = u32(state.range(0));
    Buffer buffer(size), own(size);
    double cpu[4] = {};
    u64 checked = 0, rounds = 0;
    for (auto _ : state)
    {
        // The four ways in turn, starting with another one each round.
        for (u64 pass = rounds; pass < rounds + 4; ++pass)
        {
            const double before = ThreadCpuSeconds();
            switch (pass % 4)
            {
            case 0:
                checked += PlainRead(buffer.data, size);
                break;
            case 1:
                checked += PlainReadCopied(buffer.data, own.data, size);
                break;
            case 2:
                checked += RequestRead(buffer.data, size);
                break;
            default:
                checked += RequestInPlace(size);
                break;
            }
            cpu[pass % 4] += ThreadCpuSeconds() - before;
        }
        ++rounds;
    }
    if (checked != 4 * FileSize * rounds)
        state.SkipWithError("a read came short of the file");
    const double bytes = double(FileSize) * double(rounds);
    state.counters["plain_GBps"] = bytes / cpu[0] * 1e-9;
    state.counters["request_GBps"] = bytes / cpu[2] * 1e-9;
    state.counters["copied_over_plain"] = cpu[0] / cpu[1];
    state.counters["request_over_plain"] = cpu[0] / cpu[2];
    state.counters["inplace_over_plain"] = cpu[0] / cpu[3];
}
BENCHMARK(BM_Unmetered)
    ->Arg(16 << 10)
    ->Arg(64 << 10)
    ->Arg(256 << 10)
    ->Arg(1 << 20)
    ->Unit(benchmark::kMillisecond);

// ---- metered ----------------------------------------------------------------

struct MeteredRun
{
    double seconds = 0;
    u64 bytes = 0;
    double ownerCpu = 0;
    double ownerWaited = 0; // ready to run but without a core
    double workerCpu = 0;
};

MeteredRun StreamFor(u32 rate, double seconds)
{
    const Clock::duration step = std::chrono::milliseconds(10);
    StreamingManager& manager = StreamingManager::GetSingletonInstance();
    const u32 ring = std::min(rate / 2, MeteredRing);
    StreamingRequest* request = StreamingRequest::Create(g_Virtual.c_str(), rate, ring + 1);
    manager.Add(request);

    MeteredRun run;
    u64 laps = 0; // the bytes of the file's earlier passes
    const TaskTimes worker = ReadTaskTimes(manager.GetWorkerThreadId());
    const TaskTimes owner = ReadTaskTimes(::gettid());
    const Clock::time_point start = Clock::now();
    const Clock::time_point end =
        start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    for (Clock::time_point frame = start;; frame += step)
    {
        const Clock::time_point now = std::min(Clock::now(), end);
        const u64 due = u64(rate * std::chrono::duration<double>(now - start).count());
        // Past the end, the last slices get one frame more.
        while (laps + request->BytesRead64() < due && Clock::now() < end + step)
        {
            if (request->BytesRemaining64() == 0)
            {
                laps += request->BytesRead64();
                request->Reset(0);
            }
            request->Read(qel::s64(due - laps));
            const void* data = nullptr;
            while (u32 piece = request->Peek(data))
            {
                benchmark::DoNotOptimize(data);
                request->Skip(piece);
            }
        }
        manager.Execute(10);
        if (now >= end)
            break;
        std::this_thread::sleep_until(std::min(frame + step, end)); // at once when late
    }
    run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    run.bytes = laps + request->BytesRead64();
    const TaskTimes ownerEnd = ReadTaskTimes(::gettid());
    run.ownerCpu = ownerEnd.cpu - owner.cpu;
    run.ownerWaited = ownerEnd.waited - owner.waited;
    run.workerCpu = ReadTaskTimes(manager.GetWorkerThreadId()).cpu - worker.cpu;
    delete request;
    return run;
}

void BM_Metered(benchmark::State& state)
{
    const u32 rate = u32(state.range(0)) << 20;
    MeteredRun run;
    for (auto _ : state)
    {
        run = StreamFor(rate, 2.0);
        state.SetIterationTime(run.seconds);
    }
    state.counters["achieved_over_asked"] = double(run.bytes) / run.seconds / rate;
    state.counters["achieved_MBps"] = double(run.bytes) / run.seconds / double(1u << 20);
    state.counters["owner_cpu_pct"] = 100 * run.ownerCpu / run.seconds;
    state.counters["owner_waited_pct"] = 100 * run.ownerWaited / run.seconds;
    state.counters["worker_cpu_pct"] = 100 * run.workerCpu / run.seconds;
}
BENCHMARK(BM_Metered)
    ->Arg(16)
    ->Arg(64)
    ->Arg(256)
    ->Arg(1000)
    ->Arg(4000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Plain read() of the file over and over for two seconds, in pieces of the
// metered ring's size: the rate the machine reaches at the time.
void BM_PlainReadFor2s(benchmark::State& state)
{
    Buffer buffer(MeteredRing);
    u64 bytes = 0;
    double seconds = 0;
    for (auto _ : state)
    {
        const Clock::time_point start = Clock::now();
        const Clock::time_point end = start + std::chrono::seconds(2);
        while (Clock::now() < end)
            bytes += PlainRead(buffer.data, MeteredRing);
        seconds = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(seconds);
    }
    state.counters["achieved_MBps"] = double(bytes) / seconds / double(1u << 20);
}
BENCHMARK(BM_PlainReadFor2s)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    char folder[] = "/tmp/qel_streaming_bench_XXXXXX";
    if (::mkdtemp(folder) == nullptr)
        return 1;
    g_Native = std::string(folder) + "/big.bin";
    char path[qel::FileManager::PathSize];
    qel::FileManager::GetSingletonInstance().ResolveLocalPath(g_Native.c_str(), path, sizeof path);
    g_Virtual = path;

    const int fd = ::open(g_Native.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    Buffer block(1u << 20);
    for (u32 done = 0; done < FileSize; done += 1u << 20)
    {
        for (u32 i = 0; i < 1u << 20; ++i)
            block.data[i] = static_cast<unsigned char>((done >> 20) + i * 13);
        if (::write(fd, block.data, 1u << 20) != ssize_t(1u << 20))
            return 1;
    }
    ::close(fd);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    ::unlink(g_Native.c_str());
    ::rmdir(folder);
    return 0;
}
