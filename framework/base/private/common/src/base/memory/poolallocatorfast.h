// The pool allocator's allocation and release paths, inline: the pool's own
// entry points and the hybrid allocator's both use them.
#pragma once

#include <qel/pagerecordtable.h>
#include <qel/poolallocator.h>

#include "base/memory/poolallocatorpage.h"
#include "base/memory/threadcache.h"

namespace qel
{

inline void* PoolAllocator::MallocCached(unsigned int size)
{
    if (ThreadCache* cache = ThreadCacheHome::Found(m_CacheLookup))
        return cache->Pop(ClassOf(size));
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
    // The class is in the page's record when the caller read it, else in
    // the page's header.
    const u32 tag = record & PageRecordTable::TagMask;
    const u32 index = tag != 0 ? tag - 1 : ClassOf(PoolAllocatorPage::Of(p)->blockSize);
    if (cache.Push(index, const_cast<void*>(p)))
        m_Caches->Overflow(cache, index);
}

inline void PoolAllocator::FreeFast(const void* p, u32 record)
{
    if (ThreadCache* cache = ThreadCacheHome::Found(m_CacheLookup))
        return FreeCached(*cache, p, record);
    FreeMiss(p, record);
}

} // namespace qel
