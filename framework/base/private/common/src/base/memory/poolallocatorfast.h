// The pool allocator's allocation and release paths, inline: the pool's own
// entry points and the hybrid allocator's both use them.
#pragma once

#include <qel/pagerecordtable.h>
#include <qel/poolallocator.h>

#include "base/memory/poolallocatorpage.h"
#include "base/memory/threadcache.h"

namespace qel
{

inline void* PoolAllocator::MallocFast(unsigned int size)
{
    if (m_Caches != nullptr)
        if (ThreadCache* cache = m_Caches->Cache())
        {
            const u32 index = ClassOf(size);
            if (void* block = cache->Pop(index))
                return block;
            return Refill(*cache, index, size);
        }
    ScopedLock<CriticalSection> lock(m_Lock);
    return MallocLocked(size);
}

inline void PoolAllocator::FreeFast(const void* p, u32 record)
{
    if (m_Caches != nullptr)
        if (ThreadCache* cache = m_Caches->Cache())
        {
            // The class is in the page's record when the caller read it, else
            // in the page's header.
            const u32 tag = record & PageRecordTable::TagMask;
            const u32 index = tag != 0 ? tag - 1 : ClassOf(PoolAllocatorPage::Of(p)->blockSize);
            if (cache->Push(index, const_cast<void*>(p)))
                m_Caches->Overflow(*cache, index);
            return;
        }
    ScopedLock<CriticalSection> lock(m_Lock);
    GiveBlock(p);
}

} // namespace qel
