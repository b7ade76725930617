// The packed allocator: requests of any size, packed into runs of whole pages.
//
// A run is n consecutive 4096-byte pages from the page manager. Its first 128
// bytes are the run header (guards, the run's MemChunkTree counting bytes,
// the cached largest free chunk, the live block count, the page count); the
// rest is free space handed out as chunks. A block is a 16-byte header (the
// marker 0xB123456B and the block's capacity) and the caller's bytes, so a
// block is aligned on 8 bytes. A request of `size` bytes needs NeedFor(size):
// size + 16, at least 40, above 40 rounded up to 16. A new run has 4 pages,
// or RunPagesFor(need) for needs above 3968.
//
// Runs that may take blocks form the room set; full runs (largest free chunk
// at or below the threshold) and big ones (26 pages or more, with live
// blocks) are set aside and never searched. Both sets are ordered by the
// cached largest free chunk: a request takes the run with the smallest
// largest chunk that fits it, and inside that run the smallest free chunk
// that fits (MemChunkTree's choice rule). A run is filed again after every
// operation that changes its largest chunk, and goes back to the page
// manager the moment its last block does. Malloc and Free are constant time
// in the number of runs, logarithmic in the free chunks of one run.
//
// Statistics: a block counts its capacity as both its requested and its used
// size; "pages full" counts the pages of set-aside runs.
//
// Statistics dump flags:
//   1  the usage table, one row under the allocator's name; the overhead per
//      allocation is the 16-byte block header
//   2  every run ("PackedAllocatorPage", its page count and size in bytes),
//      then its blocks in address order (caller's address, capacity) and the
//      number of blocks and the largest free chunk; a run whose blocks do not
//      tile its space is left out
//   4  the tags heading (no tags are kept)
//   8  every run's free chunks in address order (address, size in bytes)
// Runs are listed room set first, then set-aside, each in its set's order.
//
// Every operation on the runs holds the lock of their arena; no lock is held
// while another allocator, or another arena, is called (Transfert, a move
// by ReAllocNoThrow, a cache given back), so that pool-to-packed and
// packed-to-pool moves cannot deadlock.
//
// Thread caches (EnableThreadCaches; Mem turns them on for its shared Big
// allocator, never for the allocators its factories make). Requests of 256
// bytes to 64 KB then fall in 65 classes, eight to a doubling (256, 288,
// ..., 480, 512, 576, ..., 57344, 61440, 65536), and each thread keeps, for
// each class, a list of free blocks of at least the class's capacity that
// it takes from and gives to without a lock. A request is rounded up to its
// class's capacity, so that any block of the list serves it (at most an
// eighth more than the request). A list keeps from 2 KB' worth of blocks
// (none above 2 KB) up to 128 KB' worth (4 blocks at least) as the class
// is used; the growth above those floors, over all the lists of a thread,
// is within 2 MB (threadcache.h says how the limits adapt). A thread's
// cache thus holds at most about 2.05 MB, besides four freed blocks that
// wait to be sorted into their lists while their headers are fetched (a
// run's first block, which may be a big one, never waits); a list that
// runs empty takes a waiting block of its class before a refill.
// An empty list takes half its limit in one locked pass, cut as consecutive
// blocks from one free chunk where a run has one that large; a list of
// blocks of a page or more takes one, so that the blocks such a list holds
// were all handed out before, and no page is first touched for a block that
// may never be used. When no run has room, the new run has, from the page
// count the class's need calls for up to 16 pages (25 above 16 pages' need),
// the count that leaves the least of it unused (a class of 4608 bytes: 8
// pages holding 7 blocks, where 4 pages hold 3). A list past its limit gives
// half back. A cached block keeps
// its header, with the marker 0xB1CAC4ED: it counts as allocated in the
// statistics and dumps, and freeing it again is reported as a double free
// when that free is sorted (a pending block freed twice, when both are
// sorted or the cache goes back, unless it was handed out in between).
// Pending blocks count as allocated too, and as held in dumps.
// Each arena also keeps the last big run (26 pages or more) whose last block
// went, when it has at most SpareRunPages pages (2 MB), instead of giving
// its pages back. A big run, or a block of a page or more that moves to
// grow, takes it first; any other run takes it rather than a new metapage.
// It is cut to what the taker needs, the pages behind going back to the
// page manager right behind it, where a block at its end can grow into them
// again; a big run placed to grow takes it whole when it has at most four
// times the pages asked for, and a kept run too small for a big one goes
// back. A buffer grown to a megabyte and dropped, again and again, thus
// lands where the last one was, on pages already touched, even when the
// page manager has no long stretch of free pages left and would otherwise
// make, touch and unmap a metapage for each one. A kept run counts in no
// statistics and is in no dump of this allocator; the page manager counts
// its pages as this allocator's until FreeAll, destruction or
// ReleaseKeptRuns (which Mem::DumpAllStatistics calls first) gives it back.
// A dump, FreeAll, GetStatistics, ValidateMemory and destruction first give
// the calling thread's cache back; a dump says how many blocks other
// threads' caches hold; a thread's caches go back when it ends. FreeAll must
// not race with other threads' allocations.
//
// Arenas (with thread caches only). The runs are split among as many
// arenas as the machine has processors, at most eight, each with its own
// lock, room and set-aside sets and statistics; a thread takes its runs
// from one arena, given in turn to each new thread (the first thread gets
// arena 0, the one an allocator without caches has), so that threads
// refilling and draining their caches do not queue on one lock. More arenas
// than processors would let no more threads run at once, and would leave
// more pages partly used, each arena keeping its own. A block goes back to
// its run's arena, whichever thread frees it. An arena's sets take about
// 100 KB of the allocator's own memory, made when its first thread comes.
// The statistics are the arenas' sums: the current counters are exact, a
// peak is the sum of the arenas' peaks (the true peak when one arena was
// used). Dumps list arena after arena, each room set first, then set-aside.
#pragma once

#include <qel/allocator.h>
#include <qel/allocatorstatistics.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/threadcachelookup.h>
#include <qel/types.h>

#include <atomic>

namespace qel
{

class PageManager;
class ThreadCacheHome;
struct ThreadCache;
struct PackedRun;

class QEL_API PackedAllocator : public Allocator
{
public:
    enum : u32
    {
        PageSize = 4096,
        RunHeaderSize = 128,
        BlockHeaderSize = 16,
        BlockMarker = 0xB123456Bu,
        CachedMarker = 0xB1CAC4EDu, // a block in a thread's cache
        MinimumChunk = 40,
        MinimumRunPages = 4,
        // Runs of this many pages or more are set aside while they hold a
        // block: nothing else is packed into them.
        BigRunPages = 26,
        // The largest free chunk a run under BigRunPages pages can have.
        MaxRoomKey = (BigRunPages - 1) * PageSize - RunHeaderSize,
        // Set-aside keys are at most the threshold (full runs) or the tail of
        // a big run's last page; larger ones share the last bin.
        MaxSetAsideKey = PageSize,
    };

    enum DumpFlags : u32
    {
        DumpUsage = 1,
        DumpPages = 2,
        DumpTags = 4,
        DumpFreeLists = 8,
    };

    // Registers the error category `name` (the name also heads the usage
    // table, cut to 31 characters) and joins the page manager's owner list.
    // A run whose largest free chunk is at or below `fullThreshold` bytes is
    // set aside.
    PackedAllocator(const char* name, u32 fullThreshold);
    // Lists what is still allocated (leaks) on the debugger stream, then
    // gives every run back.
    ~PackedAllocator() override;

    // Size 0 gives null.
    void* MallocNoThrow(unsigned int size) override;
    // Freeing an address that is not a live block of this allocator (a
    // double free, or another allocator's block) is reported and ignored.
    void Free(const void* p) override;
    // Gives every run back; the peaks are kept.
    void FreeAll() override;
    // Stays as it is when the new size fits the block and needs at least
    // half of its chunk. Shrinks further in place, giving the tail back to
    // the run (a lone block of a big run moves to a smaller place instead,
    // so that the run's pages go back). Grows in place when the free chunk
    // just behind the block is big enough, or when nothing but free space
    // follows the block in its run and the page manager has free pages right
    // behind the run, which the run then takes; else moves. A block of 1 KB
    // or more that grows in place takes a quarter of its chunk more than it
    // needs when that much is free, one of 16 KB or more three quarters (a
    // buffer grown step by step then grows in place about once a doubling,
    // and shrinks in place only below about seven eighths of the size that
    // made it grow). One that must move takes more room than
    // asked: a quarter more from 1 KB, twice the size from 16 KB, where what
    // it leaves untouched is mostly whole pages that cost no memory and each
    // move saved would copy the whole block (a buffer grown step by step
    // then moves about once a doubling). With caches on, it comes from the
    // arena's kept run (see the top of this file) for a block of a page or
    // more, else from the thread's cache where that serves the new size;
    // else from the best fitting free chunk. A lone block whose run fills a
    // metapage of its own (past the page manager's step) moves without a
    // copy where the system can move pages (PageManager::MoveRun), so that
    // a huge buffer doubled again and again is never copied nor touched
    // whole. A size of 0 gives null and keeps the block.
    void* ReAllocNoThrow(void* p, unsigned int size) override;
    void DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                        OutputStream* out, char* title) override;
    // Checks every run: guards, owner records, the chunk tree, the blocks'
    // markers and that blocks and free chunks tile the run, the cached
    // values and set membership, and the statistics against all of it.
    // Warns about the first damage found and returns false.
    bool ValidateMemory() override;
    // True for the address of a live block of this allocator.
    bool IsValidPointer(const void* p) override;
    unsigned int GetMaxSupportedAllocSize() const override { return 0xFFFFFFFFu; }
    u32 GetErrorCategory() const override { return m_ErrorCategory; }
    // Moving a block into this allocator itself is ReAllocNoThrow.
    void* Transfert(Allocator* target, void* p, unsigned int size) override;

    // Whether a block of `chunk` bytes keeps its place for a request that
    // needs `need` bytes, no more than the chunk.
    static bool Stays(u32 need, u32 chunk) { return u64(need) * 2 >= chunk; }
    // The chunk a request of `size` bytes takes (it may come back larger);
    // 0 when no run could hold it.
    static u32 NeedFor(unsigned int size)
    {
        return u64(size) + BlockHeaderSize > MaxNeed ? 0 : NeedWithin(size);
    }
    // NeedFor for a size no larger than some block's capacity, which keeps
    // it below the limit: no test of it.
    static u32 NeedWithin(unsigned int size)
    {
        return size + BlockHeaderSize <= MinimumChunk ? u32(MinimumChunk)
                                                      : (size + BlockHeaderSize + 15) & ~15u;
    }
    // The pages of a new run for a chunk of `need` bytes.
    static u32 RunPagesFor(u32 need)
    {
        const u32 pages = need <= PageSize - RunHeaderSize ? 0 : ((need + 127) >> 12) + 1;
        return pages < MinimumRunPages ? u32(MinimumRunPages) : pages;
    }

    AllocatorStatistics GetStatistics() const;
    // Gives every thread a cache of free blocks of 256 bytes to 64 KB (see
    // the top of this file). Turn it on before the first allocation.
    void EnableThreadCaches();
    // Gives back the emptied big runs the arenas keep (see the top of this
    // file), which the page manager counts as this allocator's pages: what
    // a dump of the page manager beside this allocator's calls first.
    void ReleaseKeptRuns();
    u32 GetFullThreshold() const { return m_FullThreshold; }
    const char* GetName() const { return m_Name; }

private:
    enum : u32
    {
        // The largest need whose run still fits the page manager's 32-bit
        // byte counts.
        MaxNeed = 0xFFFF0000u,
        // The most pages a run may grow to: its space stays a 32-bit count.
        MaxRunPages = MaxNeed / PageSize,
    };

    // Runs filed by their cached largest free chunk. Chunk sizes are
    // multiples of 8, so there is one bin per possible key and a bin's runs
    // all have the same key: the first non-empty bin at or above a key,
    // found through a two-level bitmap, holds a run with the smallest key
    // that fits. Constant time, and nothing is allocated: the bins' lists
    // are linked through the run headers.
    template <u32 MaxKey>
    struct RunSet
    {
        enum : u32
        {
            Bins = MaxKey / 8 + 1,
            Words = (Bins + 63) / 64,
            Summaries = (Words + 63) / 64,
        };
        u64 summary[Summaries]; // bit w: words[w] is not 0
        u64 words[Words];       // bit b: heads[b] is not null
        PackedRun* heads[Bins];
        u32 count;
    };
    typedef RunSet<MaxRoomKey> RoomSet;
    typedef RunSet<MaxSetAsideKey> SetAsideSet;

    // A lock and the runs and statistics it guards (see the top of this
    // file); an allocator without thread caches has only the first.
    struct Arena
    {
        CriticalSection lock;
        RoomSet room;
        SetAsideSet setAside;
        AllocatorStatistics statistics;
        u32 index; // in m_Arenas, and in its runs' headers
        // An emptied big run kept for the next one, or null; changed under
        // the lock, peeked at without it.
        std::atomic<PackedRun*> spare{nullptr};
    };
    enum : u32
    {
        MaxArenas = 8
    };
    // Locks every arena made so far, in order, for the whole allocator's
    // operations (dumps, checks, FreeAll).
    class AllArenas;

    enum : u32
    {
        SmallestCached = 256,
        LargestCached = 65536,
        CacheClasses = 65,
        CacheBudget = 2048 * 1024,              // bytes a thread
        SpareRunPages = CacheBudget / PageSize, // the largest emptied run an arena keeps
        SpareRoom = 4,
    };
    // The capacity of cache class `index`, and the classes of a request
    // (rounded up) and of a block's capacity (rounded down).
    static u32 ClassCapacity(u32 index)
    {
        const u32 doubling = index >> 3;
        return (SmallestCached << doubling) + (index & 7) * (32u << doubling);
    }
    static inline u32 ClassAbove(u32 size);
    static inline u32 ClassBelow(u32 capacity);
    void* Refill(ThreadCache& cache, u32 index);
    // Cuts up to `blocks` consecutive blocks of `need` bytes from one free
    // chunk; `blocks` receives how many. Null when no run can be had.
    unsigned char* CarveLocked(Arena& arena, u32 need, u32& blocks);
    // The pages of a run made to refill a cache with blocks of `need`.
    static u32 CacheRunPages(u32 need);
    // MallocNoThrow for SmallestCached to LargestCached bytes, and Free
    // with the page record of `p` already read (its owner is this
    // allocator), inline for the hybrid allocator's paths
    // (packedallocatorfast.h): what the calling thread's cache holds is
    // taken and given inline; anything else (the first look at a cache, a
    // refill, the locked paths) is out of line, so that the inline paths
    // save no registers.
    friend class HybridAllocator;
    inline void* MallocFast(unsigned int size);
    // A block from the thread's cache, or null.
    inline void* MallocCached(unsigned int size);
    void* MallocMiss(unsigned int size);
    inline void FreeFast(const void* p, u32 record);
    inline void FreeCached(ThreadCache& cache, const void* p, u32 record);
    void FreeMiss(const void* p, u32 record);
    // Puts a freed block into its class's list, or frees it as any block
    // when it has none.
    inline void Sort(ThreadCache& cache, void* p);
    void FreeSlow(const void* p);
    // ReAllocNoThrow's lock-free test for a block that keeps its place, the
    // page record of `p` (whose owner is this allocator) already read.
    static inline bool StaysInPlace(const void* p, unsigned int size, u32 record);
    // Where a block goes: the first run of the room set that holds it, else
    // a new run (Fit), placed for growth (Grow: PageManager::AllocatePages);
    // or only the arena's spare, cut to the block's run (Spare).
    enum class Place
    {
        Fit,
        Grow,
        Spare,
    };
    // A block of `need` bytes placed as `place` says, or null.
    void* MallocLocked(Arena& arena, u32 need, Place place = Place::Fit);
    void FreeLocked(Arena& arena, const void* p);
    // The last block of `run` went: the run goes back to the page manager,
    // or becomes the arena's spare (see the top of this file).
    void RunEmptied(Arena& arena, PackedRun* run);
    void ReleaseSpare(Arena& arena);
    // The arena's spare as the start of a new run of `pages` pages, or null.
    // A run to grow takes it whole when it has at most SpareRoom times the
    // pages asked for (`pages` receives its count), any other is cut to size.
    void* TakeSpare(Arena& arena, u32& pages, bool toGrow);
    // Gives back a chain of cached blocks (linked through their first
    // word), or of pending ones, which are freed as any block is.
    void GiveBack(void* chain, bool sorted);

    // The calling thread's arena; the first one when caches are off.
    Arena& ThreadArena();
    Arena& ArenaOf(ThreadCache& cache);
    // The arena of the run holding `p`, read without a lock (a run never
    // changes arena); the first one when `p` is in no run of ours, for the
    // checks under the lock to report.
    Arena& ArenaOf(const void* p) const;
    Arena& ArenaOf(const PackedRun* run) const;
    AllocatorStatistics Totals() const;

    enum class Resize
    {
        Bad,      // not a live block of ours: reported
        Done,     // resized in place
        Stuck,    // cannot grow in place
        StuckBig, // the same in a big run, whose pages may move instead
        Lone,     // a lone block of a big run that a smaller run would hold
    };
    // Resizes in place under the lock of the block's arena. `lone` allows
    // the Lone answer; `capacity` receives the block's capacity.
    Resize ResizeInPlace(void* p, unsigned int size, bool lone, u32& capacity);

    PackedRun* NewRun(Arena& arena, u32 pages, Place place = Place::Fit);
    // Adds pages behind the run so that the block ending at `end` can grow
    // by `missing` bytes in place; the run is left out of its set.
    bool GrowRun(PackedRun* run, unsigned char* end, u32 missing);
    // Grows the lone block `p` of a big run by having the page manager move
    // the run's pages to a larger place (PageManager::MoveRun) rather than
    // copying them; null when it cannot.
    void* MoveRunToGrow(void* p, unsigned int size);
    void ReleaseRun(PackedRun* run);
    // Puts the run into the set and bin its state calls for.
    void Refile(PackedRun* run);
    void Unfile(PackedRun* run);
    // The run holding the live block `p`, null when there is none; RunOf
    // reports it. Lock-free for a live block, whose run cannot change.
    PackedRun* LiveBlockRun(const void* p) const;
    // True when the page of `p`, whose record is `record`, holds the header
    // of a block at `p` outside a run header: what freeing into a cache
    // checks, the record's owner being ours.
    static bool HeaderOnPage(const void* p, u32 record);
    PackedRun* RunOf(const void* p, const char* operation);
    void ReportBadBlock(const char* operation, const void* p);
    void DumpRuns(OutputStream& out, bool blocks);
    bool CheckRun(const Arena& arena, PackedRun* run, AllocatorStatistics& sums);

    // The page manager, which outlives its owners, and this allocator's
    // index in its owner list: the owner byte of every page of our runs.
    PageManager* m_Pages;
    u32 m_OwnerIndex;
    u32 m_FullThreshold;
    u32 m_ErrorCategory;
    char m_Name[32];
    ThreadCacheHome* m_Caches = nullptr; // null while caches are off
    ThreadCacheLookup m_CacheLookup;     // kept by m_Caches
    // Guards the caches' list and the making of arenas.
    CriticalSection m_HomeLock;
    Arena* m_Arenas[MaxArenas];
    std::atomic<u32> m_ArenaCount{1};
    std::atomic<u32> m_NextArena{0}; // the arena of the next new thread
    u32 m_ArenaLimit = 1;            // the arenas threads are given in turn
    // Keeps the first arena's lock off the cache line of the fields above,
    // which every thread reads.
    unsigned char m_Separation[64];
    Arena m_First;
};

} // namespace qel
