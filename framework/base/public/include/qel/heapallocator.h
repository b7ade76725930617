// An allocator over a private heap of the system: HeapCreate and its kin on
// Windows, a private arena of mapped pages on POSIX. It is the Native
// allocator of Mem and carries the objects of every other allocator.
//
// Every call runs under the allocator's own lock, so the heap itself is made
// without the system's serialisation. IsValidPointer is true only for a live
// block of this heap; any other address is answered false without touching
// memory that might not be there. Destroying the allocator releases every
// block at once. It keeps no statistics and never registers with the page
// manager, so GetOwner never returns it.
#pragma once

#include <qel/allocator.h>
#include <qel/criticalsection.h>
#include <qel/export.h>

namespace qel
{

class QEL_API HeapAllocator : public Allocator
{
public:
    HeapAllocator();
    ~HeapAllocator() override;

    void* MallocNoThrow(unsigned int size) override;
    void Free(const void* p) override;
    // Does nothing: blocks go back one by one or all at once with the heap.
    void FreeAll() override;
    void* ReAllocNoThrow(void* p, unsigned int size) override;
    void DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                        OutputStream* out, char* buffer) override;
    bool ValidateMemory() override;
    bool IsValidPointer(const void* p) override;
    unsigned int GetMaxSupportedAllocSize() const override;
    u32 GetErrorCategory() const override;
    // The heap moves nothing: null.
    void* Transfert(Allocator* target, void* p, unsigned int size) override;

private:
    CriticalSection m_Lock;
    void* m_Heap;
};

} // namespace qel
