// A run of the packed allocator: its 128-byte header, its blocks' header, and
// the operations of the run sets (bins of runs by cached largest free chunk).
#pragma once

#include <qel/memchunktree.h>
#include <qel/packedallocator.h>
#include <qel/types.h>

#include <cstdint>

namespace qel
{

// The header's fields proper; PackedRun pads them so that the closing guard
// is the header's last word, right before the first block.
struct PackedRunFields
{
    enum : u32
    {
        None = 0,
        Room = 1,
        SetAside = 2,
    };

    PackedRunFields(u32 pageCount, u32 arenaIndex)
        : frontGuard(0xBAAAAAABu), tree(1), largest(0), live(0), pages(pageCount), bin(0),
          set(None), arena(arenaIndex), previous(nullptr), next(nullptr)
    {
    }

    u32 frontGuard;
    MemChunkTree tree; // the free space, in bytes
    u32 largest;       // the tree's largest chunk when last filed: the set key
    u32 live;          // blocks handed out
    u32 pages;
    u32 bin; // where it is filed
    u32 set;
    u32 arena;           // whose lock guards the run, for good
    PackedRun* previous; // neighbours in its bin
    PackedRun* next;
};

struct PackedRun : PackedRunFields
{
    enum : u32
    {
        FrontGuard = 0xBAAAAAABu,
        BackGuard = 0xEAAAAAAEu,
    };

    PackedRun(u32 pageCount, u32 arenaIndex)
        : PackedRunFields(pageCount, arenaIndex), backGuard(BackGuard)
    {
    }

    unsigned char spare[PackedAllocator::RunHeaderSize - 4 - sizeof(PackedRunFields)];
    u32 backGuard;

    unsigned char* Base() { return reinterpret_cast<unsigned char*>(this); }
    unsigned char* Space() { return Base() + PackedAllocator::RunHeaderSize; }
    unsigned char* End() { return Base() + std::uintptr_t(pages) * PackedAllocator::PageSize; }
    u32 SpaceSize() const
    {
        return pages * PackedAllocator::PageSize - PackedAllocator::RunHeaderSize;
    }
    bool GuardsHold() const { return frontGuard == FrontGuard && backGuard == BackGuard; }
};

static_assert(sizeof(PackedRun) == PackedAllocator::RunHeaderSize,
              "the run header must be exactly 128 bytes");

struct PackedBlock
{
    u32 marker;
    u32 capacity; // chunk size - 16: what statistics and Free count
    u32 unused[2];

    static PackedBlock* Of(const void* p)
    {
        return reinterpret_cast<PackedBlock*>(const_cast<unsigned char*>(
            static_cast<const unsigned char*>(p) - PackedAllocator::BlockHeaderSize));
    }
    void* User()
    {
        return reinterpret_cast<unsigned char*>(this) + PackedAllocator::BlockHeaderSize;
    }
    u32 Chunk() const { return capacity + PackedAllocator::BlockHeaderSize; }
};

static_assert(sizeof(PackedBlock) == PackedAllocator::BlockHeaderSize,
              "the block header must be 16 bytes");

namespace packedrun
{

inline u32 LowestBit(u64 bits)
{
    return u32(__builtin_ctzll(bits));
}

template <class Set>
u32 BinOf(u32 key)
{
    const u32 bin = key >> 3;
    return bin < Set::Bins ? bin : Set::Bins - 1;
}

template <class Set>
void Reset(Set& set)
{
    for (u64& word : set.summary)
        word = 0;
    for (u64& word : set.words)
        word = 0;
    for (PackedRun*& head : set.heads)
        head = nullptr;
    set.count = 0;
}

// Files `run` in `bin` (BinOf its `largest`), first among its equals.
template <class Set>
void Insert(Set& set, PackedRun* run, u32 tag, u32 bin)
{
    PackedRun* head = set.heads[bin];
    run->previous = nullptr;
    run->next = head;
    if (head)
        head->previous = run;
    set.heads[bin] = run;
    set.words[bin >> 6] |= u64(1) << (bin & 63);
    set.summary[bin >> 12] |= u64(1) << ((bin >> 6) & 63);
    run->bin = bin;
    run->set = tag;
    ++set.count;
}

template <class Set>
void Remove(Set& set, PackedRun* run)
{
    const u32 bin = run->bin;
    if (run->previous)
        run->previous->next = run->next;
    else
        set.heads[bin] = run->next;
    if (run->next)
        run->next->previous = run->previous;
    if (set.heads[bin] == nullptr)
    {
        u64& word = set.words[bin >> 6];
        word &= ~(u64(1) << (bin & 63));
        if (word == 0)
            set.summary[bin >> 12] &= ~(u64(1) << ((bin >> 6) & 63));
    }
    run->previous = run->next = nullptr;
    run->set = PackedRunFields::None;
    --set.count;
}

// The first non-empty bin at or after `bin`; Set::Bins when there is none.
template <class Set>
u32 NextBin(const Set& set, u32 bin)
{
    if (bin >= Set::Bins)
        return Set::Bins;
    u32 word = bin >> 6;
    const u64 here = set.words[word] & (~u64(0) << (bin & 63));
    if (here)
        return (word << 6) + LowestBit(here);
    for (++word; word < Set::Words;)
    {
        const u32 group = word >> 6;
        const u64 summary = set.summary[group] & (~u64(0) << (word & 63));
        if (summary)
        {
            word = (group << 6) + LowestBit(summary);
            return (word << 6) + LowestBit(set.words[word]);
        }
        word = (group + 1) << 6;
    }
    return Set::Bins;
}

// A run with the smallest key of at least `key`, null when none has one.
template <class Set>
PackedRun* FirstAtLeast(const Set& set, u32 key)
{
    if (key > 8 * (Set::Bins - 1))
        return nullptr; // larger than any run of the set can be
    const u32 bin = NextBin(set, (key + 7) >> 3);
    return bin < Set::Bins ? set.heads[bin] : nullptr;
}

// Visits the runs in key order; `visit` may take the run out of the set or
// give it back to the system.
template <class Set, class Visit>
void ForEach(const Set& set, Visit visit)
{
    for (u32 bin = NextBin(set, 0); bin < Set::Bins; bin = NextBin(set, bin + 1))
        for (PackedRun* run = set.heads[bin]; run;)
        {
            PackedRun* next = run->next;
            visit(run);
            run = next;
        }
}

} // namespace packedrun

class PackedAllocator::AllArenas
{
public:
    explicit AllArenas(const PackedAllocator& allocator)
        : m_Allocator(allocator), m_Count(allocator.m_ArenaCount.load(std::memory_order_acquire))
    {
        for (u32 i = 0; i < m_Count; ++i)
            m_Allocator.m_Arenas[i]->lock.Enter();
    }
    ~AllArenas()
    {
        for (u32 i = m_Count; i-- > 0;)
            m_Allocator.m_Arenas[i]->lock.Leave();
    }
    AllArenas(const AllArenas&) = delete;
    AllArenas& operator=(const AllArenas&) = delete;

    template <class Visit>
    void ForEach(Visit visit) const
    {
        for (u32 i = 0; i < m_Count; ++i)
            visit(*m_Allocator.m_Arenas[i]);
    }

private:
    const PackedAllocator& m_Allocator;
    const u32 m_Count;
};

} // namespace qel
