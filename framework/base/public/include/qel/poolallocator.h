// The pool allocator: requests of up to 256 bytes from sixteen size classes
// of 16, 32, ... 256 bytes.
//
// Each class carves whole 4096-byte pages from the page manager into blocks
// of its size. A page starts with a 32-byte header (guards, list links, the
// head of its free list, block size and counts); its blocks follow back to
// back with no header of their own, so a block's page is found by clearing
// the low 12 bits of its address. Free blocks form a list of runs of
// consecutive blocks: a fresh page is one run and is handed out block by
// block without building a list first. A page that fills up moves to its
// class's list of full pages and back when a block comes back; it returns to
// the page manager the moment its last block does.
//
// When the page manager has no page left, a request is served from the
// smallest larger class that still has a free block.
//
// Statistics dump flags: 1 the usage table, 2 the allocations of every page,
// 4 the tags heading (no tags are kept), 8 the free lists.
//
// Every operation on the pages holds the allocator's own lock.
//
// Thread caches (EnableThreadCaches; Mem turns them on for its shared Small
// allocator, never for the allocators its factories make). Each thread then
// keeps, for each class, a list of free blocks that it takes from and gives
// to without the lock. A list keeps from 1 KB' worth of blocks (4 at least)
// up to 16 KB' worth (32 at least) as the class is used; the growth above
// those floors, over all the lists of a thread, is within 128 KB, so that a
// thread's cache holds at most 144 KB (threadcache.h says how the limits
// adapt): an empty list takes half its limit from the pages under the lock,
// a full one gives half back. (With 64 KB, a thread that churns every class
// at once moved a list to or from the pages every few hundred calls.)
// Blocks in a cache count as allocated in the statistics, so currents and
// peaks include them. A dump, FreeAll, GetStatistics, GetTotals,
// ValidateMemory and destruction first give the calling thread's
// cache back; a dump lists how many blocks other threads' caches hold. A
// thread's caches go back when it ends, whatever started it. A block may be
// freed by any thread: it joins that thread's cache. FreeAll empties the
// other threads' caches too (their blocks go with the pages): it must not
// race with their allocations.
#pragma once

#include <qel/allocator.h>
#include <qel/allocatorstatistics.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/threadcachelookup.h>
#include <qel/types.h>

namespace qel
{

struct PoolAllocatorPage;
class ThreadCacheHome;
struct ThreadCache;

class QEL_API PoolAllocator : public Allocator
{
public:
    enum : u32
    {
        NumberOfClasses = 16,
        Granularity = 16,
        MaxBlockSize = NumberOfClasses * Granularity,
        PageSize = 4096,
        PageHeaderSize = 32,
    };

    enum DumpFlags : u32
    {
        DumpUsage = 1,
        DumpAllocations = 2,
        DumpTags = 4,
        DumpFreeLists = 8,
    };

    PoolAllocator();
    // Lists what is still allocated (leaks) on the debugger stream, then
    // gives every page back.
    ~PoolAllocator() override;

    void* MallocNoThrow(unsigned int size) override;
    void Free(const void* p) override;
    // Gives every page back; the peaks are kept.
    void FreeAll() override;
    // Stays in place when the rounded size fits the block and is at least
    // half of it (or the block is of the smallest class).
    void* ReAllocNoThrow(void* p, unsigned int size) override;
    void DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                        OutputStream* out, char* title) override;
    bool ValidateMemory() override;
    bool IsValidPointer(const void*) override { return true; }
    unsigned int GetMaxSupportedAllocSize() const override { return MaxBlockSize; }
    u32 GetErrorCategory() const override { return m_ErrorCategory; }
    void* Transfert(Allocator* target, void* p, unsigned int size) override;

    // The class serving `size` bytes (1 to 256): the size rounded up to the
    // granularity, less one, over the granularity, with no rounding done.
    static u32 ClassOf(unsigned int size) { return (size - 1) / Granularity; }

    // A copy of the statistics of class `index` (0-15) or of the totals.
    AllocatorStatistics GetStatistics(u32 index) const;
    AllocatorStatistics GetTotals() const;

    // Gives every thread a cache of free blocks in front of the classes (see
    // the top of this file). Turn it on before the first allocation.
    void EnableThreadCaches();

private:
    struct Pool
    {
        AllocatorStatistics statistics;
        PoolAllocatorPage* freeFirst; // pages with free blocks
        PoolAllocatorPage* freeLast;
        PoolAllocatorPage* fullFirst; // full pages
        PoolAllocatorPage* fullLast;
        u32 blockSize;
    };

    // Takes up to `most` blocks from the pool's first page with room,
    // appended to the chain from `first` to `last` (see
    // PoolAllocatorPage::TakeChain); returns how many.
    u32 TakeBlocks(Pool& pool, u32 most, void*& first, void*& last);
    void* MallocLocked(unsigned int size);
    void GiveBlock(const void* p);
    // Gives back a chain of cached blocks (linked through their first word).
    void GiveBlocks(void* chain, bool sorted);
    void* Refill(ThreadCache& cache, u32 index, unsigned int size);
    // MallocNoThrow for 1 to 256 bytes and Free, inline for the hybrid
    // allocator's paths (poolallocatorfast.h): what the calling thread's
    // cache holds is taken and given inline; anything else (the first look
    // at a cache, a refill, the locked paths) is out of line, so that the
    // inline paths save no registers.
    friend class HybridAllocator;
    inline void* MallocFast(unsigned int size);
    // A block from the thread's cache, or null.
    inline void* MallocCached(unsigned int size);
    void* MallocMiss(unsigned int size);
    // `record`: the page record of `p` when the caller read it, else 0.
    inline void FreeFast(const void* p, u32 record);
    void FreeMiss(const void* p, u32 record);
    inline void FreeCached(ThreadCache& cache, const void* p, u32 record);
    bool AddPage(Pool& pool);
    void ReleasePage(Pool& pool, PoolAllocatorPage* page);
    void DumpPages(OutputStream& out, bool allocations);

    Pool m_Pools[NumberOfClasses];
    AllocatorStatistics m_Totals;
    u32 m_ErrorCategory;
    mutable CriticalSection m_Lock;
    ThreadCacheHome* m_Caches = nullptr; // null while caches are off
    ThreadCacheLookup m_CacheLookup;     // kept by m_Caches
};

} // namespace qel
