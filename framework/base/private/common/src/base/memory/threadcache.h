// Threads' caches of free blocks in front of an allocator's size classes.
//
// An allocator that turns caches on keeps a ThreadCacheHome: its lock, the
// list of every thread's cache for it, and a count of its FreeAll calls
// (the epoch) that voids older caches. Each thread that allocates from it
// gets a ThreadCache: for each class, a list of free blocks linked through
// their first word, that only this thread touches, so taking and giving a
// block needs no lock. The allocator decides what a class is, how many
// blocks a list keeps and how blocks go back: GiveBack hands it a chain of
// blocks, linked like the lists, and it takes whatever locks it needs. The
// home's lock guards its list of caches only; it is taken before any lock
// of the allocator's, never after one.
//
// A thread's caches go back to their homes when the thread ends, through
// the library's thread slot (whatever started the thread), or are dropped
// when their home went first. `held` counts a cache's blocks for other
// threads' dumps.
#pragma once

#include <qel/criticalsection.h>
#include <qel/types.h>

#include "base/thread/threadslot_native.h"

#include <atomic>
#include <cstddef>
#include <new>

namespace qel
{

class ThreadCacheHome;

struct ThreadCache
{
    enum : u32
    {
        MaxClasses = 40
    };

    struct List
    {
        void* head; // each free block's first word links the next one
        u32 count;
    };

    std::atomic<ThreadCacheHome*> home; // null once the allocator is gone
    ThreadCache* previous;              // neighbours in the home's list
    ThreadCache* next;
    std::atomic<u32> epoch; // the home's FreeAll count when the lists were filled
    std::atomic<u32> held;
    u32 owner; // the allocator's own word about this thread, 0 at first
    List lists[MaxClasses];

    void* Pop(u32 index)
    {
        List& list = lists[index];
        void* block = list.head;
        if (block != nullptr)
        {
            list.head = *static_cast<void**>(block);
            --list.count;
            Count(-1);
        }
        return block;
    }
    // The list's new count.
    u32 Push(u32 index, void* block)
    {
        List& list = lists[index];
        *static_cast<void**>(block) = list.head;
        list.head = block;
        Count(1);
        return ++list.count;
    }
    // Only this thread writes `held`: a plain load and store are enough.
    void Count(int delta)
    {
        held.store(held.load(std::memory_order_relaxed) + u32(delta), std::memory_order_relaxed);
    }
    void Clear()
    {
        for (List& list : lists)
            list = List{nullptr, 0};
        held.store(0, std::memory_order_relaxed);
    }
    // Unlinks the list's blocks after its first `keep` into a chain.
    void* Cut(u32 index, u32 keep)
    {
        List& list = lists[index];
        void* chain = nullptr;
        while (list.count > keep)
        {
            void* block = Pop(index);
            *static_cast<void**>(block) = chain;
            chain = block;
        }
        return chain;
    }
    // Gives every list back to the home and empties them; blocks of a
    // voided epoch are dropped (they went with FreeAll).
    void GiveAllBack();
};

// A thread's caches, one for each allocator it used (up to four at once):
// what the library's thread slot holds. After the thread's caches went back
// the slot holds `Ended`, which has none, so that late allocations take the
// locked paths.
struct ThreadCaches
{
    enum
    {
        MaxCaches = 4
    };
    ThreadCache* caches[MaxCaches];

    static ThreadCaches Ended;

    // The calling thread's; null when it has none yet.
    static ThreadCaches* Mine() { return static_cast<ThreadCaches*>(native::ThreadSlotGet()); }
};

class ThreadCacheHome
{
public:
    explicit ThreadCacheHome(CriticalSection& lock);
    ThreadCacheHome(const ThreadCacheHome&) = delete;
    ThreadCacheHome& operator=(const ThreadCacheHome&) = delete;

    // Makes a home whose list of caches `lock` guards, with `giveBack`
    // returning a chain of cached blocks to the allocator; null when out of
    // memory. Homes live outside the allocators' heaps.
    template <class Allocator, void (Allocator::*giveBack)(void*)>
    static ThreadCacheHome* Make(Allocator* allocator, CriticalSection& lock);
    // Every thread's cache is cut loose, then the home goes.
    static void Destroy(ThreadCacheHome* home);

    // The calling thread's cache, made on first use; null when none can be
    // made (the thread ended, or uses too many cached allocators).
    ThreadCache* Cache()
    {
        ThreadCaches* mine = ThreadCaches::Mine();
        ThreadCache* cache = mine != nullptr ? mine->caches[m_Slot] : nullptr;
        if (cache != nullptr && cache->home.load(std::memory_order_relaxed) == this &&
            cache->epoch.load(std::memory_order_relaxed) == m_Epoch.load(std::memory_order_relaxed))
            return cache;
        return FindCache();
    }

    // Gives the calling thread's cache back.
    void FlushOwn();
    // The blocks in other threads' caches.
    u32 HeldByOtherThreads() const;
    // At FreeAll, with the allocator's locks held: every cache's blocks went
    // with the pages, the caches see the new epoch and start empty.
    void VoidAll() { m_Epoch.fetch_add(1, std::memory_order_acq_rel); }
    // Gives blocks of the list back until `keep` are left.
    void Drain(ThreadCache& cache, u32 index, u32 keep) { GiveBack(cache.Cut(index, keep)); }

    virtual void GiveBack(void* chain) = 0;

protected:
    virtual ~ThreadCacheHome() = default;

private:
    friend struct ThreadCache;
    friend class ThreadCacheRegistry;

    ThreadCache* FindCache();
    ThreadCache* FindOwn() const;

    CriticalSection& m_Lock;
    // Where a thread's cache for this home goes when that place is free:
    // homes take the places in turn, so that the few alive at once (the
    // shared Small and Big allocators') each find theirs at the first look.
    const u32 m_Slot;
    std::atomic<u32> m_Epoch{0};
    ThreadCache* m_Caches = nullptr; // every thread's, under the lock
};

namespace threadcache
{

// Zeroed memory on cache lines of its own, outside the allocators' heaps
// (homes, caches, arenas); null when there is none.
void* AllocateLines(std::size_t size);
void FreeLines(void* p);

template <class Allocator, void (Allocator::*giveBack)(void*)>
class HomeOf final : public ThreadCacheHome
{
public:
    HomeOf(Allocator* allocator, CriticalSection& lock)
        : ThreadCacheHome(lock), m_Allocator(allocator)
    {
    }
    void GiveBack(void* chain) override { (m_Allocator->*giveBack)(chain); }

private:
    Allocator* m_Allocator;
};

} // namespace threadcache

template <class Allocator, void (Allocator::*giveBack)(void*)>
ThreadCacheHome* ThreadCacheHome::Make(Allocator* allocator, CriticalSection& lock)
{
    typedef threadcache::HomeOf<Allocator, giveBack> Home;
    void* storage = threadcache::AllocateLines(sizeof(Home));
    return storage != nullptr ? new (storage) Home(allocator, lock) : nullptr;
}

} // namespace qel
