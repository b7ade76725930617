// Tour section and command of the streaming manager: a file read at a data
// rate through a streaming request, its ring emptied as the bytes arrive.
#include "command.h"
#include "tour.h"

#include <qel/clock.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/streamingmanager.h>
#include <qel/streamingrequest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#if defined(_WIN32)
#include <io.h>
#define QELTOOL_ISATTY(f) _isatty(_fileno(f))
#else
#include <unistd.h>
#define QELTOOL_ISATTY(f) isatty(fileno(f))
#endif

namespace qeltool
{

namespace
{

using qel::StreamingManager;
using qel::StreamingRequest;
using qel::u32;
using qel::u64;

// The capacity of `qeltool stream`'s ring: a whole number of pages, so that
// every read into it meets the file's pages at the same alignment.
constexpr u32 StreamRing = 256u << 10;

// The time between two reads of a stream, in seconds.
constexpr double StreamStep = 0.01;

// What a stream did, sampled at every step.
struct StreamProgress
{
    double seconds = 0;
    u64 bytesRead = 0;
    u64 total = 0;
    u32 fill = 0;     // bytes in the ring after the step's read
    u32 capacity = 0; // of the ring
    double fillSum = 0;
    u32 steps = 0;
    bool cut = false; // the file ended before its size said
};

std::string Bytes(double bytes)
{
    char text[32];
    if (bytes >= 1024.0 * 1024.0)
        std::snprintf(text, sizeof text, "%.2f MB", bytes / (1024.0 * 1024.0));
    else if (bytes >= 1024.0)
        std::snprintf(text, sizeof text, "%.2f KB", bytes / 1024.0);
    else
        std::snprintf(text, sizeof text, "%.0f B", bytes);
    return text;
}

double Seconds(u64 from)
{
    return double(qel::Clock::Read() - from) / double(qel::Clock::GetFrequency());
}

// Streams `request` (listed in the manager) at its rate until its bytes
// have all arrived or `limit` seconds passed (0: no limit). Every step it
// reads what the clock says is due at the next step, in slices the ring can
// take, wakes the manager's worker, and takes out what arrived. A Read made
// ahead of its target would still take a quarter of the rate, so Read is
// called only when bytes are due. The last step before the limit reads up to
// the limit's bytes, and reading stops at the limit, caught up or not: so a
// rate the machine cannot keep still ends on time. `show` is called at every
// step, with the step's last slice still in the ring.
template <class Show>
StreamProgress Stream(StreamingRequest& request, double limit, Show show)
{
    StreamProgress progress;
    progress.total = request.BytesRemaining64();
    progress.capacity = request.BufferCapacity();
    // The bytes are not used: they are passed over where they lie.
    auto drain = [&] { request.Skip(progress.capacity); };
    const double rate = request.Datarate();
    const u64 start = qel::Clock::Read();
    for (double next = StreamStep;; next += StreamStep)
    {
        progress.seconds = Seconds(start);
        const bool last = limit > 0 && progress.seconds >= limit;
        // What is due at the next step: at the limit, nothing is left to read.
        double until = progress.seconds + StreamStep;
        if (limit > 0 && until > limit)
            until = limit;
        const double due = rate * until;
        const u64 target = due < double(progress.total) ? u64(due) : progress.total;
        while (request.BytesRead64() < target && !progress.cut &&
               !(limit > 0 && Seconds(start) >= limit))
        {
            drain();
            progress.cut = request.Read(qel::s64(target)) == 0;
        }
        StreamingManager::GetSingletonInstance().Execute(10);
        progress.bytesRead = request.BytesRead64();
        progress.fill = request.DataAvailable();
        progress.fillSum += progress.capacity ? double(progress.fill) / progress.capacity : 0;
        ++progress.steps;
        show(progress);
        drain();
        if (last || progress.cut || progress.bytesRead >= progress.total)
            break;
        const double now = Seconds(start);
        if (next < now)
            next = now; // a step that overran: the next one follows at once
        const double wake = limit > 0 && next > limit ? limit : next;
        if (wake > now)
            std::this_thread::sleep_for(std::chrono::duration<double>(wake - now));
    }
    progress.seconds = Seconds(start);
    progress.bytesRead = request.BytesRead64();
    return progress;
}

// "16M", "512k", "1000": bytes per second; 0 when it is not a rate.
u64 ParseRate(const char* text)
{
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    double unit = 1;
    if (end != text && (*end == 'k' || *end == 'K'))
        unit = 1024, ++end;
    else if (end != text && (*end == 'm' || *end == 'M'))
        unit = 1024 * 1024, ++end;
    if (end == text || *end != '\0' || !(value > 0) || value * unit > 4294967295.0)
        return 0;
    return u64(value * unit);
}

void PrintSummary(const char* path, double rate, const StreamProgress& progress)
{
    const double achieved =
        progress.seconds > 0 ? double(progress.bytesRead) / progress.seconds : 0;
    std::printf("streamed %llu of %llu bytes of %s in %.2f s: %s/s, %.1f%% of the %s/s asked; "
                "the ring (%s) was %.0f%% full on average\n",
                static_cast<unsigned long long>(progress.bytesRead),
                static_cast<unsigned long long>(progress.total), path, progress.seconds,
                Bytes(achieved).c_str(), rate > 0 ? 100.0 * achieved / rate : 0.0,
                Bytes(rate).c_str(), Bytes(progress.capacity).c_str(),
                progress.steps ? 100.0 * progress.fillSum / progress.steps : 0.0);
    // Reading what the clock says is due keeps within a step of it: a
    // stream that took longer than that for its bytes, whether it stopped at
    // the limit or at the file's end, was held back by the machine.
    const double kept = double(progress.bytesRead) / rate / 0.98 + StreamStep;
    if (progress.cut)
        std::printf("the file ended before its size\n");
    else if (progress.seconds > kept)
        std::printf("the rate asked is above what this machine reached: %s/s\n",
                    Bytes(achieved).c_str());
}

} // namespace

int StreamFile(int count, char** args)
{
    const u64 rate = ParseRate(args[1]);
    const double limit = count == 3 ? std::strtod(args[2], nullptr) : 0;
    if (rate < 4 || (count == 3 && !(limit > 0)))
        return UsageError("stream", "RATE is bytes per second from 4 up (\"16M\", \"512k\"), "
                                    "SECONDS a positive number");
    const std::string path = VirtualPath(args[0]);
    // Each slice is taken out as soon as it arrives, so the ring needs to
    // hold one slice only; a small one stays in the processor's cache, where
    // reading into it is cheapest.
    const u32 ring = u32(std::min<u64>(rate / 2, StreamRing + 1));
    StreamingRequest* request = nullptr;
    try
    {
        request = StreamingRequest::Create(path.c_str(), u32(rate), ring);
    }
    catch (const qel::FileException& e)
    {
        std::fprintf(stderr, "%s: %s\n", args[0], FileReason(e).c_str());
        return 1;
    }
    if (request == nullptr)
        return 1;
    StreamingManager::GetSingletonInstance().Add(request);

    const bool live = QELTOOL_ISATTY(stdout) != 0;
    double shown = -1;
    const StreamProgress progress =
        Stream(*request, limit,
               [&](const StreamProgress& now)
               {
                   if (!live || now.seconds - shown < 0.1)
                       return;
                   shown = now.seconds;
                   const double achieved = now.seconds > 0 ? now.bytesRead / now.seconds : 0;
                   std::printf("\r%6.1f s  %s of %s  %s/s  ring %3u%% full   ", now.seconds,
                               Bytes(double(now.bytesRead)).c_str(),
                               Bytes(double(now.total)).c_str(), Bytes(achieved).c_str(),
                               now.capacity ? unsigned(100.0 * now.fill / now.capacity) : 0u);
                   std::fflush(stdout);
               });
    if (live)
        std::printf("\n");
    PrintSummary(path.c_str(), double(rate), progress);
    delete request; // leaves the manager's list
    return 0;
}

void TourStreaming(const TourContext& context)
{
    Banner("streaming");
    const std::string path = VirtualPath((context.dataDir + "characters.txt").c_str());
    StreamingRequest* request = nullptr;
    try
    {
        request = StreamingRequest::Create(path.c_str(), 1024);
    }
    catch (const qel::FileException& e)
    {
        std::printf("%s: %s\n", path.c_str(), e.GetReason());
        return;
    }
    if (request == nullptr)
        return;
    StreamingManager& manager = StreamingManager::GetSingletonInstance();
    manager.Add(request);
    std::printf("a request for %s at 1024 bytes/s, ring of %u bytes; the manager lists %u "
                "request(s) wanting %u bytes/s\n",
                path.c_str(), unsigned(request->BufferCapacity()), unsigned(manager.Count()),
                unsigned(manager.HighestDataRate()));
    double next = 0.1;
    const StreamProgress progress =
        Stream(*request, 0,
               [&](const StreamProgress& now)
               {
                   if (now.seconds < next)
                       return;
                   next += 0.1;
                   std::printf("  %.1f s: %3u bytes read, %3u waiting in the ring\n", now.seconds,
                               unsigned(now.bytesRead), unsigned(manager.TotalBytesAvailable()));
               });
    PrintSummary(path.c_str(), 1024, progress);
    delete request;
}

} // namespace qeltool
