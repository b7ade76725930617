// System pages on POSIX: anonymous private mappings.
#include "base/memory/pages_native.h"

#include <cstdio>

#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace qel
{
namespace native
{

void GetUserAddressRange(std::uintptr_t& lowest, std::uintptr_t& highest)
{
    // Linux keeps the first pages unmapped (vm.mmap_min_addr).
    unsigned long minimum = 4096;
    if (FILE* file = std::fopen("/proc/sys/vm/mmap_min_addr", "r"))
    {
        if (std::fscanf(file, "%lu", &minimum) != 1)
            minimum = 4096;
        std::fclose(file);
    }
    lowest = std::uintptr_t(minimum) & ~std::uintptr_t(4095);
#if UINTPTR_MAX > 0xFFFFFFFFu
    // mmap stays below 2^47 on x86-64 (2^48 on arm64) unless asked for more.
#if defined(__aarch64__)
    highest = std::uintptr_t(1) << 48;
#else
    highest = std::uintptr_t(1) << 47;
#endif
#else
    highest = 0xFFFFF000u; // a 32-bit process may map up to the top 4 KB
#endif
}

namespace
{

void* Map(std::size_t bytes)
{
    void* start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return start == MAP_FAILED ? nullptr : start;
}

#if defined(MADV_HUGEPAGE)
// A mapping of `bytes` that starts on a 2 MB boundary, so that all of it can
// become huge pages: a larger one, trimmed at both ends.
void* MapHuge(std::size_t bytes)
{
    const std::size_t kHuge = std::size_t(2) << 20;
    char* mapped = static_cast<char*>(Map(bytes + kHuge));
    if (mapped == nullptr)
        return Map(bytes);
    char* start = reinterpret_cast<char*>((reinterpret_cast<std::uintptr_t>(mapped) + kHuge - 1) &
                                          ~std::uintptr_t(kHuge - 1));
    if (start > mapped)
        munmap(mapped, std::size_t(start - mapped));
    munmap(start + bytes, std::size_t(mapped + kHuge - start));
    madvise(start, bytes, MADV_HUGEPAGE);
    return start;
}
#endif

} // namespace

void* CommitPages(std::size_t bytes, bool oneBlock)
{
#if defined(MADV_HUGEPAGE)
    void* start = oneBlock ? MapHuge(bytes) : Map(bytes);
#else
    (void)oneBlock;
    void* start = Map(bytes);
#endif
#if defined(__SANITIZE_ADDRESS__)
    // Pointers kept in these pages keep what they point to alive.
    if (start != nullptr)
        __lsan_register_root_region(start, bytes);
#endif
    return start;
}

void ReleasePages(void* start, std::size_t bytes)
{
#if defined(__SANITIZE_ADDRESS__)
    __lsan_unregister_root_region(start, bytes);
#endif
    munmap(start, bytes);
}

bool CanMovePages()
{
#if defined(MREMAP_FIXED)
    return true;
#else
    return false;
#endif
}

bool MovePages(void* from, std::size_t bytes, void* to)
{
#if defined(MREMAP_FIXED)
    // The kernel moves the page table entries; the target's pages there go.
    if (mremap(from, bytes, bytes, MREMAP_MAYMOVE | MREMAP_FIXED, to) == MAP_FAILED)
        return false;
#if defined(__SANITIZE_ADDRESS__)
    __lsan_unregister_root_region(from, bytes);
#endif
    return true;
#else
    (void)from;
    (void)bytes;
    (void)to;
    return false;
#endif
}

} // namespace native
} // namespace qel
