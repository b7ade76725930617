// What the memory report knows once the dumps are read: the page manager's
// metapages and their stretches, every allocator with its counters and what
// its listing held, each listed page's owner and bytes in use, and the
// tracked blocks grouped by call site.
//
// Dumps are read line by line (DumpReader), so a listing of 100,000 blocks
// is folded into histograms and page totals as it goes and never kept.
#pragma once

#include "base/memory/report/nativestl.h"

#include <qel/types.h>

#include <cstdint>
#include <functional>
#include <unordered_map>

namespace qel
{
namespace report
{

// Counts and addresses: std::uint64_t, which <cinttypes>' formats name on
// every host (qel::u64 is unsigned long long everywhere).
using u64 = std::uint64_t;

// The ten counters of a statistics row, in the row's order (the derived
// page size columns left out).
enum Counter
{
    CurrentAllocations,
    CurrentRequested,
    CurrentUsed,
    CurrentPages,
    CurrentFullPages,
    PeakAllocations,
    PeakRequested,
    PeakUsed,
    PeakPages,
    PeakFullPages,
    NumberOfCounters
};

enum class Kind
{
    Unknown,
    Pool,
    Packed,
    Page,
    Tracking,
};

// Live blocks by size: bin 0 holds 1 to 16 bytes, bin n sizes above 2^(n+3)
// up to 2^(n+4).
enum
{
    HistogramBins = 29
};
u32 HistogramBin(u64 size);

struct AllocatorInfo
{
    u64 address = 0;
    Kind kind = Kind::Unknown;
    String name;  // the usage table's row name (packed allocators)
    String usage; // the title the full dump gave it: "Small", "Big", ...
    bool hasCounters = false;
    u64 counters[NumberOfCounters] = {};
    u64 held = 0; // blocks in other threads' caches
    // Pool allocator: its size classes' rows.
    u32 classCount = 0;
    u64 classSizes[16] = {};
    u64 classCounters[16][NumberOfCounters] = {};

    bool listed = false; // a listing was read (the first one counts)
    u64 blocks = 0, bytes = 0;
    u64 runs = 0, pages = 0; // pool pages, packed runs, page allocator blocks
    u64 histogramCount[HistogramBins] = {};
    u64 histogramBytes[HistogramBins] = {};

    // Page allocator: its usage lines.
    bool hasPageUsage = false;
    u64 requests = 0, pageTotal = 0;
    // Tracking allocator: its next position and the allocators below it.
    u64 position = 0, small = 0, big = 0;
};

struct Stretch
{
    u64 start;
    u64 pages;
    u64 owner; // the owner's address; 0 for free pages
    bool used;
};

struct Metapage
{
    u64 age = 0, start = 0, end = 0, usedPages = 0, pages = 0;
    bool hasRow = false; // a usage row "meta-N"
    u64 requests = 0, peakRequests = 0, peakUsedPages = 0;
    bool hasFreeRuns = false;
    u64 freeRuns = 0;
    Vector<Stretch> stretches;
};

// Blocks of one call site (tag, file, line) of a tracking allocator.
struct Site
{
    String tag, file;
    u64 line = 0;
    u64 blocks = 0, bytes = 0;
};

struct TrackedBlock
{
    u64 address, size, position;
    u32 site; // in Model::leakSites
};

struct PageUse
{
    u32 allocator; // index in Model::allocators
    u32 bytes;     // in use on the page
};

struct Model
{
    Model() = default;
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    bool hasPageManager = false;
    // Current requests, used pages, system pages; then their peaks.
    u64 pageManager[6] = {};
    Vector<Metapage> metapages;

    Vector<AllocatorInfo> allocators;
    std::unordered_map<u64, PageUse, std::hash<u64>, std::equal_to<u64>,
                       NativeStl<std::pair<const u64, PageUse>>>
        pages;

    // Every tracked live block, by site.
    bool hasTracked = false;
    Vector<Site> sites;
    // Those between two markers: by site, and the largest ones.
    bool hasRange = false;
    u64 rangeFrom = 0, rangeTo = 0;
    Vector<Site> leakSites;
    Vector<TrackedBlock> largestLeaks;

    // What the reader could not place, for the report's notes.
    Vector<String> notes;
    u64 lines = 0;
};

} // namespace report
} // namespace qel
