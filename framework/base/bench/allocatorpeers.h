// The allocators the benchmarks set beside the General allocator: glibc
// malloc, jemalloc and mimalloc, each called through function pointers as
// the General allocator is.
//
// jemalloc and mimalloc are loaded with dlopen(RTLD_LOCAL) and called
// through the functions found in them, so that neither replaces the
// process's malloc. jemalloc uses initial-exec thread-local storage, which
// dlopen can only place in glibc's static TLS surplus: a program calls
// EnsureStaticTlsSurplus first thing in main.
#pragma once

#include <qel/allocator.h>
#include <qel/mem.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <unistd.h>

namespace qelbench
{

// The most the General allocator keeps for one thread beyond its blocks, in
// bytes: the pool's cache (144 KB), the packed allocator's (2.05 MB) and the
// emptied run its arena keeps (2 MB). The resident bars allow the figure
// without caches plus this for each thread.
const double kCacheBudget = 4.19 * 1048576;

typedef void* (*MallocFunction)(size_t);
typedef void (*FreeFunction)(void*);
typedef void* (*ReallocFunction)(void*, size_t);
typedef void* (*AlignedFunction)(size_t alignment, size_t size);

struct Api
{
    const char* name;
    MallocFunction malloc;
    FreeFunction free;
    ReallocFunction realloc;
    // Null for the General allocator, which aligns on 16 bytes at most.
    AlignedFunction aligned;
};

namespace peers
{

inline qel::Allocator*& General()
{
    static qel::Allocator* general = nullptr;
    return general;
}

inline void* GeneralMalloc(size_t size)
{
    return General()->MallocNoThrow(unsigned(size));
}

inline void GeneralFree(void* p)
{
    General()->Free(p);
}

inline void* GeneralRealloc(void* p, size_t size)
{
    return General()->ReAllocNoThrow(p, unsigned(size));
}

// A hybrid over a pool and a packed allocator of its own, without thread
// caches: what the block formats need when every block goes back at once.
inline qel::Allocator*& Uncached()
{
    static qel::Allocator* uncached = nullptr;
    return uncached;
}

inline void* UncachedMalloc(size_t size)
{
    return Uncached()->MallocNoThrow(unsigned(size));
}

inline void UncachedFree(void* p)
{
    Uncached()->Free(p);
}

inline void* UncachedRealloc(void* p, size_t size)
{
    return Uncached()->ReAllocNoThrow(p, unsigned(size));
}

inline void* GlibcAligned(size_t alignment, size_t size)
{
    return std::aligned_alloc(alignment, (size + alignment - 1) & ~(alignment - 1));
}

// A peer loaded from `library`, or an Api whose malloc is null.
inline Api Load(const char* name, const char* library, const char* mallocName, const char* freeName,
                const char* reallocName, const char* alignedName)
{
    Api api = {name, nullptr, nullptr, nullptr, nullptr};
    if (void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL))
    {
        api.malloc = reinterpret_cast<MallocFunction>(dlsym(handle, mallocName));
        api.free = reinterpret_cast<FreeFunction>(dlsym(handle, freeName));
        api.realloc = reinterpret_cast<ReallocFunction>(dlsym(handle, reallocName));
        api.aligned = reinterpret_cast<AlignedFunction>(dlsym(handle, alignedName));
    }
    if (!api.free || !api.realloc || !api.aligned)
        api.malloc = nullptr;
    return api;
}

// mimalloc's aligned entry takes the size first.
inline void* MimallocAligned(size_t alignment, size_t size)
{
    typedef void* (*Function)(size_t, size_t);
    static const Function function = reinterpret_cast<Function>(
        dlsym(dlopen("libmimalloc.so.2", RTLD_NOW | RTLD_LOCAL), "mi_malloc_aligned"));
    return function(size, alignment);
}

} // namespace peers

inline const Api& Jemalloc()
{
    static const Api api =
        peers::Load("Jemalloc", "libjemalloc.so.2", "malloc", "free", "realloc", "aligned_alloc");
    return api;
}

inline const Api& Mimalloc()
{
    static const Api api = []
    {
        Api loaded = peers::Load("Mimalloc", "libmimalloc.so.2", "mi_malloc", "mi_free",
                                 "mi_realloc", "mi_malloc_aligned");
        loaded.aligned = &peers::MimallocAligned;
        return loaded;
    }();
    return api;
}

// The General allocator without its caches (made on first use).
inline Api UncachedApi()
{
    if (peers::Uncached() == nullptr)
        peers::Uncached() = qel::Mem::CreateHybridAllocator();
    return {"QelUncached", &peers::UncachedMalloc, &peers::UncachedFree, &peers::UncachedRealloc,
            nullptr};
}

// Ours first, then glibc, then the peers that could be loaded.
inline std::vector<Api> Apis()
{
    peers::General() = qel::Mem::GetGeneralAlloc();
    std::vector<Api> apis = {
        {"QelGeneral", &peers::GeneralMalloc, &peers::GeneralFree, &peers::GeneralRealloc, nullptr},
        {"GlibcMalloc", &std::malloc, &std::free, &std::realloc, &peers::GlibcAligned},
    };
    for (const Api* peer : {&Jemalloc(), &Mimalloc()})
        if (peer->malloc)
            apis.push_back(*peer);
    return apis;
}

// Starts the program again with a static TLS surplus large enough for
// jemalloc, unless it was given one.
inline void EnsureStaticTlsSurplus(char** argv)
{
    const char* tunables = std::getenv("GLIBC_TUNABLES");
    if (tunables == nullptr || std::strstr(tunables, "optional_static_tls") == nullptr)
    {
        setenv("GLIBC_TUNABLES", "glibc.rtld.optional_static_tls=65536", 1);
        execv("/proc/self/exe", argv);
    }
}

} // namespace qelbench
