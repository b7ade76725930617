// An allocator of whole pages: every request is one run of 4096-byte pages
// from the page manager, registered to this allocator, so that GetOwner
// finds it from any address inside a block. Blocks are page-aligned.
//
// It keeps no table of its blocks: the page manager's records are the
// bookkeeping (a block is the run that starts at its address).
#pragma once

#include <qel/allocator.h>
#include <qel/criticalsection.h>
#include <qel/export.h>

namespace qel
{

class QEL_API PageAllocator : public Allocator
{
public:
    // Joins the page manager's owner list.
    PageAllocator();
    // Gives back every page still handed out and leaves the owner list.
    ~PageAllocator() override;

    // Size 0 gives null.
    void* MallocNoThrow(unsigned int size) override;
    void Free(const void* p) override;
    void FreeAll() override;
    // Shrinking gives the tail pages back in place; growing moves the block.
    void* ReAllocNoThrow(void* p, unsigned int size) override;
    // Flag 1: the usage counts; flag 2: the list of blocks.
    void DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                        OutputStream* out, char* buffer) override;
    // Checks the counts against the runs the page manager holds for it.
    bool ValidateMemory() override;
    // True for the start of a block of this allocator.
    bool IsValidPointer(const void* p) override;
    unsigned int GetMaxSupportedAllocSize() const override;
    u32 GetErrorCategory() const override;
    void* Transfert(Allocator* target, void* p, unsigned int size) override;

    u32 GetNumberOfAllocations() const { return m_Allocations; }
    u32 GetNumberOfPages() const { return m_Pages; }

private:
    // Pages of the block at `p`, 0 when `p` is not the start of one of ours.
    u32 BlockPages(const void* p) const;

    CriticalSection m_Lock;
    u32 m_Allocations;
    u32 m_Pages;
};

} // namespace qel
