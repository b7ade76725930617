// The free chunks of an address range, kept in two balanced trees that live
// inside the free chunks themselves.
//
// The page manager's metapages keep their free page runs in one (counting in
// 4096-byte pages), and each run of the packed allocator keeps its free space
// in one (counting in bytes). The tree object allocates nothing: every free
// chunk carries its own node, so a chunk is never smaller than GetNodeSize()
// bytes, and the object is small enough to sit in a run header.
//
// Sizes are counted in units of GetChunkUnit() bytes; a chunk of `count`
// units starting at `start` covers [start, start + unit * count). Addresses
// need no alignment: the nodes are read and written bytewise-safe. While a
// chunk is free its first bytes hold its node, so its owner must leave it
// alone until the tree hands it out again.
//
// The tree reports nothing itself: an operation that cannot be done returns
// null or false, and the owner reports it in its own error category.
// Not thread-safe: the owner's lock covers every call.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API MemChunkTree
{
public:
    QEL_ALLOCATION_OPERATORS

    // The tags of the two users, written into the nodes they insert.
    enum : unsigned char
    {
        MetapageTag = 252,
        PackedAllocatorTag = 254,
    };

    // `unit`: bytes per counted unit, at least 1 (0 is taken as 1).
    explicit MemChunkTree(u32 unit);

    MemChunkTree(const MemChunkTree&) = delete;
    MemChunkTree& operator=(const MemChunkTree&) = delete;

    // Takes a chunk of `count` units and returns its start, or null when no
    // free chunk is that big (or `count` is 0).
    //
    // Choice rule: the first chunk in size order whose size is at least
    // `count`; if its size is exactly `count`, the last chunk of that exact
    // size instead. Among equal sizes the order is by address, so an exact
    // fit takes the highest-addressed chunk of that size and a larger fit the
    // lowest-addressed chunk of the smallest larger size.
    //
    // The head of the chosen chunk is handed out and the tail stays free,
    // unless the tail would be under GetNodeSize() bytes: then the whole chunk
    // is handed out and `count` is raised to its size. A request under
    // GetNodeSize() bytes is served as asked: such a chunk cannot come back
    // on its own (InsertChunkInTree refuses it), so callers that return
    // chunks ask for at least GetMinimumCount().
    // On success `count` is the number of units handed out; on null it is
    // unchanged. `tag` is written into the node of the tail that stays free.
    // O(log n) in the number of free chunks, as are GetChunkAt and
    // InsertChunkInTree.
    void* GetChunk(u32& count, unsigned char tag);

    // Takes the head of the free chunk that begins exactly at `start`, as
    // GetChunk does with the chosen chunk (the same enlarging of `count`). Null, with nothing
    // changed, when no free chunk begins at `start` or that chunk is smaller than `count`. Grows a
    // block in place.
    void* GetChunkAt(void* start, u32& count, unsigned char tag);

    // Returns the chunk [start, start + unit * count) to the tree, merging it
    // with the free chunk just below and the one just above when they touch
    // it. With `merge` false it becomes a chunk of its own even when a
    // neighbour touches it (for ranges that must stay apart, such as two
    // system allocations that happen to be adjacent); later returns next to
    // it still merge with it. The merged or new node carries `tag`.
    //
    // The chunk may be any range the tree does not hold, of at least
    // GetNodeSize() bytes: a head or tail cut from what GetChunk handed out,
    // or fresh memory. Refused (false, nothing changed) when `start` is null,
    // the chunk is under GetNodeSize() bytes, it overlaps a free chunk (a
    // double return), it runs past the end of the address space, or the
    // tree's free units would no longer fit in 32 bits.
    bool InsertChunkInTree(void* start, u32 count, unsigned char tag, bool merge = true);

    // Finds the free chunk that contains `address`. On success stores its
    // start and size in units (either pointer may be null) and returns true.
    bool FindChunk(const void* address, void** start, u32* count) const;

    // Forgets every free chunk (the memory is not touched).
    void Reset();

    u32 GetChunkUnit() const { return m_Unit; }
    // 40 on every host: the smallest free chunk in bytes.
    static u32 GetNodeSize() { return 40; }
    // The smallest count InsertChunkInTree takes back: GetNodeSize() in whole
    // units.
    u32 GetMinimumCount() const { return m_MinimumCount; }
    // Size in units of the largest free chunk; 0 when the tree is empty.
    u32 GetLargestChunk() const { return m_Largest; }
    bool IsEmpty() const { return m_NumberOfChunks == 0; }
    u32 GetNumberOfChunks() const { return m_NumberOfChunks; }
    // The sum of the free chunks' sizes, in units.
    u32 GetFreeUnits() const { return m_FreeUnits; }

    // Visits the free chunks in address order. Allocates nothing; `visit`
    // must not change the tree.
    void ForEachChunk(void (*visit)(void* start, u32 count, void* context), void* context) const;

    // Checks both trees: order, balance, heights, that they hold the same
    // chunks, that no two free chunks overlap, the counters, and that every
    // node carries `tag`. O(n log n), for ValidateMemory and tests.
    bool Validate(unsigned char tag) const;

private:
    // Hands out the head of the free chunk `chunk` (count at most its size),
    // keeping the tail free if big enough.
    // `slot` and `before`, when GetChunk's walk found them: the size-tree
    // slot that points to `chunk` and the chunk before it in size order.
    void* Take(unsigned char* chunk, u32& count, unsigned char tag, unsigned char* slot = nullptr,
               const unsigned char* before = nullptr);
    void UpdateLargest();

    // Roots of the tree by address and of the tree by (size, address).
    unsigned char* m_AddressRoot;
    unsigned char* m_SizeRoot;
    u32 m_Unit;
    u32 m_MinimumCount;
    u32 m_NumberOfChunks;
    u32 m_FreeUnits;
    u32 m_Largest;
};

} // namespace qel
