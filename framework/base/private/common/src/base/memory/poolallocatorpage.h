// A page of the pool allocator: a 32-byte header, then blocks of one size
// back to back. Free blocks are kept as runs of consecutive blocks; a run
// begins with its header (the next run's offset in the page, 0 at the end,
// and the number of blocks in the run).
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

    struct Run
    {
        u32 next; // offset of the next run in the page, 0 for none
        u32 count;
    };

    u32 frontGuard;
    unsigned short freeHead; // offset of the first free run, 0 when full
    unsigned short blockSize;
    PoolAllocatorPage* previous;
    PoolAllocatorPage* next;
    unsigned short blocksInUse;
    unsigned short blocksHeld;
    u32 backGuard;

    static PoolAllocatorPage* Of(const void* block)
    {
        return reinterpret_cast<PoolAllocatorPage*>(reinterpret_cast<std::uintptr_t>(block) &
                                                    ~std::uintptr_t(Size - 1));
    }

    unsigned char* Base() { return reinterpret_cast<unsigned char*>(this); }
    Run* RunAt(u32 offset) { return reinterpret_cast<Run*>(Base() + offset); }

    // A fresh page: one run covering every block.
    void Initialize(u32 size)
    {
        frontGuard = FrontGuard;
        backGuard = BackGuard;
        previous = next = nullptr;
        blockSize = static_cast<unsigned short>(size);
        blocksInUse = 0;
        blocksHeld = static_cast<unsigned short>((Size - HeaderSize) / size);
        freeHead = HeaderSize;
        *RunAt(HeaderSize) = Run{0, blocksHeld};
    }

    bool IsFull() const { return freeHead == 0; }

    // The first block of the first run; the run shrinks from its front.
    void* Take()
    {
        Run* run = RunAt(freeHead);
        if (run->count > 1)
        {
            const Run rest{run->next, run->count - 1};
            freeHead = static_cast<unsigned short>(freeHead + blockSize);
            *RunAt(freeHead) = rest;
        }
        else
        {
            freeHead = static_cast<unsigned short>(run->next);
        }
        ++blocksInUse;
        return run;
    }

    // Pushes the block as a run of one; runs are never merged.
    void Give(void* block)
    {
        const u32 offset = static_cast<u32>(static_cast<unsigned char*>(block) - Base());
        *RunAt(offset) = Run{freeHead, 1};
        freeHead = static_cast<unsigned short>(offset);
        --blocksInUse;
    }
};

static_assert(sizeof(PoolAllocatorPage) <= PoolAllocatorPage::HeaderSize,
              "the page header must fit before the first block");

} // namespace qel
