// How an allocator with threads' caches finds the calling thread's cache:
// the place among the thread's caches where its cache sits, and the key that
// cache carries while it is the allocator's. The allocator keeps these two
// words in its own object, beside what its hot paths read anyway, and the
// home of its caches keeps them up to date. Internal to the library's
// allocators.
#pragma once

#include <qel/types.h>

#include <atomic>
#include <cstdint>

namespace qel
{

struct ThreadCacheLookup
{
    // No cache carries it: the key while the caches are off.
    static constexpr std::uintptr_t NoKey = ~std::uintptr_t(0);

    u32 slot = 0;
    std::atomic<std::uintptr_t> key{NoKey};
};

} // namespace qel
