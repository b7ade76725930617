// The tracking allocator: a hybrid over a pool allocator and a packed
// allocator of its own that keeps the history of what it hands out.
//
// Every live block has a record: its address, the size asked for and its
// position, the number of the allocation (or reallocation) that made it.
// FillStatMarker stores the next position in a marker, so that two markers
// bound what was allocated between them; DumpStatistics lists the live
// blocks of that range. A debug allocation also records its tag, file and
// line (the texts are copied once per call site: they may be freed after
// the call).
//
// Blocks are freed through the tracker or through their owner found by
// Allocator::GetOwner (the operator delete of the library's classes): the
// pool and packed allocators under the tracker are its own, and they drop
// a block's record before the block goes. The records live on the Native
// allocator, so tracking changes nothing in the pages and statistics of the
// allocators below; the usage table counts requested sizes as the callers
// gave them.
//
// Statistics dump flags (the pool and packed allocators under the tracker
// are dumped apart, as GetSmallAllocator and GetBigAllocator):
//   1  the usage table, one row "Tracked", then the next position and the
//      two allocators below
//   2  the live blocks whose position lies in [from, to) (all of them
//      without markers), in allocation order: address, size asked for,
//      position, tag, file, line
//   4  the tags of those blocks with their numbers of blocks and bytes,
//      most bytes first
#pragma once

#include <qel/export.h>
#include <qel/hybridallocator.h>
#include <qel/types.h>

namespace qel
{

class AllocationHistory;

class QEL_API TrackingAllocator : public HybridAllocator
{
public:
    enum DumpFlags : u32
    {
        DumpUsage = 1,
        DumpAllocations = 2,
        DumpTags = 4,
    };

    // Made by Mem::CreateTrackingAllocator.
    ~TrackingAllocator() override;

    void* MallocDebugNoThrow(unsigned int size, const char* tag, const char* file,
                             u32 line) override;
    void* ReAllocDebugNoThrow(void* p, unsigned int size, const char* tag, const char* file,
                              u32 line) override;
    void FillStatMarker(AllocatorStatMarker& marker) override;
    void DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                        OutputStream* out, char* title) override;

    // The position the next allocation gets.
    u32 GetPosition() const;
    // Live blocks and the bytes they asked for.
    u32 GetNumberOfAllocations() const;
    u32 GetRequestedSize() const;

private:
    friend class Mem;
    static Allocator* Create();
    TrackingAllocator(Allocator* small, Allocator* big, AllocationHistory* history);

    AllocationHistory* m_History;
};

} // namespace qel
