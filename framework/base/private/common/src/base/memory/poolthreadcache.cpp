// The threads' pool caches: made on a thread's first cached allocation,
// given back when the thread ends.
#include "base/memory/poolthreadcache.h"

#include <cstdlib>
#include <new>
#include <thread>

namespace qel
{

PoolThreadCaches PoolThreadCaches::Ended = {};

namespace
{

// Guards the links between caches, their threads and their owners. It is
// taken only when a cache is made, when a thread ends and when an owner
// goes, and is always taken before an owner's lock.
std::atomic<bool> g_Registry{false};

struct RegistryLock
{
    RegistryLock()
    {
        while (g_Registry.exchange(true, std::memory_order_acquire))
            std::this_thread::yield();
    }
    ~RegistryLock() { g_Registry.store(false, std::memory_order_release); }
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;
};

bool g_SlotMade = false; // under the registry

void Release(PoolThreadCache*& cache)
{
    cache->~PoolThreadCache();
    std::free(cache);
    cache = nullptr;
}

// A thread ends: its caches go back to their owners.
void ThreadEnds(void* value)
{
    auto* mine = static_cast<PoolThreadCaches*>(value);
    if (mine == &PoolThreadCaches::Ended)
        return;
    native::ThreadSlotSetFinal(&PoolThreadCaches::Ended);
    {
        RegistryLock registry;
        for (PoolThreadCache*& cache : mine->caches)
            if (cache != nullptr)
            {
                cache->Retire();
                Release(cache);
            }
    }
    std::free(mine);
}

} // namespace

PoolThreadCache* PoolThreadCache::Find(const PoolAllocator* owner)
{
    PoolThreadCaches* mine = PoolThreadCaches::Mine();
    if (mine == nullptr)
        return nullptr;
    for (PoolThreadCache* cache : mine->caches)
        if (cache != nullptr && cache->owner.load(std::memory_order_relaxed) == owner)
            return cache;
    return nullptr;
}

PoolThreadCache* PoolThreadCache::Create(PoolAllocator* owner)
{
    PoolThreadCaches* mine = PoolThreadCaches::Mine();
    if (mine == &PoolThreadCaches::Ended)
        return nullptr;
    RegistryLock registry;
    if (mine == nullptr)
    {
        if (!g_SlotMade && !native::ThreadSlotCreate(&ThreadEnds))
            return nullptr;
        g_SlotMade = true;
        mine = static_cast<PoolThreadCaches*>(std::calloc(1, sizeof(PoolThreadCaches)));
        if (mine == nullptr)
            return nullptr;
        native::ThreadSlotSet(mine);
    }
    PoolThreadCache** slot = nullptr;
    for (PoolThreadCache*& cache : mine->caches)
    {
        if (cache != nullptr && cache->owner.load(std::memory_order_relaxed) == nullptr)
        {
            // Its owner is gone: the slot is free again.
            if (mine->last == cache)
                mine->last = nullptr;
            Release(cache);
        }
        if (cache == nullptr && slot == nullptr)
            slot = &cache;
    }
    if (slot == nullptr)
        return nullptr;
    void* storage = std::calloc(1, sizeof(PoolThreadCache));
    if (storage == nullptr)
        return nullptr;
    PoolThreadCache* cache = new (storage) PoolThreadCache();
    cache->owner.store(owner, std::memory_order_relaxed);
    cache->epoch.store(owner->m_Epoch.load(std::memory_order_acquire), std::memory_order_relaxed);
    {
        ScopedLock<CriticalSection> lock(owner->m_Lock);
        cache->next = owner->m_Caches;
        if (owner->m_Caches != nullptr)
            owner->m_Caches->previous = cache;
        owner->m_Caches = cache;
    }
    *slot = cache;
    return cache;
}

void PoolThreadCache::Retire()
{
    PoolAllocator* allocator = owner.load(std::memory_order_relaxed);
    if (allocator == nullptr)
        return;
    ScopedLock<CriticalSection> lock(allocator->m_Lock);
    if (epoch.load(std::memory_order_relaxed) == allocator->m_Epoch.load(std::memory_order_relaxed))
        for (u32 index = 0; index < PoolAllocator::NumberOfClasses; ++index)
            while (void* block = Pop(index))
                allocator->GiveBlock(block);
    Clear();
    (previous ? previous->next : allocator->m_Caches) = next;
    if (next != nullptr)
        next->previous = previous;
    previous = next = nullptr;
    owner.store(nullptr, std::memory_order_relaxed);
}

void PoolThreadCache::Detach(PoolThreadCache*& caches)
{
    RegistryLock registry;
    for (PoolThreadCache* cache = caches; cache != nullptr;)
    {
        PoolThreadCache* next = cache->next;
        cache->previous = cache->next = nullptr;
        cache->owner.store(nullptr, std::memory_order_relaxed);
        cache = next;
    }
    caches = nullptr;
}

} // namespace qel
