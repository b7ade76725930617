// A page of the pool allocator: a 32-byte header, then blocks of one size
// back to back. Free blocks are kept as runs of consecutive blocks; a run
// begins with its header (a link to the next run, then the number of blocks
// in the run).
//
// The header on 32-bit hosts is eight unsigned 32-bit words:
//   0 guard 0xBAAAAAAB        4 block size
//   1 previous page in list   5 blocks in use
//   2 next page in list       6 blocks held (4064 / block size)
//   3 first free run          7 guard 0xEAAAAAAE
// and the free-list links (word 3, each run's first word) are addresses.
//
// On 64-bit hosts the two page links take 8 bytes each; to keep the header
// at 32 bytes the free-list links become offsets within the page (0 for
// none) and the counts 16-bit:
//   bytes 0-3 guard 0xBAAAAAAB, 4-5 first free run, 6-7 block size,
//   8-15 previous page, 16-23 next page, 24-25 blocks in use,
//   26-27 blocks held, 28-31 guard 0xEAAAAAAE.
#pragma once

#include <qel/types.h>

#include <cstdint>

namespace qel
{

struct PoolAllocatorPage
{
    enum : u32
    {
        FrontGuard = 0xBAAAAAABu,
        BackGuard = 0xEAAAAAAEu,
        Size = 4096,
        HeaderSize = 32,
    };

    struct Run;

#if UINTPTR_MAX == 0xFFFFFFFFu
    typedef Run* Link; // the run's address
    typedef u32 Count;

    u32 frontGuard;
    PoolAllocatorPage* previous;
    PoolAllocatorPage* next;
    Link freeHead; // null when the page is full
    Count blockSize;
    Count blocksInUse;
    Count blocksHeld;
    u32 backGuard;

    Run* ToRun(Link link)
    {
        return link;
    }
    Link ToLink(Run* run)
    {
        return run;
    }
    u32 OffsetOf(Link link) const
    {
        return link ? u32(std::uintptr_t(link) - std::uintptr_t(this)) : 0;
    }
#else
    typedef u32 Link; // the run's offset in the page
    typedef unsigned short Count;

    u32 frontGuard;
    unsigned short freeHead; // 0 when the page is full
    Count blockSize;
    PoolAllocatorPage* previous;
    PoolAllocatorPage* next;
    Count blocksInUse;
    Count blocksHeld;
    u32 backGuard;

    Run* ToRun(Link link)
    {
        return reinterpret_cast<Run*>(Base() + link);
    }
    Link ToLink(Run* run)
    {
        return u32(reinterpret_cast<unsigned char*>(run) - Base());
    }
    u32 OffsetOf(Link link) const
    {
        return link;
    }
#endif

    struct Run
    {
        Link next; // null or 0 at the end of the list
        u32 count;
    };

    static PoolAllocatorPage* Of(const void* block)
    {
        return reinterpret_cast<PoolAllocatorPage*>(reinterpret_cast<std::uintptr_t>(block) &
                                                    ~std::uintptr_t(Size - 1));
    }

    unsigned char* Base()
    {
        return reinterpret_cast<unsigned char*>(this);
    }
    Run* RunAt(u32 offset)
    {
        return reinterpret_cast<Run*>(Base() + offset);
    }

    // A fresh page: one run covering every block.
    void Initialize(u32 size)
    {
        frontGuard = FrontGuard;
        backGuard = BackGuard;
        previous = next = nullptr;
        blockSize = Count(size);
        blocksInUse = 0;
        blocksHeld = Count((Size - HeaderSize) / size);
        Run* first = RunAt(HeaderSize);
        *first = Run{Link(), blocksHeld};
        freeHead = decltype(freeHead)(ToLink(first));
    }

    bool IsFull() const
    {
        return !freeHead;
    }

    // Takes up to `most` blocks (at least one; the page is not full): the
    // first blocks of the first runs, each run shrinking from its front. They
    // are linked through their first word in address order within a run and
    // appended to the chain from `first` to `last`, whose last link is left
    // as it is. Returns how many were taken.
    u32 TakeChain(u32 most, void*& first, void*& last)
    {
        u32 taken = 0;
        while (taken < most && freeHead)
        {
            unsigned char* run = reinterpret_cast<unsigned char*>(ToRun(freeHead));
            const Run whole = *reinterpret_cast<Run*>(run);
            const u32 count = whole.count < most - taken ? whole.count : most - taken;
            if (count < whole.count)
            {
                Run* rest = reinterpret_cast<Run*>(run + count * blockSize);
                *rest = Run{whole.next, whole.count - count};
                freeHead = decltype(freeHead)(ToLink(rest));
            }
            else
            {
                freeHead = decltype(freeHead)(whole.next);
            }
            (first != nullptr ? *static_cast<void**>(last) : first) = run;
            for (u32 i = 1; i < count; ++i, run += blockSize)
                *reinterpret_cast<void**>(run) = run + blockSize;
            last = run;
            taken += count;
        }
        blocksInUse = Count(blocksInUse + taken);
        return taken;
    }

    // Pushes the block as a run of one; runs are never merged.
    void Give(void* block)
    {
        Run* run = static_cast<Run*>(block);
        *run = Run{freeHead, 1};
        freeHead = decltype(freeHead)(ToLink(run));
        --blocksInUse;
    }
};

static_assert(sizeof(PoolAllocatorPage) == PoolAllocatorPage::HeaderSize,
              "the page header is exactly the space before the first block");

} // namespace qel
