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
// Every operation on the runs holds the allocator's own lock; it is never
// held while another allocator is called (Transfert), so that pool-to-packed
// and packed-to-pool moves cannot deadlock.
//
// Thread caches (EnableThreadCaches; Mem turns them on for its shared Big
// allocator, never for the allocators its factories make). Requests of 256
// to 4096 bytes then fall in 33 classes, eight to a doubling (256, 288, ...,
// 480, 512, 576, ..., 3840, 4096), and each thread keeps, for each class, a
// list of free blocks of at least the class's capacity that it takes from
// and gives to without the lock: 16 KB' worth a class and at least 8 blocks
// (64 blocks of 256 bytes, 8 of 4096), at most about 0.6 MB a thread. A
// request is rounded up to its class's capacity, so that any block of the
// list serves it (at most an eighth more than the request); an empty list
// takes half its limit from the runs under the lock, a full one gives half
// back. A cached block keeps its header, with the marker 0xB1CAC4ED: it
// counts as allocated in the statistics and dumps, and freeing it again is
// reported as a double free. A dump, FreeAll, GetStatistics, ValidateMemory
// and destruction first give the calling thread's cache back; a dump says
// how many blocks other threads' caches hold; a thread's caches go back when
// it ends. FreeAll must not race with other threads' allocations.
#pragma once

#include <qel/allocator.h>
#include <qel/allocatorstatistics.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/types.h>

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
    // Shrinks in place, giving the tail back to the run (a lone block of a
    // big run moves to a smaller place instead, so that the run's pages go
    // back). Grows in place when the free chunk just behind the block is big
    // enough, or when nothing but free space follows the block in its run
    // and the page manager has free pages right behind the run, which the
    // run then takes; else moves. A size of 0 gives null and keeps the
    // block.
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

    // The chunk a request of `size` bytes takes (it may come back larger);
    // 0 when no run could hold it.
    static u32 NeedFor(unsigned int size)
    {
        const u64 need = u64(size) + BlockHeaderSize;
        if (need <= MinimumChunk)
            return MinimumChunk;
        return need > MaxNeed ? 0 : u32((need + 15) & ~u64(15));
    }
    // The pages of a new run for a chunk of `need` bytes.
    static u32 RunPagesFor(u32 need)
    {
        const u32 pages = need <= PageSize - RunHeaderSize ? 0 : ((need + 127) >> 12) + 1;
        return pages < MinimumRunPages ? u32(MinimumRunPages) : pages;
    }

    AllocatorStatistics GetStatistics() const;
    // Gives every thread a cache of free blocks of 256 to 4096 bytes (see
    // the top of this file). Turn it on before the first allocation.
    void EnableThreadCaches();
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

    enum : u32
    {
        SmallestCached = 256,
        LargestCached = 4096,
        CacheClasses = 33,
        CacheBudget = 16384, // bytes' worth of blocks a class
    };
    // The capacity of cache class `index`, and the classes of a request
    // (rounded up) and of a block's capacity (rounded down).
    static u32 ClassCapacity(u32 index)
    {
        const u32 doubling = index >> 3;
        return (SmallestCached << doubling) + (index & 7) * (32u << doubling);
    }
    static u32 ClassAbove(u32 size);
    static u32 ClassBelow(u32 capacity);
    static u32 CacheLimit(u32 index)
    {
        const u32 limit = CacheBudget / ClassCapacity(index);
        return limit > 8 ? limit : 8;
    }
    void* Refill(ThreadCache& cache, u32 index);
    void* MallocLocked(u32 need);
    void FreeLocked(const void* p);
    void GiveBack(const void* p);

    PackedRun* NewRun(u32 pages);
    // Adds pages behind the run so that the block ending at `end` can grow
    // by `missing` bytes in place; the run is left out of its set.
    bool GrowRun(PackedRun* run, unsigned char* end, u32 missing);
    void ReleaseRun(PackedRun* run);
    // Puts the run into the set and bin its state calls for.
    void Refile(PackedRun* run);
    void Unfile(PackedRun* run);
    // The run holding the live block `p`, null when there is none; RunOf
    // reports it. Lock-free for a live block, whose run cannot change.
    PackedRun* LiveBlockRun(const void* p) const;
    PackedRun* RunOf(const void* p, const char* operation);
    void ReportBadBlock(const char* operation, const void* p);
    void DumpRuns(OutputStream& out, bool blocks);
    bool CheckRun(PackedRun* run, AllocatorStatistics& sums);

    AllocatorStatistics m_Statistics;
    mutable CriticalSection m_Lock;
    // The page manager, which outlives its owners, and this allocator's
    // index in its owner list: the owner byte of every page of our runs.
    PageManager* m_Pages;
    u32 m_OwnerIndex;
    RoomSet m_Room;
    SetAsideSet m_SetAside;
    u32 m_FullThreshold;
    u32 m_ErrorCategory;
    char m_Name[32];
    ThreadCacheHome* m_Caches = nullptr; // null while caches are off
};

} // namespace qel
