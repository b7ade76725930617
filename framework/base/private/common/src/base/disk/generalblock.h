// The memory of files, drives and mount points: blocks of Mem's General
// allocator, freed to whichever allocator owns them.
#pragma once

#include <cstddef>

namespace qel
{

// Null after "Malloc failed: no more available memory" was reported.
void* AllocateGeneralBlock(std::size_t size);
void FreeGeneralBlock(void* p);

} // namespace qel
