#include <qel/poolallocator.h>

#include <qel/errormanager.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>

#include "base/memory/allocatorfactories.h"
#include "base/memory/poolallocatorfast.h"
#include "base/memory/poolallocatorpage.h"
#include "base/memory/threadcache.h"

#include <cstring>
#include <initializer_list>

namespace qel
{

namespace
{

typedef PoolAllocatorPage Page;

void Append(Page*& first, Page*& last, Page* page)
{
    page->previous = last;
    page->next = nullptr;
    (last ? last->next : first) = page;
    last = page;
}

void Unlink(Page*& first, Page*& last, Page* page)
{
    (page->previous ? page->previous->next : first) = page->next;
    (page->next ? page->next->previous : last) = page->previous;
    page->previous = page->next = nullptr;
}

} // namespace

Allocator* memory::NewPoolAllocator()
{
    return new PoolAllocator;
}

PoolAllocator::PoolAllocator() : m_Pools(), m_Totals()
{
    for (u32 i = 0; i < NumberOfClasses; ++i)
        m_Pools[i].blockSize = Granularity * (i + 1);
    PageManager::GetSingletonInstance().AddOwner(this);
    m_ErrorCategory = MEM_InitErrorCategory(Mem::GetErrorCategory(), "PoolAllocator-");
}

PoolAllocator::~PoolAllocator()
{
    // What is still allocated now is a leak: list it. Blocks in other
    // threads' caches go with the pages.
    DumpStatistics(DumpAllocations, nullptr, nullptr, nullptr, nullptr);
    ThreadCacheHome::Destroy(m_Caches);
    m_Caches = nullptr;
    FreeAll();
    PageManager::GetSingletonInstance().RemoveOwner(this);
    ErrorManager::GetSingletonInstance().UnRegisterCategory(m_ErrorCategory);
}

void PoolAllocator::EnableThreadCaches()
{
    if (m_Caches != nullptr)
        return;
    m_Caches = ThreadCacheHome::Make<PoolAllocator, &PoolAllocator::GiveBlocks>(this, m_Lock,
                                                                                m_CacheLookup);
    if (m_Caches != nullptr)
        m_Caches->SetClasses(
            NumberOfClasses, 128 * 1024, [](u32 i) { return Granularity * (i + 1); },
            [](u32 i)
            { return 1024 / (Granularity * (i + 1)) > 4 ? 1024 / (Granularity * (i + 1)) : 4; },
            [](u32 i) {
                return 16384 / (Granularity * (i + 1)) > 32 ? 16384 / (Granularity * (i + 1)) : 32;
            });
}

// ---- allocation -------------------------------------------------------------

bool PoolAllocator::AddPage(Pool& pool)
{
    Page* page = static_cast<Page*>(PageManager::GetSingletonInstance().AllocatePages(this, 1));
    if (page == nullptr)
        return false;
    page->Initialize(pool.blockSize);
    // The class, for the hybrid allocator's releases (FreeFast).
    PageManager::GetSingletonInstance().SetPageTag(page, ClassOf(pool.blockSize) + 1);
    Append(pool.freeFirst, pool.freeLast, page);
    pool.statistics.AddPages(1);
    m_Totals.AddPages(1);
    return true;
}

u32 PoolAllocator::TakeBlocks(Pool& pool, u32 most, void*& first, void*& last)
{
    Page* page = pool.freeFirst;
    const u32 taken = page->TakeChain(most, first, last);
    pool.statistics.AddAllocations(taken, taken * pool.blockSize);
    m_Totals.AddAllocations(taken, taken * pool.blockSize);
    if (page->IsFull())
    {
        Unlink(pool.freeFirst, pool.freeLast, page);
        Append(pool.fullFirst, pool.fullLast, page);
        pool.statistics.AddFullPages(1);
        m_Totals.AddFullPages(1);
    }
    return taken;
}

void* PoolAllocator::MallocLocked(unsigned int size)
{
    if (size == 0 || size > MaxBlockSize)
        return nullptr;
    const u32 index = ClassOf(size);
    Pool* pool = &m_Pools[index];
    if (pool->freeFirst == nullptr && !AddPage(*pool))
    {
        // No page left: the smallest larger class that still has room.
        pool = nullptr;
        for (u32 larger = index + 1; larger < NumberOfClasses && pool == nullptr; ++larger)
            if (m_Pools[larger].freeFirst)
                pool = &m_Pools[larger];
        if (pool == nullptr)
            return nullptr;
    }
    void* block = nullptr;
    void* last = nullptr;
    TakeBlocks(*pool, 1, block, last);
    return block;
}

void* PoolAllocator::MallocNoThrow(unsigned int size)
{
    if (size - 1 >= MaxBlockSize)
        return nullptr;
    return MallocFast(size);
}

void PoolAllocator::ReleasePage(Pool& pool, Page* page)
{
    Unlink(pool.freeFirst, pool.freeLast, page);
    pool.statistics.RemovePages(1);
    m_Totals.RemovePages(1);
    PageManager::GetSingletonInstance().ReleasePages(this, page, 1);
}

void PoolAllocator::Free(const void* p)
{
    if (p != nullptr)
        FreeFast(p, 0);
}

void* PoolAllocator::MallocMiss(unsigned int size)
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

void PoolAllocator::FreeMiss(const void* p, u32 record)
{
    if (m_Caches != nullptr)
        if (ThreadCache* cache = m_Caches->Cache())
            return FreeCached(*cache, p, record);
    ScopedLock<CriticalSection> lock(m_Lock);
    GiveBlock(p);
}

void PoolAllocator::GiveBlocks(void* chain, bool)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    while (chain != nullptr)
    {
        void* block = chain;
        chain = *static_cast<void**>(block);
        GiveBlock(block);
    }
}

void PoolAllocator::GiveBlock(const void* p)
{
    Page* page = Page::Of(p);
    Pool& pool = m_Pools[ClassOf(page->blockSize)];
    pool.statistics.RemoveAllocation(pool.blockSize, pool.blockSize);
    m_Totals.RemoveAllocation(pool.blockSize, pool.blockSize);

    const bool wasFull = page->IsFull();
    page->Give(const_cast<void*>(p));
    if (wasFull)
    {
        Unlink(pool.fullFirst, pool.fullLast, page);
        Append(pool.freeFirst, pool.freeLast, page);
        pool.statistics.RemoveFullPages(1);
        m_Totals.RemoveFullPages(1);
    }
    else if (page->blocksInUse == 0)
    {
        ReleasePage(pool, page);
    }
}

void* PoolAllocator::ReAllocNoThrow(void* p, unsigned int size)
{
    if (p == nullptr)
        return MallocNoThrow(size);
    const u32 blockSize = Page::Of(p)->blockSize;
    const u32 rounded = (size + Granularity - 1) & ~(Granularity - 1);
    if (rounded <= blockSize && (blockSize == Granularity || rounded >= blockSize / 2))
    {
        // The block stays: only the requested size follows the new size. Free
        // takes the whole block size off again, so after a shrink in place
        // the requested size ends below what it was before the block.
        ScopedLock<CriticalSection> lock(m_Lock);
        Pool& pool = m_Pools[ClassOf(blockSize)];
        pool.statistics.ResizeRequested(blockSize, size);
        m_Totals.ResizeRequested(blockSize, size);
        return p;
    }

    void* moved = MallocNoThrow(size);
    if (moved == nullptr)
        return rounded > blockSize ? nullptr : p; // a failed shrink keeps the block
    std::memcpy(moved, p, size < blockSize ? size : blockSize);
    Free(p);
    return moved;
}

void PoolAllocator::FreeAll()
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (m_Caches != nullptr)
        m_Caches->VoidAll();
    PageManager& pages = PageManager::GetSingletonInstance();
    for (Pool& pool : m_Pools)
    {
        pool.statistics.ClearCurrent();
        for (Page** list : {&pool.fullFirst, &pool.freeFirst})
        {
            for (Page* page = *list; page;)
            {
                Page* next = page->next;
                pages.ReleasePages(this, page, 1);
                page = next;
            }
        }
        pool.freeFirst = pool.freeLast = pool.fullFirst = pool.fullLast = nullptr;
    }
    m_Totals.ClearCurrent();
}

// ---- moves and statistics ---------------------------------------------------

void* PoolAllocator::Transfert(Allocator* target, void* p, unsigned int size)
{
    void* moved = target->MallocNoThrow(size);
    if (moved == nullptr)
        return nullptr;
    const u32 blockSize = Page::Of(p)->blockSize;
    std::memcpy(moved, p, size < blockSize ? size : blockSize);
    Free(p);
    return moved;
}

bool PoolAllocator::ValidateMemory()
{
    if (m_Caches != nullptr)
        m_Caches->FlushOwn();
    return true;
}

AllocatorStatistics PoolAllocator::GetStatistics(u32 index) const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (m_Caches != nullptr)
        m_Caches->FlushOwn();
    return m_Pools[index].statistics;
}

AllocatorStatistics PoolAllocator::GetTotals() const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (m_Caches != nullptr)
        m_Caches->FlushOwn();
    return m_Totals;
}

// ---- thread caches ----------------------------------------------------------

void* PoolAllocator::Refill(ThreadCache& cache, u32 index, unsigned int size)
{
    const u32 count = m_Caches->Refilling(cache, index);
    ScopedLock<CriticalSection> lock(m_Lock);
    Pool& pool = m_Pools[index];
    // Whole stretches of free blocks at once, counted once a page.
    void* first = nullptr;
    void* last = nullptr;
    u32 taken = 0;
    while (taken < count && (pool.freeFirst != nullptr || AddPage(pool)))
        taken += TakeBlocks(pool, count - taken, first, last);
    // With no page left, a larger class's block, uncached.
    if (first == nullptr)
        return MallocLocked(size);
    if (taken > 1)
        cache.PushChain(index, *static_cast<void**>(first), last, taken - 1);
    return first;
}

} // namespace qel
