// Helpers shared by the memory subsystem's sources.
#pragma once

#include <qel/allocator.h>
#include <qel/mem.h>
#include <qel/types.h>

namespace qel
{
namespace memory
{

extern const char kMallocFailed[];

// A fatal error of the memory subsystem: under the error manager's lock the
// message is formatted and shown; a Yes breaks into the debugger, and then
// the process ends whatever the answer. Returns if the host lets it go on.
void ReportFatal(u32 category, const char* file, u32 line, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

// The factories of the allocators that live in sources of their own, each
// defined beside its class (poolallocator.cpp, packedallocator.cpp,
// hybridallocator.cpp). Null, with kMallocFailed reported, when the Native
// allocator has no room; the hybrid's is null too when a sub-allocator is.
Allocator* NewPoolAllocator();
Allocator* NewPackedAllocator(const char* name, u32 fullThreshold);
Allocator* NewHybridAllocator(Allocator* small, bool ownsSmall, Allocator* big, bool ownsBig);

} // namespace memory
} // namespace qel
