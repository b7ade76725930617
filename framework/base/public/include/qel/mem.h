// The memory facade: the five process-wide allocators and the factories of
// further ones.
//
// Each shared allocator is created on its first request, once: a creation
// that failed is not tried again and its usage stays null. They are
// destroyed at library unload in reverse order of creation. The Native
// allocator, a private heap of the system, carries the objects of all the
// others and lives in static storage.
#pragma once

#include <qel/allocator.h>
#include <qel/export.h>
#include <qel/types.h>

#include <atomic>

namespace qel
{

class OutputStream;

class QEL_API Mem
{
public:
    enum AllocatorUsage
    {
        Small = 0,   // pool allocator, requests up to 256 bytes
        Big = 1,     // packed allocator "BigAlloc"
        General = 2, // hybrid over Small and Big
        Page = 3,    // whole pages
        Native = 4,  // the private heap
        NumberOfUsages = 5,
    };

    // The shared allocator of a usage; null for an unknown usage or when its
    // creation failed.
    static Allocator* GetAllocator(AllocatorUsage usage)
    {
        if (unsigned(usage) >= NumberOfUsages)
            return nullptr;
        Allocator* allocator = m_allocators[usage].load(std::memory_order_acquire);
        return allocator ? allocator : InitAllocator(usage);
    }
    static Allocator* GetSmallAlloc() { return GetAllocator(Small); }
    static Allocator* GetBigAlloc() { return GetAllocator(Big); }
    static Allocator* GetGeneralAlloc() { return GetAllocator(General); }
    static Allocator* GetPageAlloc() { return GetAllocator(Page); }
    static Allocator* GetNativeAlloc() { return GetAllocator(Native); }

    // Routes a usage to `allocator` from now on and returns the allocator it
    // had (made first when it had none yet): a seam for tests and tools that
    // watch, or make fail, what a usage allocates. Blocks still go back to
    // the allocator that owns them, whatever the usage names when they are
    // freed. Restore the returned allocator before the library unloads,
    // which destroys what each usage then holds. Null for an unknown usage,
    // which changes nothing.
    static Allocator* ExchangeAllocator(AllocatorUsage usage, Allocator* allocator);

    // Factories: the new allocator's object comes from the Native allocator;
    // when it cannot, "Malloc failed: no more available memory" is reported
    // and null returned. Destroy what they make with delete.
    static Allocator* CreatePoolAllocator();
    static Allocator* CreatePackedAllocator(const char* name, u32 fullThreshold);
    static Allocator* CreatePageAllocator();
    static Allocator* CreateMallocAllocator();
    static Allocator* CreateHybridAllocator(Allocator* small, bool ownsSmall, Allocator* big,
                                            bool ownsBig);
    // A hybrid over a private pool allocator and a private packed allocator
    // "PackedAllocator-Hybrid", both owned by it.
    static Allocator* CreateHybridAllocator();
    // A hybrid over a pool and a packed allocator of its own that records
    // every live block, with the tag, file and line of debug allocations
    // (<qel/trackingallocator.h>).
    static Allocator* CreateTrackingAllocator();

    // The page manager's limits in bytes: the first metapage's size (0: no
    // special first metapage), the most taken from the system in total, and
    // the size of every further metapage.
    static void SetPageManagerLimits(u32 firstMetapageSize, u32 maximumSize, u32 metapageStep);
    static void DumpPageManagerStatistics(u32 flags, OutputStream* out);

    // Every dump a memory report needs, one after another, each in its own
    // format, to `out` (the default debugger stream when null): the page
    // manager's usage table with its metapages' rows, stretches and free
    // runs; then for every allocator of the page manager's owner list (a
    // hybrid aside: its allocators are owners themselves) the title
    // "Allocator 0x%08X\t<usage>" (Small, Big, Page or nothing), its usage
    // table and its listing of live blocks; a tracking allocator adds its
    // tags and, when markers are given, its live blocks between them. Save
    // this to a file and `qeltool memory FILE` draws the report from it.
    static void DumpAllStatistics(OutputStream* out, AllocatorStatMarker* from = nullptr,
                                  AllocatorStatMarker* to = nullptr);
    // The memory report of the running process (<qel/memoryreport.h>), read
    // from DumpAllStatistics as it is written. Other threads may allocate
    // meanwhile: each dump is taken under its own allocator's lock, so the
    // sections may differ by what happened in between; allocators must not
    // be created or destroyed meanwhile (the dump walks the page manager's
    // owners). What the report reads and keeps lives on the
    // Native allocator, so it changes nothing it describes. False when
    // memory ran out (the page is then cut short).
    static bool WriteMemoryReport(OutputStream& out, AllocatorStatMarker* from = nullptr,
                                  AllocatorStatMarker* to = nullptr);

    // The "Memory" error category (all bits set before the first allocator
    // is built).
    static u32 GetErrorCategory();

private:
    friend class Allocator;

    static Allocator* InitAllocator(AllocatorUsage usage);
    static Allocator* InitSmallAlloc();
    static Allocator* InitBigAlloc();
    static Allocator* InitGeneralAlloc();
    static Allocator* InitPageAlloc();
    static Allocator* InitNativeAlloc();
    template <AllocatorUsage usage>
    static Allocator* InitUsage(Allocator* (*create)());
    template <AllocatorUsage usage>
    static void Teardown();

    static std::atomic<Allocator*> m_allocators[NumberOfUsages];
    static std::atomic<u32> ms_ErrorCategory;
};

} // namespace qel
