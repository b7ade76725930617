// Factories of the allocators Mem makes, each defined beside its class.
#pragma once

#include <qel/allocator.h>
#include <qel/types.h>

namespace qel
{
namespace memory
{

// Null, with "Malloc failed: no more available memory" reported, when the Native
// allocator has no room; the hybrid's is null too when a sub-allocator is.
Allocator* NewPoolAllocator();
Allocator* NewPackedAllocator(const char* name, u32 fullThreshold);
Allocator* NewHybridAllocator(Allocator* small, bool ownsSmall, Allocator* big, bool ownsBig);

} // namespace memory
} // namespace qel
