// The private heap on Windows: a heap of its own, created without the
// system's serialisation (HEAP_NO_SERIALIZE) since HeapAllocator locks.
#include "base/memory/heap_native.h"

#include "base/platform/windows.h"

namespace qel
{
namespace native
{

void* CreatePrivateHeap()
{
    return ::HeapCreate(HEAP_NO_SERIALIZE, 0, 0);
}

void DestroyPrivateHeap(void* heap)
{
    ::HeapDestroy(heap);
}

void* AllocateFromHeap(void* heap, std::size_t size)
{
    return ::HeapAlloc(heap, HEAP_NO_SERIALIZE, size);
}

void* ReallocateInHeap(void* heap, void* block, std::size_t size)
{
    return ::HeapReAlloc(heap, HEAP_NO_SERIALIZE, block, size);
}

bool FreeToHeap(void* heap, void* block)
{
    return ::HeapFree(heap, HEAP_NO_SERIALIZE, block) != FALSE;
}

bool ValidateHeap(void* heap, const void* block)
{
    return ::HeapValidate(heap, HEAP_NO_SERIALIZE, block) != FALSE;
}

} // namespace native
} // namespace qel
