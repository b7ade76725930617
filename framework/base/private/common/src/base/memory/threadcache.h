// Threads' caches of free blocks in front of an allocator's size classes.
//
// An allocator that turns caches on keeps a ThreadCacheHome: its lock, the
// list of every thread's cache for it and its classes' limits; the home's
// key and place, which the hot paths read, sit in the allocator's own
// object (ThreadCacheLookup).
// Each thread that allocates from it gets a ThreadCache: for each class, a
// list of free blocks linked through their first word, that only this
// thread changes, so taking and giving a block needs no lock. A cache
// carries the key its home had when the cache was filled. No key is given
// twice in the process and a home takes a new one at each FreeAll, so a
// cache whose key is the home's is that home's and not voided: the one test
// of the hot paths. The allocator decides what a class is and how blocks go
// back: GiveBack hands it a chain of blocks, linked like the lists, and it
// takes whatever locks it needs. The home's lock guards its list of caches
// only; it is taken before any lock of the allocator's, never after one.
//
// How much a list keeps adapts to use, within one budget for the thread's
// cache. Each class has a floor and a ceiling (blocks) and a capacity
// (bytes); a list starts with the floor as its limit. A list that runs
// empty is refilled with half its limit (at least one block), after its
// limit doubles (from 0 to 1; up to the ceiling) if the budget allows: the
// limits' growth above the floors, times the classes' capacities, stays
// within the budget. When a list cannot grow for want of budget, and 256
// refills have passed since it last happened, the limits of the lists that
// were not refilled meanwhile are halved (down to their floors), each list
// giving back what its new limit no longer holds, so that the budget moves
// to the classes in use. A list that passes its limit gives half of it
// back. A thread's cache for one home thus holds at most the floors' worth
// plus the budget, and the classes it uses most hold the most.
//
// A home may also let a freed block wait among a few pending ones before it
// is sorted into its class (Defer), so that what sorting it reads from the
// block's memory has been fetched meanwhile. A list that runs empty takes
// a waiting block of its class before it is refilled (TakePendingFor).
//
// A thread's caches go back to their homes when the thread ends, through
// the library's thread slot (whatever started the thread), or are dropped
// when their home went first. Other threads read a list's count for their
// dumps.
#pragma once

#include <qel/criticalsection.h>
#include <qel/threadcachelookup.h>
#include <qel/types.h>

#include "base/thread/threadslot_native.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

namespace qel
{

class ThreadCacheHome;

struct ThreadCache
{
    enum : u32
    {
        MaxClasses = 72
    };

    // The count leads, and the lists lead the cache, so that a list's
    // address is where its count is: compilers give an atomic's address a
    // register of its own. A list takes 16 bytes on every host.
    struct alignas(16) List
    {
        std::atomic<u32> count; // only this thread writes it
        u32 limit;              // see the top of this file
        void* head;             // each free block's first word links the next one
    };

    List lists[MaxClasses];
    std::atomic<ThreadCacheHome*> home; // null once the allocator is gone
    ThreadCache* previous;              // neighbours in the home's list
    ThreadCache* next;
    std::atomic<std::uintptr_t> key; // the home's key when the lists were filled
    u32 owner;                       // the allocator's own word about this thread, 0 at first
    u32 budgetUsed;                  // the lists' limits above their floors, in bytes
    u32 refills;                     // since the limits were last halved
    u32 pendingNext;                 // the slot of `pending` that Defer fills next
    std::atomic<u32> pendingCount;
    void* pending[4];          // freed blocks not yet sorted, null where none
    bool refilled[MaxClasses]; // since the idle lists were last halved

    // In every place of ThreadCaches that holds no cache: its key, 0, is no
    // home's, so that the hot paths need no test for an empty place.
    static ThreadCache Vacant;

    // Puts `block` among the pending ones; returns the oldest pending block
    // when they were all taken, to be sorted now, else null.
    void* Defer(void* block)
    {
        void*& slot = pending[pendingNext];
        pendingNext = (pendingNext + 1) & 3;
        void* oldest = slot;
        slot = block;
        if (oldest == nullptr)
            pendingCount.store(pendingCount.load(std::memory_order_relaxed) + 1,
                               std::memory_order_relaxed);
        return oldest;
    }
    // Unlinks the pending blocks into a chain.
    void* TakePending()
    {
        void* chain = nullptr;
        for (void*& slot : pending)
            if (slot != nullptr)
            {
                *static_cast<void**>(slot) = chain;
                chain = slot;
                slot = nullptr;
            }
        pendingCount.store(0, std::memory_order_relaxed);
        return chain;
    }

    // Takes out the first pending block that `serves` accepts, or null.
    template <class Serves>
    void* TakePendingFor(Serves serves)
    {
        for (void*& slot : pending)
            if (slot != nullptr && serves(slot))
            {
                void* block = slot;
                slot = nullptr;
                pendingCount.store(pendingCount.load(std::memory_order_relaxed) - 1,
                                   std::memory_order_relaxed);
                return block;
            }
        return nullptr;
    }

    void* Pop(u32 index) { return Pop(lists[index]); }
    static void* Pop(List& list)
    {
        void* block = list.head;
        if (block != nullptr)
        {
            list.head = *static_cast<void**>(block);
            list.count.store(list.count.load(std::memory_order_relaxed) - 1,
                             std::memory_order_relaxed);
        }
        return block;
    }
    // True when the list is now past its limit.
    bool Push(u32 index, void* block) { return Push(lists[index], block); }
    static bool Push(List& list, void* block)
    {
        *static_cast<void**>(block) = list.head;
        list.head = block;
        const u32 count = list.count.load(std::memory_order_relaxed) + 1;
        list.count.store(count, std::memory_order_relaxed);
        return count > list.limit;
    }
    // Puts the chain of `count` blocks from `first` to `last` (linked like
    // the list) in front of the list, which takes it whatever its limit.
    void PushChain(u32 index, void* first, void* last, u32 count)
    {
        List& list = lists[index];
        *static_cast<void**>(last) = list.head;
        list.head = first;
        list.count.store(list.count.load(std::memory_order_relaxed) + count,
                         std::memory_order_relaxed);
    }
    u32 Count(u32 index) const { return lists[index].count.load(std::memory_order_relaxed); }
    void Clear()
    {
        for (List& list : lists)
        {
            list.head = nullptr;
            list.count.store(0, std::memory_order_relaxed);
        }
        for (void*& slot : pending)
            slot = nullptr;
        pendingCount.store(0, std::memory_order_relaxed);
    }
    // Unlinks the list's first blocks into a chain, so that `keep` are left.
    void* Cut(u32 index, u32 keep)
    {
        List& list = lists[index];
        const u32 count = Count(index);
        if (count <= keep)
            return nullptr;
        void* chain = list.head;
        void** last = static_cast<void**>(chain);
        for (u32 i = keep + 1; i < count; ++i)
            last = static_cast<void**>(*last);
        list.head = *last;
        *last = nullptr;
        list.count.store(keep, std::memory_order_relaxed);
        return chain;
    }
    // Gives every list back to the home and empties them; blocks filled
    // under a voided key are dropped (they went with FreeAll).
    void GiveAllBack();
};

// A thread's caches, one for each allocator it used (up to four at once,
// ThreadCache::Vacant in the other places): what the library's thread slot
// holds. Before the thread's first cache is made the slot holds one with
// none, and after its caches went back it holds `Ended`, which has none
// either, so that late allocations take the locked paths.
struct ThreadCaches
{
    enum
    {
        MaxCaches = 4
    };
    ThreadCache* caches[MaxCaches];

    static ThreadCaches Ended;

    // The calling thread's, never null.
    static ThreadCaches* Mine() { return static_cast<ThreadCaches*>(native::ThreadSlotGet()); }
};

class ThreadCacheHome
{
public:
    ThreadCacheHome(CriticalSection& lock, ThreadCacheLookup& lookup);
    ThreadCacheHome(const ThreadCacheHome&) = delete;
    ThreadCacheHome& operator=(const ThreadCacheHome&) = delete;

    // Makes a home whose list of caches `lock` guards, with `giveBack`
    // returning a chain of cached blocks to the allocator, and which keeps
    // the allocator's `lookup`; null when out of memory. Homes live outside
    // the allocators' heaps.
    template <class Allocator, void (Allocator::*giveBack)(void*, bool)>
    static ThreadCacheHome* Make(Allocator* allocator, CriticalSection& lock,
                                 ThreadCacheLookup& lookup);
    // Every thread's cache is cut loose, then the home goes, and its
    // lookup finds no cache any more.
    static void Destroy(ThreadCacheHome* home);

    // The calling thread's cache, made on first use; null when none can be
    // made (the thread ended, or uses too many cached allocators).
    ThreadCache* Cache()
    {
        if (ThreadCache* cache = Found(m_Lookup))
            return cache;
        return FindCache();
    }
    // The calling thread's cache when it is found at the first look, else
    // null: what the allocators' hot paths take, with no call and nothing
    // read of the home.
    static ThreadCache* Found(const ThreadCacheLookup& lookup)
    {
        ThreadCache* cache = ThreadCaches::Mine()->caches[lookup.slot];
        if (cache->key.load(std::memory_order_relaxed) !=
            lookup.key.load(std::memory_order_relaxed))
            return nullptr;
        if (cache == nullptr) // never: empty places hold Vacant
            __builtin_unreachable();
        return cache;
    }

    // Gives the calling thread's cache back.
    void FlushOwn();
    // The blocks in other threads' caches.
    u32 HeldByOtherThreads() const;
    // At FreeAll, with the allocator's locks held: every cache's blocks went
    // with the pages, the caches see the new key and start empty.
    void VoidAll() { m_Lookup.key.store(NewKey(), std::memory_order_release); }
    // Gives blocks of the list back until `keep` are left.
    void Drain(ThreadCache& cache, u32 index, u32 keep) { GiveBack(cache.Cut(index, keep), true); }
    // The list went past its limit: half of it goes back. Out of line, so
    // that the paths that push need no room for it.
    void Overflow(ThreadCache& cache, u32 index);
    // The list ran empty: its limit grows if the budget allows, and this is
    // how many blocks to take (at least 1).
    u32 Refilling(ThreadCache& cache, u32 index);

    // Sets the classes: `classes` of them (at most ThreadCache::MaxClasses),
    // class i holding blocks of capacity(i) bytes, floor(i) to ceiling(i) of
    // them a list; `budget` bytes a thread. Before the first cache is made.
    template <class Capacity, class Floor, class Ceiling>
    void SetClasses(u32 classes, u32 budget, Capacity capacity, Floor floor, Ceiling ceiling)
    {
        m_Classes = classes;
        m_Budget = budget;
        for (u32 i = 0; i < classes; ++i)
            m_Policy[i] = Policy{capacity(i), floor(i), ceiling(i)};
    }
    u32 GetBudget() const { return m_Budget; }

    // A chain of blocks back to the allocator: sorted ones from the lists,
    // or pending ones, which it checks as it checks any freed block.
    virtual void GiveBack(void* chain, bool sorted) = 0;

protected:
    virtual ~ThreadCacheHome() = default;

private:
    friend struct ThreadCache;
    friend class ThreadCacheRegistry;

    static std::uintptr_t NewKey();
    ThreadCache* FindCache();
    ThreadCache* FindOwn() const;
    // Every list at its floor, the budget used counted.
    void StartLimits(ThreadCache& cache) const;
    // Halves the limits of the lists not refilled since the last call, down
    // to the floors.
    void HalveIdleLimits(ThreadCache& cache);

    struct Policy
    {
        u32 capacity;
        u32 floor;
        u32 ceiling;
    };

    CriticalSection& m_Lock;
    // The slot: where a thread's cache for this home goes when that place is
    // free. Homes take the places in turn, so that the few alive at once
    // (the shared Small and Big allocators') each find theirs at the first
    // look. The key: see the top of this file.
    ThreadCacheLookup& m_Lookup;
    ThreadCache* m_Caches = nullptr; // every thread's, under the lock
    u32 m_Classes = 0;
    u32 m_Budget = 0;
    Policy m_Policy[ThreadCache::MaxClasses] = {};
};

namespace threadcache
{

// Zeroed memory on cache lines of its own, outside the allocators' heaps
// (homes, caches, arenas); null when there is none.
void* AllocateLines(std::size_t size);
void FreeLines(void* p);

template <class Allocator, void (Allocator::*giveBack)(void*, bool)>
class HomeOf final : public ThreadCacheHome
{
public:
    HomeOf(Allocator* allocator, CriticalSection& lock, ThreadCacheLookup& lookup)
        : ThreadCacheHome(lock, lookup), m_Allocator(allocator)
    {
    }
    void GiveBack(void* chain, bool sorted) override { (m_Allocator->*giveBack)(chain, sorted); }

private:
    Allocator* m_Allocator;
};

} // namespace threadcache

template <class Allocator, void (Allocator::*giveBack)(void*, bool)>
ThreadCacheHome* ThreadCacheHome::Make(Allocator* allocator, CriticalSection& lock,
                                       ThreadCacheLookup& lookup)
{
    typedef threadcache::HomeOf<Allocator, giveBack> Home;
    void* storage = threadcache::AllocateLines(sizeof(Home));
    return storage != nullptr ? new (storage) Home(allocator, lock, lookup) : nullptr;
}

} // namespace qel
