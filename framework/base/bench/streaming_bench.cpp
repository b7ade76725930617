// Streaming requests, metered and not, in one program and run.
//
// Metered: a 64 MB file streamed at 16 MB/s. The benchmark's thread, like a
// game's frame loop, calls Read with the bytes due by the clock every 10 ms
// and wakes the manager's worker; a reader thread copies out what arrives,
// looking every 2 ms. Reported: the
// achieved rate over the asked one (bytes over the time until the reader
// had the last byte), and the CPU time of the thread making the request's
// Read calls, of the manager's worker and of the reader, each as a share of
// one core over the run.
//
// Unmetered: the same file read through a request whose rate is far above
// the disk's, its ring copied out into the caller's buffer, against plain
// read() into a buffer of the ring's size. The file sits in the page cache,
// so this times the request's own overhead, not the disk.
#include <qel/filemanager.h>
#include <qel/streamingmanager.h>
#include <qel/streamingrequest.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

using qel::StreamingManager;
using qel::StreamingRequest;
using qel::u32;
using Clock = std::chrono::steady_clock;

constexpr u32 FileSize = 64u << 20;
constexpr u32 MeteredRate = 16u << 20;

std::string g_Native;  // the file's path of the system
std::string g_Virtual; // and its virtual path

double ThreadCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// The CPU time of a thread of this process, from the scheduler's records.
double TaskCpuSeconds(u32 tid)
{
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/schedstat";
    unsigned long long ns = 0;
    if (std::FILE* f = std::fopen(path.c_str(), "r"))
    {
        if (std::fscanf(f, "%llu", &ns) != 1)
            ns = 0;
        std::fclose(f);
    }
    return double(ns) * 1e-9;
}

void BM_Metered_StreamingRequest(benchmark::State& state)
{
    StreamingManager& manager = StreamingManager::GetSingletonInstance();
    const u32 worker = manager.GetWorkerThreadId();
    double ratio = 0, ownerShare = 0, workerShare = 0, readerShare = 0;
    for (auto _ : state)
    {
        StreamingRequest* request = StreamingRequest::Create(g_Virtual.c_str(), MeteredRate);
        manager.Add(request);
        std::atomic<bool> quit{false};
        std::atomic<u32> received{0};
        Clock::time_point last;
        double readerCpu = 0;
        std::thread reader(
            [&]
            {
                const double cpu = ThreadCpuSeconds();
                std::vector<unsigned char> sink(1u << 20);
                while (received.load() < FileSize && !quit.load())
                {
                    const u32 got = request->Copy(sink.data(), u32(sink.size()));
                    if (got == 0)
                        std::this_thread::sleep_for(std::chrono::milliseconds(2));
                    else if (received.fetch_add(got) + got == FileSize)
                        last = Clock::now();
                }
                readerCpu = ThreadCpuSeconds() - cpu;
            });

        const double workerCpu = TaskCpuSeconds(worker);
        const double ownerCpu = ThreadCpuSeconds();
        const Clock::time_point start = Clock::now();
        while (request->BytesRemaining() > 0)
        {
            const double due =
                MeteredRate * std::chrono::duration<double>(Clock::now() - start).count();
            const qel::s32 target = qel::s32(due < 2147483647.0 ? due : 2147483647.0);
            if (u32(target) > request->BytesRead() && request->Read(target) == 0 &&
                request->DataAvailable() == 0)
                break; // the file is shorter than it was
            manager.Execute(10);
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        const double owner = ThreadCpuSeconds() - ownerCpu;
        if (request->BytesRemaining() > 0)
            quit = true;
        reader.join();
        const double worked = TaskCpuSeconds(worker) - workerCpu;
        const double seconds = std::chrono::duration<double>(last - start).count();
        state.SetIterationTime(seconds);
        ratio = received.load() / seconds / MeteredRate;
        ownerShare = owner / seconds;
        workerShare = worked / seconds;
        readerShare = readerCpu / seconds;
        delete request;
    }
    state.counters["rate_ratio"] = ratio;
    state.counters["owner_cpu_pct"] = 100 * ownerShare;
    state.counters["worker_cpu_pct"] = 100 * workerShare;
    state.counters["reader_cpu_pct"] = 100 * readerShare;
    state.SetBytesProcessed(int64_t(state.iterations()) * FileSize);
}
BENCHMARK(BM_Metered_StreamingRequest)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BM_Unmetered_StreamingRequest(benchmark::State& state)
{
    const u32 ring = u32(state.range(0));
    std::vector<unsigned char> sink(ring);
    for (auto _ : state)
    {
        StreamingRequest* request =
            StreamingRequest::Create(g_Virtual.c_str(), 0xFFFFFFFFu, ring + 1);
        u32 total = 0;
        while (request->BytesRemaining() > 0)
        {
            if (request->Read(0x7FFFFFFF) == 0)
                break;
            total += request->Copy(sink.data(), ring);
        }
        delete request;
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * FileSize);
}
BENCHMARK(BM_Unmetered_StreamingRequest)
    ->Arg(64 << 10)
    ->Arg(256 << 10)
    ->Arg(1 << 20)
    ->Unit(benchmark::kMillisecond);

void BM_Unmetered_PlainRead(benchmark::State& state)
{
    const u32 chunk = u32(state.range(0));
    std::vector<unsigned char> buffer(chunk);
    for (auto _ : state)
    {
        const int fd = ::open(g_Native.c_str(), O_RDONLY);
        u32 total = 0;
        ssize_t n;
        while ((n = ::read(fd, buffer.data(), chunk)) > 0)
            total += u32(n);
        ::close(fd);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * FileSize);
}
BENCHMARK(BM_Unmetered_PlainRead)
    ->Arg(64 << 10)
    ->Arg(256 << 10)
    ->Arg(1 << 20)
    ->Unit(benchmark::kMillisecond);

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
    std::vector<unsigned char> block(1u << 20);
    for (u32 done = 0; done < FileSize; done += u32(block.size()))
    {
        for (std::size_t i = 0; i < block.size(); ++i)
            block[i] = static_cast<unsigned char>((done >> 20) + i * 13);
        if (::write(fd, block.data(), block.size()) != ssize_t(block.size()))
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
