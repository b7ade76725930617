// The packed allocator's cached allocation and release paths, inline: the
// packed allocator's own entry points and the hybrid allocator's both use
// them.
#pragma once

#include <qel/packedallocator.h>
#include <qel/pagemanager.h>

#include "base/memory/packedrun.h"
#include "base/memory/threadcache.h"

namespace qel
{

// Between 2^b and 2^(b+1) the classes go up in eighths of 2^b, and class
// 8(b - 8) holds 2^b bytes: the top four bits of a size, its highest bit
// `b` included, count the eighths.
inline u32 PackedAllocator::ClassAbove(u32 size)
{
    static_assert(SmallestCached == 1u << 8, "class 0 holds 2^8 bytes");
    // Rounded up: the eighths of size - 1, and one more (256 gives 0).
    const u32 below = size - 1;
    const u32 b = u32(31 - __builtin_clz(below));
    return 8 * b + (below >> (b - 3)) - 71;
}

inline u32 PackedAllocator::ClassBelow(u32 capacity)
{
    if (capacity < SmallestCached)
        return CacheClasses;
    const u32 b = u32(31 - __builtin_clz(capacity));
    const u32 index = 8 * b + (capacity >> (b - 3)) - 72;
    return index < CacheClasses ? index : u32(CacheClasses);
}

inline bool PackedAllocator::HeaderOnPage(const void* p, u32 record)
{
    // The cached path's check is lighter than the run's: the page of `p`
    // holds the whole header, which is not in a run header. Blocks whose
    // header starts on the page before take the checked path.
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(p);
    const std::uintptr_t offset = address & (PageSize - 1);
    return (address & 7) == 0 && offset >= BlockHeaderSize &&
           (offset >= RunHeaderSize + BlockHeaderSize || (record & PageRecordTable::RunStart) == 0);
}

inline bool PackedAllocator::StaysInPlace(const void* p, unsigned int size, u32 record)
{
    // The caller's block: its header changes only through the caller, so
    // that a block that stays is seen without the lock.
    const PackedBlock* block = PackedBlock::Of(p);
    return HeaderOnPage(p, record) && block->marker == BlockMarker && size - 1 < block->capacity &&
           Stays(NeedWithin(size), block->Chunk());
}

inline void* PackedAllocator::MallocCached(unsigned int size)
{
    if (ThreadCache* cache = ThreadCacheHome::Found(m_CacheLookup))
        if (void* p = cache->Pop(ClassAbove(size)))
        {
            // Atomic: a dump may read the marker meanwhile, under the lock.
            __atomic_store_n(&PackedBlock::Of(p)->marker, BlockMarker, __ATOMIC_RELAXED);
            return p;
        }
    return nullptr;
}

inline void* PackedAllocator::MallocFast(unsigned int size)
{
    if (void* p = MallocCached(size))
        return p;
    return MallocMiss(size);
}

inline void PackedAllocator::Sort(ThreadCache& cache, void* p)
{
    PackedBlock* block = PackedBlock::Of(p);
    const u32 index = ClassBelow(block->capacity);
    if (block->marker == BlockMarker && index < CacheClasses)
    {
        __atomic_store_n(&block->marker, CachedMarker, __ATOMIC_RELAXED);
        if (cache.Push(index, p))
            m_Caches->Overflow(cache, index);
        return;
    }
    FreeSlow(p);
}

inline void PackedAllocator::FreeCached(ThreadCache& cache, const void* p, u32 record)
{
    // The block waits among the pending ones while its header is fetched,
    // and the oldest of them is sorted instead; the first block of a run,
    // which may be a big one alone in its run, is sorted at once, so that a
    // big block is never held back.
    void* block = const_cast<void*>(p);
    const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(p) & (PageSize - 1);
    if (offset != RunHeaderSize + BlockHeaderSize || (record & PageRecordTable::RunStart) == 0)
    {
        __builtin_prefetch(PackedBlock::Of(p), 1);
        block = cache.Defer(block);
        if (block == nullptr)
            return;
    }
    Sort(cache, block);
}

inline void PackedAllocator::FreeFast(const void* p, u32 record)
{
    if (HeaderOnPage(p, record))
        if (ThreadCache* cache = ThreadCacheHome::Found(m_CacheLookup))
            return FreeCached(*cache, p, record);
    FreeMiss(p, record);
}

} // namespace qel
