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
// Every operation holds the allocator's own lock.
#pragma once

#include <qel/allocator.h>
#include <qel/allocatorstatistics.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

struct PoolAllocatorPage;

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
    bool ValidateMemory() override { return true; }
    bool IsValidPointer(const void*) override { return true; }
    unsigned int GetMaxSupportedAllocSize() const override { return MaxBlockSize; }
    u32 GetErrorCategory() const override { return m_ErrorCategory; }
    void* Transfert(Allocator* target, void* p, unsigned int size) override;

    // The class serving `size` bytes (1 to 256).
    static u32 ClassOf(unsigned int size) { return (size + Granularity - 1) / Granularity - 1; }

    // A copy of the statistics of class `index` (0-15) or of the totals.
    AllocatorStatistics GetStatistics(u32 index) const;
    AllocatorStatistics GetTotals() const;

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

    void* TakeBlock(Pool& pool);
    bool AddPage(Pool& pool);
    void ReleasePage(Pool& pool, PoolAllocatorPage* page);
    void DumpPages(OutputStream& out, bool allocations);

    Pool m_Pools[NumberOfClasses];
    AllocatorStatistics m_Totals;
    u32 m_ErrorCategory;
    mutable CriticalSection m_Lock;
};

} // namespace qel
