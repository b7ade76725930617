// The system's pages, one implementation per platform: VirtualAlloc and
// VirtualFree on Windows, mmap and munmap on POSIX.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qel
{
namespace native
{

// The process's range of user addresses: the lowest rounded down to 4096,
// the highest (exclusive) rounded up to 4096.
void GetUserAddressRange(std::uintptr_t& lowest, std::uintptr_t& highest);

// Commits `bytes` (a multiple of 4096) of zeroed read-write memory where the
// system likes, aligned on at least 4096. Null when the system refuses.
// `oneBlock` says that the memory will hold one big block, likely used
// whole: on Linux it then starts on a 2 MB boundary and the kernel is asked
// to back it with huge pages where it can (one fault and one TLB entry per
// 2 MB instead of 512). Windows ignores it, as its large pages need a
// privilege that programs seldom hold.
void* CommitPages(std::size_t bytes, bool oneBlock);

// Gives back a whole block that CommitPages returned.
void ReleasePages(void* start, std::size_t bytes);

// Whether MovePages can ever succeed here: on Linux only.
bool CanMovePages();

// Moves the `bytes` of a block that CommitPages returned onto the start of
// another such block, at least as large, without copying them: their pages
// take the place of the other block's first ones, and the first block is
// gone. False, with both blocks as they were, when the system refuses.
bool MovePages(void* from, std::size_t bytes, void* to);

} // namespace native
} // namespace qel
