// A thread's cache of free blocks in front of one pool allocator's classes.
//
// Only its thread touches the lists; `held` is also read by other threads'
// dumps. The owner keeps its caches in a list under its lock, so that it
// can count and empty them; a thread's caches go back to their owners when
// the thread ends (or are dropped, when the owner is gone first).
#pragma once

#include <qel/poolallocator.h>
#include <qel/types.h>

#include "base/thread/threadslot_native.h"

#include <atomic>

namespace qel
{

struct PoolThreadCache
{
    struct List
    {
        void* head; // each free block's first word links the next one
        u32 count;
    };

    std::atomic<PoolAllocator*> owner; // null once the allocator is gone
    PoolThreadCache* previous;
    PoolThreadCache* next;
    std::atomic<u32> epoch; // the owner's FreeAll count when the lists were filled
    std::atomic<u32> held;
    List lists[PoolAllocator::NumberOfClasses];

    // 4096 bytes' worth of blocks a class.
    static u32 Limit(u32 index) { return 4096 / (PoolAllocator::Granularity * (index + 1)); }

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
    void Push(u32 index, void* block)
    {
        List& list = lists[index];
        *static_cast<void**>(block) = list.head;
        list.head = block;
        ++list.count;
        Count(1);
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

    // A new cache of this thread for `owner`, linked into the owner's list
    // and the thread's; null when the thread has ended or has no room.
    static PoolThreadCache* Create(PoolAllocator* owner);
    // At the owner's destruction: every cache of it is cut loose.
    static void Detach(PoolThreadCache*& caches);
    // This thread's cache for `owner`, if it has one.
    static PoolThreadCache* Find(const PoolAllocator* owner);
    // Gives the lists back to the owner and unlinks the cache from it.
    void Retire();
};

// A thread's caches, one for each allocator it used (up to four at once),
// and the one it used last: what the library's thread slot holds. After
// the thread's caches went back the slot holds `Ended`, whose lists are
// empty, so that late allocations take the locked path.
struct PoolThreadCaches
{
    enum
    {
        MaxCaches = 4
    };
    PoolThreadCache* last;
    PoolThreadCache* caches[MaxCaches];

    static PoolThreadCaches Ended;

    // The calling thread's; null when it has none yet.
    static PoolThreadCaches* Mine()
    {
        return static_cast<PoolThreadCaches*>(native::ThreadSlotGet());
    }
};

} // namespace qel
