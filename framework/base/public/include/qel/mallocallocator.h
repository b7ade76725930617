// An allocator over the runtime library's malloc, realloc and free, with
// its own error category "MallocAllocator". Requests are rounded up to 16
// bytes. It cannot tell its blocks from others: IsValidPointer is always
// true, and it never registers with the page manager.
#pragma once

#include <qel/allocator.h>
#include <qel/criticalsection.h>
#include <qel/export.h>

namespace qel
{

class QEL_API MallocAllocator : public Allocator
{
public:
    MallocAllocator();
    ~MallocAllocator() override;

    // Size 0 gives null.
    void* MallocNoThrow(unsigned int size) override;
    void Free(const void* p) override;
    void FreeAll() override;
    // Size 0 frees `p` and gives null; a null `p` allocates.
    void* ReAllocNoThrow(void* p, unsigned int size) override;
    void DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                        OutputStream* out, char* buffer) override;
    bool ValidateMemory() override;
    bool IsValidPointer(const void* p) override;
    unsigned int GetMaxSupportedAllocSize() const override;
    u32 GetErrorCategory() const override;
    void* Transfert(Allocator* target, void* p, unsigned int size) override;

private:
    u32 m_ErrorCategory;
    CriticalSection m_Lock;
};

} // namespace qel
