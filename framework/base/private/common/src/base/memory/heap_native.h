// A private heap of the system, one implementation per platform: the Win32
// heap functions on Windows, an arena of mapped pages on POSIX.
//
// The heap does no locking: its one user, HeapAllocator, serialises every
// call. Blocks are aligned on 16 bytes on 64-bit hosts and 8 on 32-bit ones.
#pragma once

#include <cstddef>

namespace qel
{
namespace native
{

// A new growable heap, null on failure.
void* CreatePrivateHeap();
// Releases the heap and every block still in it.
void DestroyPrivateHeap(void* heap);

// Null on failure. A size of 0 still gives a block.
void* AllocateFromHeap(void* heap, std::size_t size);
// Null on failure, `block` then left as it was.
void* ReallocateInHeap(void* heap, void* block, std::size_t size);
bool FreeToHeap(void* heap, void* block);

// With a block: true when it is a live block of this heap, false for any
// other address (without reading memory the heap does not own). Without:
// true when the whole heap is consistent.
bool ValidateHeap(void* heap, const void* block);

} // namespace native
} // namespace qel
