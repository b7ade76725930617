// The pool allocator's allocation and release paths, inline: the pool's own
// entry points and the hybrid allocator's both use them.
#pragma once

#include <qel/pagerecordtable.h>
#include <qel/poolallocator.h>

#include "base/memory/poolallocatorpage.h"
#include "base/memory/threadcache.h"

#include <cstddef>

namespace qel
{

namespace poolcache
{

// The list of the class whose blocks are `blockSize` bytes. A class's list
// is as many bytes into the lists as its block size less the first class's
// (one granule of lists a class), which spares the division on the paths
// that wait for the size.
inline ThreadCache::List& ListOf(ThreadCache& cache, std::size_t blockSize)
{
    static_assert(sizeof(ThreadCache::List) == PoolAllocator::Granularity,
                  "one granule of lists a class");
    return *reinterpret_cast<ThreadCache::List*>(reinterpret_cast<char*>(cache.lists) +
                                                 (blockSize - PoolAllocator::Granularity));
}

} // namespace poolcache

inline void* PoolAllocator::MallocCached(unsigned int size)
{
    if (ThreadCache* cache = ThreadCacheHome::Found(m_CacheLookup))
        return ThreadCache::Pop(poolcache::ListOf(
            *cache, (std::size_t(size - 1) & ~std::size_t(Granularity - 1)) + Granularity));
    return nullptr;
}

inline void* PoolAllocator::MallocFast(unsigned int size)
{
    if (void* block = MallocCached(size))
        return block;
    return MallocMiss(size);
}

inline void PoolAllocator::FreeCached(ThreadCache& cache, const void* p, u32 record)
{
    // The class is in the page's record when the caller read it, else its
    // block size is in the page's header.
    const std::size_t tag = record & PageRecordTable::TagMask;
    ThreadCache::List& list = poolcache::ListOf(
        cache, tag != 0 ? tag * Granularity : PoolAllocatorPage::Of(p)->blockSize);
    if (ThreadCache::Push(list, const_cast<void*>(p)))
        m_Caches->Overflow(cache, u32(&list - cache.lists));
}

inline void PoolAllocator::FreeFast(const void* p, u32 record)
{
    if (ThreadCache* cache = ThreadCacheHome::Found(m_CacheLookup))
        return FreeCached(*cache, p, record);
    FreeMiss(p, record);
}

} // namespace qel
