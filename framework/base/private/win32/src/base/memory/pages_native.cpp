// System pages on Windows: committed virtual memory.
#include "base/memory/pages_native.h"

#include "base/platform/windows.h"

namespace qel
{
namespace native
{

void GetUserAddressRange(std::uintptr_t& lowest, std::uintptr_t& highest)
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    lowest =
        reinterpret_cast<std::uintptr_t>(info.lpMinimumApplicationAddress) & ~std::uintptr_t(4095);
    highest = (reinterpret_cast<std::uintptr_t>(info.lpMaximumApplicationAddress) + 4095) &
              ~std::uintptr_t(4095);
}

void* CommitPages(std::size_t bytes, bool)
{
    return VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

void ReleasePages(void* start, std::size_t)
{
    VirtualFree(start, 0, MEM_RELEASE);
}

// Committed memory cannot be moved to another address without a copy.
bool CanMovePages()
{
    return false;
}

bool MovePages(void*, std::size_t, void*)
{
    return false;
}

} // namespace native
} // namespace qel
