// The hybrid allocator: owns no memory, routes each request by size to one of
// two sub-allocators, small first.
//
// A request goes to the first entry whose largest supported request (read
// once from the sub-allocator) is at least its size rounded up to 16, and
// falls through to the big entry when the small one has nothing. Free,
// IsValidPointer and reallocation go to the allocator that owns the address,
// found from the page manager's page records without a lock; a reallocation
// that changes entries moves the block with the owner's Transfert. The
// hybrid has no lock: each sub-allocator locks itself.
//
// When the entries are exactly a pool allocator and a packed allocator (as
// for Mem's General allocator), the hybrid calls their allocation and
// release paths directly, inline, and hands a release to its owner with the
// page record it read to find it.
//
// A request no entry can serve is reported as a warning and gives null;
// MallocNoThrow and MallocDebugNoThrow report from sites of their own, so
// each can be silenced apart. An address no allocator owns is the fatal
// error of Allocator::GetOwner.
#pragma once

#include <qel/allocator.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class PackedAllocator;
class PageManager;
class PoolAllocator;

class QEL_API HybridAllocator : public Allocator
{
public:
    enum : u32
    {
        NumberOfEntries = 2,
        // DumpStatistics writes nothing when this bit is set.
        DumpNothing = 32,
    };

    // `small` must have the smaller limit. Joins the page manager's owner
    // list; owned sub-allocators are destroyed with the hybrid, small first.
    HybridAllocator(Allocator* small, bool ownsSmall, Allocator* big, bool ownsBig);
    ~HybridAllocator() override;

    void* MallocNoThrow(unsigned int size) override;
    void Free(const void* p) override;
    // Both sub-allocators, small first, owned or not.
    void FreeAll() override;
    // Both sub-allocators' dumps, small first, unless DumpNothing is set.
    void DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                        OutputStream* out, char* buffer) override;
    // Both are asked, small first; true when both say so.
    bool ValidateMemory() override;
    // False for an address no allocator owns.
    bool IsValidPointer(const void* p) override;
    unsigned int GetMaxSupportedAllocSize() const override;
    u32 GetErrorCategory() const override;
    // Calls the sub-allocators' plain MallocNoThrow.
    void* MallocDebugNoThrow(unsigned int size, const char* tag, const char* file,
                             u32 line) override;
    void* ReAllocNoThrow(void* p, unsigned int size) override;
    // The hybrid moves nothing itself: null.
    void* Transfert(Allocator* target, void* p, unsigned int size) override;
    void AddContext(const char* name) override;
    void RemoveContext() override;

    Allocator* GetSmallAllocator() const { return m_Entries[0].allocator; }
    Allocator* GetBigAllocator() const { return m_Entries[1].allocator; }

private:
    struct Entry
    {
        Allocator* allocator;
        u32 limit;
        bool owned;
    };

    // The first entry for `size`, NumberOfEntries when none fits.
    u32 FirstEntryFor(unsigned int size) const;
    // A block from the calling thread's cache of the entry that serves
    // `size` first, or null; inline and with no call.
    inline void* MallocCached(unsigned int size);
    void* MallocFromEntries(unsigned int size);
    // MallocFromEntries, or the warning of the plain or debug form and null.
    void* MallocOrWarn(unsigned int size, bool debug);
    // ReAllocNoThrow past its test for a big block that keeps its place.
    void* ReAllocFromOwner(void* p, unsigned int size);
    // Free for a block of any owner but the two whose paths are inline.
    void FreeToOwner(const void* p);
    // The owner of `p`; null, and reported, when there is none.
    Allocator* OwnerOf(const void* p) const;

    Entry m_Entries[NumberOfEntries];
    PageManager* m_Pages; // which outlives its owners
    // The entries when they are exactly of these classes, else null, and
    // their owner indices.
    PoolAllocator* m_Pool;
    PackedAllocator* m_Packed;
    u32 m_PoolOwner;
    u32 m_PackedOwner;
};

} // namespace qel
