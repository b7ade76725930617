// Threads' caches: made on a thread's first cached allocation, given back
// when the thread ends.
#include "base/memory/threadcache.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <thread>

namespace qel
{

ThreadCache ThreadCache::Vacant;

namespace
{

// Set before any code runs: a thread may allocate before static
// constructors are done.
static_assert(ThreadCaches::MaxCaches == 4, "kNone lists every place");
constexpr ThreadCaches kNone = {
    {&ThreadCache::Vacant, &ThreadCache::Vacant, &ThreadCache::Vacant, &ThreadCache::Vacant}};

} // namespace

ThreadCaches ThreadCaches::Ended = kNone;

// What the thread slot holds before a thread's first cache is made.
struct native::ThreadSlotStart
{
    ThreadCaches none;
};
native::ThreadSlotStart native::g_ThreadSlotStart = {kNone};

namespace
{

// Guards the links between caches, their threads and their homes. It is
// taken only when a cache is made, when a thread ends and when a home goes,
// and is always taken before an allocator's lock.
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

} // namespace

// Every thread's caches, and each home, on cache lines of their own: a
// thread writes its lists on every operation, and must not slow another
// down through a line they share. The block's own address is kept in the
// word before it.
void* threadcache::AllocateLines(std::size_t size)
{
    const std::size_t kLine = 64;
    void* raw = std::calloc(1, size + kLine + sizeof(void*));
    if (raw == nullptr)
        return nullptr;
    const std::uintptr_t start =
        (reinterpret_cast<std::uintptr_t>(raw) + sizeof(void*) + kLine - 1) & ~(kLine - 1);
    reinterpret_cast<void**>(start)[-1] = raw;
    return reinterpret_cast<void*>(start);
}

void threadcache::FreeLines(void* p)
{
    if (p != nullptr)
        std::free(static_cast<void**>(p)[-1]);
}

namespace
{

using threadcache::AllocateLines;
using threadcache::FreeLines;

void Release(ThreadCache*& cache)
{
    cache->~ThreadCache();
    FreeLines(cache);
    cache = &ThreadCache::Vacant;
}

} // namespace

// Friend of the home: unlinks caches from it.
class ThreadCacheRegistry
{
public:
    // A cache goes: its blocks back to its home, if the home is still there.
    static void Retire(ThreadCache*& cache)
    {
        if (ThreadCacheHome* home = cache->home.load(std::memory_order_relaxed))
        {
            ScopedLock<CriticalSection> lock(home->m_Lock);
            cache->GiveAllBack();
            (cache->previous ? cache->previous->next : home->m_Caches) = cache->next;
            if (cache->next != nullptr)
                cache->next->previous = cache->previous;
        }
        Release(cache);
    }

    // A thread ends: its caches go back to their homes.
    static void ThreadEnds(void* value)
    {
        auto* mine = static_cast<ThreadCaches*>(value);
        if (mine == &ThreadCaches::Ended)
            return;
        native::ThreadSlotSetFinal(&ThreadCaches::Ended);
        {
            RegistryLock registry;
            for (ThreadCache*& cache : mine->caches)
                if (cache != &ThreadCache::Vacant)
                    Retire(cache);
        }
        FreeLines(mine);
    }

    static ThreadCache* Create(ThreadCacheHome* home)
    {
        ThreadCaches* mine = ThreadCaches::Mine();
        if (mine == &ThreadCaches::Ended)
            return nullptr;
        RegistryLock registry;
        if (mine == &native::g_ThreadSlotStart.none)
        {
            if (!g_SlotMade && !native::ThreadSlotCreate(&ThreadEnds))
                return nullptr;
            g_SlotMade = true;
            void* lines = AllocateLines(sizeof(ThreadCaches));
            if (lines == nullptr)
                return nullptr;
            mine = new (lines) ThreadCaches(kNone);
            native::ThreadSlotSet(mine);
        }
        ThreadCache** slot = nullptr;
        for (ThreadCache*& cache : mine->caches)
        {
            if (cache != &ThreadCache::Vacant &&
                cache->home.load(std::memory_order_relaxed) == nullptr)
            {
                // Its home is gone: the slot is free again.
                Release(cache);
            }
            if (cache == &ThreadCache::Vacant &&
                (slot == nullptr || &cache == &mine->caches[home->m_Lookup.slot]))
                slot = &cache;
        }
        if (slot == nullptr)
            return nullptr;
        void* storage = AllocateLines(sizeof(ThreadCache));
        if (storage == nullptr)
            return nullptr;
        ThreadCache* cache = new (storage) ThreadCache();
        home->StartLimits(*cache);
        cache->home.store(home, std::memory_order_relaxed);
        cache->key.store(home->m_Lookup.key.load(std::memory_order_acquire),
                         std::memory_order_relaxed);
        {
            ScopedLock<CriticalSection> lock(home->m_Lock);
            cache->next = home->m_Caches;
            if (home->m_Caches != nullptr)
                home->m_Caches->previous = cache;
            home->m_Caches = cache;
        }
        *slot = cache;
        return cache;
    }

    static void Detach(ThreadCacheHome* home)
    {
        RegistryLock registry;
        for (ThreadCache* cache = home->m_Caches; cache != nullptr;)
        {
            ThreadCache* next = cache->next;
            cache->previous = cache->next = nullptr;
            cache->home.store(nullptr, std::memory_order_relaxed);
            cache = next;
        }
        home->m_Caches = nullptr;
    }
};

namespace
{

std::atomic<u32> g_NextSlot{0};
std::atomic<std::uintptr_t> g_NextKey{1}; // 0 is ThreadCache::Vacant's

} // namespace

ThreadCacheHome::ThreadCacheHome(CriticalSection& lock, ThreadCacheLookup& lookup)
    : m_Lock(lock), m_Lookup(lookup)
{
    lookup.slot = g_NextSlot.fetch_add(1, std::memory_order_relaxed) % ThreadCaches::MaxCaches;
    lookup.key.store(NewKey(), std::memory_order_release);
}

std::uintptr_t ThreadCacheHome::NewKey()
{
    return g_NextKey.fetch_add(1, std::memory_order_relaxed);
}

void ThreadCache::GiveAllBack()
{
    ThreadCacheHome* owner = home.load(std::memory_order_relaxed);
    if (key.load(std::memory_order_relaxed) == owner->m_Lookup.key.load(std::memory_order_relaxed))
    {
        if (void* chain = TakePending())
            owner->GiveBack(chain, false);
        for (u32 index = 0; index < MaxClasses; ++index)
            if (Count(index) != 0)
                owner->GiveBack(Cut(index, 0), true);
    }
    Clear();
}

void ThreadCacheHome::Destroy(ThreadCacheHome* home)
{
    if (home == nullptr)
        return;
    ThreadCacheRegistry::Detach(home);
    home->m_Lookup.key.store(ThreadCacheLookup::NoKey, std::memory_order_release);
    home->~ThreadCacheHome();
    FreeLines(home);
}

ThreadCache* ThreadCacheHome::FindOwn() const
{
    for (ThreadCache* cache : ThreadCaches::Mine()->caches)
        if (cache->home.load(std::memory_order_relaxed) == this)
            return cache;
    return nullptr;
}

ThreadCache* ThreadCacheHome::FindCache()
{
    ThreadCache* cache = FindOwn();
    if (cache == nullptr)
        cache = ThreadCacheRegistry::Create(this);
    if (cache == nullptr)
        return nullptr;
    const std::uintptr_t key = m_Lookup.key.load(std::memory_order_acquire);
    if (cache->key.load(std::memory_order_relaxed) != key)
    {
        cache->Clear(); // its blocks went with the pages at FreeAll
        cache->key.store(key, std::memory_order_relaxed);
    }
    return cache;
}

void ThreadCacheHome::FlushOwn()
{
    if (ThreadCache* cache = FindOwn())
        cache->GiveAllBack();
}

u32 ThreadCacheHome::HeldByOtherThreads() const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const ThreadCache* own = FindOwn();
    const std::uintptr_t key = m_Lookup.key.load(std::memory_order_relaxed);
    u32 held = 0;
    for (const ThreadCache* cache = m_Caches; cache != nullptr; cache = cache->next)
        if (cache != own && cache->key.load(std::memory_order_relaxed) == key)
        {
            held += cache->pendingCount.load(std::memory_order_relaxed);
            for (u32 index = 0; index < m_Classes; ++index)
                held += cache->Count(index);
        }
    return held;
}

void ThreadCacheHome::StartLimits(ThreadCache& cache) const
{
    cache.budgetUsed = 0;
    cache.refills = 0;
    for (u32 index = 0; index < m_Classes; ++index)
    {
        cache.lists[index].limit = m_Policy[index].floor;
        cache.refilled[index] = false;
    }
}

void ThreadCacheHome::HalveIdleLimits(ThreadCache& cache)
{
    for (u32 index = 0; index < m_Classes; ++index)
    {
        ThreadCache::List& list = cache.lists[index];
        const Policy& policy = m_Policy[index];
        const bool idle = !cache.refilled[index];
        cache.refilled[index] = false;
        if (!idle || list.limit <= policy.floor)
            continue;
        const u32 limit = list.limit / 2 > policy.floor ? list.limit / 2 : policy.floor;
        cache.budgetUsed -= (list.limit - limit) * policy.capacity;
        list.limit = limit;
        if (cache.Count(index) > limit)
            Drain(cache, index, limit);
    }
}

void ThreadCacheHome::Overflow(ThreadCache& cache, u32 index)
{
    Drain(cache, index, cache.lists[index].limit / 2);
}

u32 ThreadCacheHome::Refilling(ThreadCache& cache, u32 index)
{
    ++cache.refills;
    ThreadCache::List& list = cache.lists[index];
    cache.refilled[index] = true;
    const Policy& policy = m_Policy[index];
    if (list.limit < policy.ceiling)
    {
        const u32 doubled = list.limit != 0 ? list.limit * 2 : 1;
        const u32 limit = doubled < policy.ceiling ? doubled : policy.ceiling;
        const u32 more = (limit - list.limit) * policy.capacity;
        if (cache.budgetUsed + more > m_Budget && cache.refills >= 256)
        {
            // The budget is spent: the lists in use take it back from the
            // others over the next refills.
            cache.refills = 0;
            HalveIdleLimits(cache);
        }
        if (cache.budgetUsed + more <= m_Budget)
        {
            cache.budgetUsed += more;
            list.limit = limit;
        }
    }
    return list.limit / 2 > 1 ? list.limit / 2 : 1;
}

} // namespace qel
