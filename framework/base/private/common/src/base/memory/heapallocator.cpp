#include <qel/heapallocator.h>

#include <qel/mem.h>

#include "base/memory/heap_native.h"

namespace qel
{

HeapAllocator::HeapAllocator() : m_Heap(native::CreatePrivateHeap()) {}

HeapAllocator::~HeapAllocator()
{
    if (m_Heap != nullptr)
        native::DestroyPrivateHeap(m_Heap);
}

void* HeapAllocator::MallocNoThrow(unsigned int size)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return m_Heap ? native::AllocateFromHeap(m_Heap, size) : nullptr;
}

void HeapAllocator::Free(const void* p)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (m_Heap != nullptr && p != nullptr)
        native::FreeToHeap(m_Heap, const_cast<void*>(p));
}

void* HeapAllocator::ReAllocNoThrow(void* p, unsigned int size)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (m_Heap == nullptr)
        return nullptr;
    return p ? native::ReallocateInHeap(m_Heap, p, size) : native::AllocateFromHeap(m_Heap, size);
}

void HeapAllocator::FreeAll() {}

void HeapAllocator::DumpStatistics(u32, AllocatorStatMarker*, AllocatorStatMarker*, OutputStream*,
                                   char*)
{
}

bool HeapAllocator::ValidateMemory()
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return m_Heap != nullptr && native::ValidateHeap(m_Heap, nullptr);
}

bool HeapAllocator::IsValidPointer(const void* p)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    // A null address validates the whole heap, as ValidateMemory does.
    return m_Heap != nullptr && native::ValidateHeap(m_Heap, p);
}

unsigned int HeapAllocator::GetMaxSupportedAllocSize() const
{
    return 0xFFFFFFFFu;
}

u32 HeapAllocator::GetErrorCategory() const
{
    return Mem::GetErrorCategory();
}

void* HeapAllocator::Transfert(Allocator*, void*, unsigned int)
{
    return nullptr;
}

} // namespace qel
