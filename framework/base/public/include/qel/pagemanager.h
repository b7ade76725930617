// The page manager: the process-wide source of 4096-byte pages for the
// page-based allocators.
//
// It takes memory from the system in large blocks, metapages, hands out runs
// of contiguous pages from them to owner allocators and records every page's
// owner, so that Allocator::GetOwner finds the owner of any address without a
// lock. Metapages are tried oldest first, which leaves the young ones free to
// go back to the system as soon as they are empty.
//
// Three limits, in bytes, shape what it takes from the system:
//   first metapage size  the first metapage, kept for the life of the manager
//                        (0: no special first metapage, nothing is kept);
//                        default 32 MB, so that memory that comes and goes
//                        below that (start-up and shutdown, a buffer grown
//                        to a megabyte and dropped again and again) is not
//                        mapped, first touched and unmapped each time: on a
//                        virtual machine a first touch costs microseconds a
//                        page. Only the pages used are resident, but those
//                        stay resident for the life of the manager.
//   maximum size         the most taken from the system in total; default
//                        0xFFFFF000, i.e. whatever the system gives
//   metapage step        the size of every further metapage; default 4 MB
// A request larger than the step gets a metapage of exactly its size; one
// past the maximum gets what is left if that is enough, else nothing.
//
// A metapage made for one request of 2 MB or more holds one big block that
// is usually filled whole (a document, a vector, a parsed file's nodes): on
// Linux it is offered to the kernel for transparent huge pages, which makes
// its first touch one fault per 2 MB instead of 512 and its use cheaper on
// the TLB. Where the kernel compacts memory for advised mappings (the
// default "madvise" defrag setting), that first touch may wait on
// compaction when memory is fragmented. Metapages made for smaller requests
// hold many small blocks and are never advised, so that a few live blocks
// do not keep whole huge pages resident.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/pagerecordtable.h>
#include <qel/types.h>

#include <atomic>

namespace qel
{

class Allocator;
class OutputStream;
struct Metapage;

class QEL_API PageManager
{
public:
    QEL_ALLOCATION_OPERATORS

    enum : u32
    {
        PageSize = 4096,
        NoOwner = PageRecordTable::NoOwner,
        // Owner indices stay below NoOwner.
        MaxOwners = 255,

        DefaultFirstMetapageSize = 32u << 20,
        DefaultMaximumSize = 0xFFFFF000u,
        DefaultMetapageStep = 4u << 20,
    };

    // DumpStatistics flags.
    enum DumpFlags : u32
    {
        DumpUsage = 1,         // the usage table
        DumpRuns = 2,          // per metapage: its used and free stretches
        DumpFreeRuns = 8,      // per metapage: its number of free runs
        DumpMetapageRows = 16, // with DumpUsage: one row per metapage
    };

    struct Statistics
    {
        u32 currentSystemPages;
        u32 currentUsedPages;
        u32 currentRequests;
        u32 peakSystemPages;
        u32 peakUsedPages;
        u32 peakRequests;
    };

    // The process-wide manager, created on first use; Allocator::GetOwner
    // and the shared allocators use it.
    static PageManager& GetSingletonInstance() { return *GetSingletonInstancePointer(); }
    static PageManager* GetSingletonInstancePointer()
    {
        PageManager* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? instance : CreateSingletonInstance();
    }
    static PageManager& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }

    // A manager of its own, apart from the process-wide one (tests, tools):
    // GetOwner does not see its pages.
    explicit PageManager(u32 firstMetapageSize = DefaultFirstMetapageSize,
                         u32 maximumSize = DefaultMaximumSize,
                         u32 metapageStep = DefaultMetapageStep);
    // Gives every metapage back to the system.
    ~PageManager();

    // Keeps `tag` (0 to 255) in the record of `page`, one of the caller's
    // own pages, until the page is released. Lock-free.
    void SetPageTag(const void* page, u32 tag)
    {
        std::atomic<u32>* record = m_Records.Find(page);
        record->store((record->load(std::memory_order_relaxed) & ~u32(PageRecordTable::TagMask)) |
                          (tag & PageRecordTable::TagMask),
                      std::memory_order_relaxed);
    }

    PageManager(const PageManager&) = delete;
    PageManager& operator=(const PageManager&) = delete;

    void SetLimits(u32 firstMetapageSize, u32 maximumSize, u32 metapageStep);
    u32 GetFirstMetapageSize() const { return m_FirstMetapageSize; }
    u32 GetMaximumSize() const { return m_MaximumSize; }
    u32 GetMetapageStep() const { return m_MetapageStep; }

    // A run of `count` contiguous pages for `owner` (which must be in the
    // owner list), or null. It takes the best fitting free stretch of the
    // oldest metapage that has one; a run expected to grow (`toGrow`) takes
    // the head of the largest stretch instead, so that ExtendRun can grow it
    // the longest. A new metapage is made only when no stretch holds it, and
    // only when `mayMap`: a caller with pages of its own to fall back on asks
    // first without.
    void* AllocatePages(Allocator* owner, u32 count, bool toGrow = false, bool mayMap = true);
    // Gives back `count` pages from `first`. A run that lies in no metapage
    // is a fatal error.
    void ReleasePages(Allocator* owner, void* first, u32 count);
    // Grows the run of `pages` pages at `first` by the `extra` pages right
    // behind it, when they are free in the same metapage; false, with
    // nothing changed, otherwise. Blocks at the end of a run grow in place.
    bool ExtendRun(Allocator* owner, void* first, u32 pages, u32 extra);
    // Moves the run of `pages` pages at `first` elsewhere with `newPages`
    // pages (more), without copying its pages, when the system can move
    // pages (Linux) and the run fills its metapage alone, as a run made for
    // one request larger than the metapage step does: the metapage moves
    // and grows with it. Returns the run's new address; null, with nothing
    // changed, otherwise. The pages behind the old ones are fresh.
    void* MoveRun(Allocator* owner, void* first, u32 pages, u32 newPages);
    // Gives back every page of `owner`; returns how many.
    u32 ReleaseAllPages(Allocator* owner);
    // The number of pages of the run handed out at `first`; 0 when `first`
    // is not the start of a run.
    u32 GetRunPages(const void* first) const;
    // Visits the runs `owner` holds, in address order per metapage.
    void ForEachRun(const Allocator* owner, void (*visit)(void* start, u32 pages, void* context),
                    void* context) const;

    // Owner list. An owner keeps its index until it leaves; free slots are
    // taken again only once 255 indices have been handed out, so pages that
    // outlive their owner are not mistaken for a newcomer's. AddOwner
    // returns the index, NoOwner when the list is full.
    u32 AddOwner(Allocator* owner);
    void RemoveOwner(Allocator* owner);
    u32 GetOwnerIndex(const Allocator* owner) const;
    u32 GetNumberOfOwners() const { return m_NumberOfOwners.load(std::memory_order_acquire); }
    // The owner of index `index`; null for a free slot and past the list.
    // Lock-free.
    Allocator* GetOwnerAt(u32 index) const
    {
        const std::atomic<Allocator*>* owners = m_Owners.load(std::memory_order_acquire);
        return owners && index < (GetNumberOfOwners() & 0xFF)
                   ? owners[index].load(std::memory_order_acquire)
                   : nullptr;
    }

    // The owner of the page holding `p`, null when there is none. Lock-free.
    Allocator* FindOwner(const void* p) const
    {
        const std::atomic<u32>* record = m_Records.Find(p);
        if (record == nullptr)
            return nullptr;
        const u32 index = PageRecordTable::OwnerOf(record->load(std::memory_order_relaxed));
        if (index == NoOwner || index >= (m_NumberOfOwners.load(std::memory_order_acquire) & 0xFF))
            return nullptr;
        return m_Owners.load(std::memory_order_acquire)[index].load(std::memory_order_acquire);
    }

    // The first page of the run that holds `p` (a run handed out in one
    // AllocatePages call, or what is left of one), when the page of `p`
    // belongs to the owner of index `ownerIndex`; null otherwise. Lock-free,
    // like FindOwner: the caller owns the run, so its records cannot change
    // meanwhile. Walks back one record per page between the run's start and
    // `p`.
    void* FindRunStart(const void* p, u32 ownerIndex) const
    {
        const std::atomic<u32>* record = m_Records.Find(p);
        if (record == nullptr)
            return nullptr;
        const u32 value = record->load(std::memory_order_relaxed);
        if (PageRecordTable::OwnerOf(value) != ownerIndex || ownerIndex == NoOwner)
            return nullptr;
        if (value & PageRecordTable::RunStart)
            return reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(p) &
                                           ~std::uintptr_t(PageSize - 1));
        return WalkBackToRunStart(p, record, ownerIndex);
    }

    Statistics GetStatistics() const;
    // Bytes currently taken from the system.
    u32 GetSystemBytes() const;
    u32 GetNumberOfMetapages() const;
    const PageRecordTable& GetRecords() const { return m_Records; }

    // Writes the statistics (see DumpFlags) to `out`, the default debugger
    // stream when null.
    void DumpStatistics(u32 flags, OutputStream* out) const;

    CriticalSection& GetLock() const { return m_Lock; }

private:
    template <class T, class Storage>
    friend class Singleton;

    static PageManager* CreateSingletonInstance();

    // Metapages (metapage.cpp).
    void* TakeFromMetapages(u32 count, bool toGrow);
    // The head of the smallest free stretch of at least `stretch` pages;
    // `count` of them are taken.
    void* TakeRun(Metapage* metapage, u32 count, u32 stretch);
    Metapage* CreateMetapage(u32 count);
    void ReleaseMetapage(Metapage* metapage);
    Metapage* FindMetapage(const void* first, u32 count) const;
    void FileMetapage(Metapage* metapage);
    void UnlinkMetapage(Metapage* metapage);
    // Gives a run back; true when its metapage went back to the system.
    bool ReleaseRun(Metapage* metapage, void* first, u32 count);
    static void ReportMissingMetapage(const void* first, u32 count);

    u32 RunLength(const Metapage* metapage, const void* first) const;
    void* WalkBackToRunStart(const void* p, const std::atomic<u32>* record, u32 ownerIndex) const;
    void DumpMetapage(const Metapage& metapage, u32 flags, OutputStream& out) const;

    static void Raise(u32& current, u32& peak, u32 amount);

    u32 m_FirstMetapageSize;
    u32 m_MaximumSize;
    u32 m_MetapageStep;
    u32 m_SystemBytes;

    // Metapages with free pages and full ones, each oldest first; and all
    // of them by address, for the release path's search.
    Metapage* m_RoomList;
    Metapage* m_FullList;
    Metapage** m_ByAddress;
    u32 m_NumberOfMetapages;
    u32 m_ByAddressCapacity;
    u32 m_NextAge;

    // Read without the lock by FindOwner: the slot array is made whole (255
    // slots) on the first AddOwner and never moves while owners exist.
    std::atomic<std::atomic<Allocator*>*> m_Owners;
    std::atomic<u32> m_NumberOfOwners;

    PageRecordTable m_Records;
    Statistics m_Statistics;
    mutable CriticalSection m_Lock;

    static std::atomic<PageManager*> ms_SingletonInstance;
};

} // namespace qel
