// The page manager: owner list, page runs and their records, counters.
// Metapages are in metapage.cpp, the statistics dump in pagemanagerdump.cpp.
#include <qel/pagemanager.h>

#include <qel/mem.h>
#include <qel/report.h>

#include "base/core/singleton.h"
#include "base/memory/metapage.h"
#include "base/memory/pagemanagernative.h"

#include <new>

namespace qel
{

std::atomic<PageManager*> PageManager::ms_SingletonInstance{nullptr};

namespace
{

// The Native allocator first, so that it outlives the manager, then the
// system side; returns the end of the user address range.
std::uintptr_t PrepareSystem()
{
    Mem::GetNativeAlloc();
    PageManagerNative* native = PageManagerNative::GetSingletonInstancePointer();
    return native ? native->GetHighestAddress() : 0;
}

char* PageAt(void* first, u32 index)
{
    return static_cast<char*>(first) + std::size_t(index) * PageManager::PageSize;
}

} // namespace

PageManager* PageManager::CreateSingletonInstance()
{
    return Singleton<PageManager>::Create(ms_SingletonInstance, "PageManager");
}

PageManager::PageManager(u32 firstMetapageSize, u32 maximumSize, u32 metapageStep)
    : m_FirstMetapageSize(firstMetapageSize), m_MaximumSize(maximumSize),
      m_MetapageStep(metapageStep), m_SystemBytes(0), m_RoomList(nullptr), m_FullList(nullptr),
      m_ByAddress(nullptr), m_NumberOfMetapages(0), m_ByAddressCapacity(0), m_NextAge(0),
      m_Owners(nullptr), m_NumberOfOwners(0), m_Records(PrepareSystem()), m_Statistics()
{
}

PageManager::~PageManager()
{
    ScopedLock<CriticalSection> lock(m_Lock);
    while (m_NumberOfMetapages != 0)
        ReleaseMetapage(m_ByAddress[m_NumberOfMetapages - 1]);
    Allocator* native = Mem::GetNativeAlloc();
    if (native != nullptr)
    {
        native->Free(m_ByAddress);
        native->Free(m_Owners.load(std::memory_order_relaxed));
    }
}

void PageManager::SetLimits(u32 firstMetapageSize, u32 maximumSize, u32 metapageStep)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    m_FirstMetapageSize = firstMetapageSize;
    m_MaximumSize = maximumSize;
    m_MetapageStep = metapageStep;
}

void PageManager::Raise(u32& current, u32& peak, u32 amount)
{
    current += amount;
    if (current > peak)
        peak = current;
}

// ---- owner list -------------------------------------------------------------

u32 PageManager::AddOwner(Allocator* owner)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 existing = GetOwnerIndex(owner);
    if (existing != NoOwner || owner == nullptr)
        return existing;
    std::atomic<Allocator*>* owners = m_Owners.load(std::memory_order_relaxed);
    if (owners == nullptr)
    {
        // All 255 slots at once: FindOwner reads the array without the lock,
        // so it must never move.
        Allocator* native = Mem::GetNativeAlloc();
        void* storage = native ? native->MallocNoThrow(sizeof(*owners) * MaxOwners) : nullptr;
        if (storage == nullptr)
            return NoOwner;
        owners = static_cast<std::atomic<Allocator*>*>(storage);
        for (u32 i = 0; i < MaxOwners; ++i)
            new (&owners[i]) std::atomic<Allocator*>(nullptr);
        m_Owners.store(owners, std::memory_order_release);
    }
    const u32 count = m_NumberOfOwners.load(std::memory_order_relaxed);
    if (count < MaxOwners)
    {
        owners[count].store(owner, std::memory_order_release);
        m_NumberOfOwners.store(count + 1, std::memory_order_release);
        return count;
    }
    for (u32 i = 0; i < count; ++i)
        if (owners[i].load(std::memory_order_relaxed) == nullptr)
        {
            owners[i].store(owner, std::memory_order_release);
            return i;
        }
    return NoOwner;
}

void PageManager::RemoveOwner(Allocator* owner)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 index = GetOwnerIndex(owner);
    if (index == NoOwner)
        return;
    std::atomic<Allocator*>* owners = m_Owners.load(std::memory_order_relaxed);
    owners[index].store(nullptr, std::memory_order_release);
    const u32 count = m_NumberOfOwners.load(std::memory_order_relaxed);
    for (u32 i = 0; i < count; ++i)
        if (owners[i].load(std::memory_order_relaxed) != nullptr)
            return;
    m_NumberOfOwners.store(0, std::memory_order_release);
    m_Owners.store(nullptr, std::memory_order_release);
    if (Allocator* native = Mem::GetNativeAlloc())
        native->Free(owners);
}

u32 PageManager::GetOwnerIndex(const Allocator* owner) const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const std::atomic<Allocator*>* owners = m_Owners.load(std::memory_order_relaxed);
    const u32 count = m_NumberOfOwners.load(std::memory_order_relaxed);
    for (u32 i = 0; owner != nullptr && i < count; ++i)
        if (owners[i].load(std::memory_order_relaxed) == owner)
            return i;
    return NoOwner;
}

// ---- runs -------------------------------------------------------------------

void* PageManager::AllocatePages(Allocator* owner, u32 count, bool toGrow, bool mayMap)
{
    if (count == 0)
        return nullptr;
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 index = GetOwnerIndex(owner);
    if (index == NoOwner)
        return nullptr;
    void* run = TakeFromMetapages(count, toGrow);
    if (run == nullptr)
    {
        if (!mayMap)
            return nullptr;
        Metapage* metapage = CreateMetapage(count);
        if (metapage == nullptr)
            return nullptr;
        run = TakeRun(metapage, count, count);
    }

    const u32 record = index << PageRecordTable::OwnerShift;
    SetRecords(m_Records, run, count, record | PageRecordTable::RunStart, record);
    Raise(m_Statistics.currentUsedPages, m_Statistics.peakUsedPages, count);
    Raise(m_Statistics.currentRequests, m_Statistics.peakRequests, 1);
    return run;
}

void PageManager::ReleasePages(Allocator* owner, void* first, u32 count)
{
    if (first == nullptr || count == 0)
        return;
    m_Lock.Enter();
    Metapage* metapage = FindMetapage(first, count);
    if (metapage == nullptr)
    {
        m_Lock.Leave();
        ReportMissingMetapage(first, count);
        return;
    }
    // Every page must be the caller's: this also catches a double release,
    // which would otherwise corrupt the free-page tree.
    const u32 index = GetOwnerIndex(owner);
    const bool owned = index != NoOwner &&
                       ForEachRecord(m_Records, first, count,
                                     [index](std::atomic<u32>& page, u32) {
                                         return PageRecordTable::OwnerOf(
                                                    page.load(std::memory_order_relaxed)) == index;
                                     });
    if (owned)
        ReleaseRun(metapage, first, count);
    m_Lock.Leave();
    QEL_USAGE_ASSERT(Mem::GetErrorCategory(), owned);
}

bool PageManager::ExtendRun(Allocator* owner, void* first, u32 pages, u32 extra)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 index = GetOwnerIndex(owner);
    Metapage* metapage = FindMetapage(first, pages);
    char* end = PageAt(first, pages);
    if (index == NoOwner || metapage == nullptr || extra == 0 ||
        PageRecordTable::OwnerOf(m_Records.Find(first)->load(std::memory_order_relaxed)) != index ||
        !metapage->Contains(end, extra))
        return false;
    // Counted in pages, the tree never hands out more than asked here.
    u32 taken = extra;
    if (metapage->freePages.GetChunkAt(end, taken, MemChunkTree::MetapageTag) == nullptr)
        return false;
    const u32 record = index << PageRecordTable::OwnerShift;
    SetRecords(m_Records, end, extra, record, record);
    Raise(metapage->usedPages, metapage->peakUsedPages, extra);
    Raise(m_Statistics.currentUsedPages, m_Statistics.peakUsedPages, extra);
    if (metapage->freePages.IsEmpty())
    {
        UnlinkMetapage(metapage);
        metapage->full = true;
        FileMetapage(metapage);
    }
    return true;
}

void* PageManager::MoveRun(Allocator* owner, void* first, u32 pages, u32 newPages)
{
    PageManagerNative* system = PageManagerNative::GetSingletonInstancePointer();
    if (system == nullptr || !system->CanMove() || newPages <= pages)
        return nullptr;
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 index = GetOwnerIndex(owner);
    Metapage* metapage = FindMetapage(first, pages);
    const u32 extra = newPages - pages;
    if (index == NoOwner || metapage == nullptr || metapage->start != first ||
        metapage->pages != pages || metapage->usedPages != pages || metapage->runs != 1 ||
        (metapage->first && m_FirstMetapageSize != 0) ||
        PageRecordTable::OwnerOf(m_Records.Find(first)->load(std::memory_order_relaxed)) != index ||
        u64(m_SystemBytes) + u64(extra) * PageSize > m_MaximumSize)
        return nullptr;
    const std::size_t bytes = std::size_t(pages) * PageSize;
    const std::size_t newBytes = std::size_t(newPages) * PageSize;
    char* target = static_cast<char*>(system->Commit(newBytes, newBytes >= (std::size_t(2) << 20)));
    if (target == nullptr)
        return nullptr;
    if (!m_Records.Add(target, newPages))
    {
        system->Release(target, newBytes);
        return nullptr;
    }
    if (!system->Move(first, bytes, target))
    {
        m_Records.Remove(target, newPages);
        system->Release(target, newBytes);
        return nullptr;
    }
    m_Records.Remove(first, pages);
    const u32 record = index << PageRecordTable::OwnerShift;
    SetRecords(m_Records, target, newPages, record | PageRecordTable::RunStart, record);

    // The metapage keeps its age and its place in the full list, and takes
    // its new place in the address order.
    u32 at = 0;
    while (m_ByAddress[at] != metapage)
        ++at;
    for (; at + 1 < m_NumberOfMetapages && m_ByAddress[at + 1]->start < target; ++at)
        m_ByAddress[at] = m_ByAddress[at + 1];
    for (; at > 0 && m_ByAddress[at - 1]->start > target; --at)
        m_ByAddress[at] = m_ByAddress[at - 1];
    m_ByAddress[at] = metapage;
    metapage->start = target;
    metapage->end = target + newBytes;
    metapage->pages = newPages;
    Raise(metapage->usedPages, metapage->peakUsedPages, extra);
    Raise(m_Statistics.currentSystemPages, m_Statistics.peakSystemPages, extra);
    Raise(m_Statistics.currentUsedPages, m_Statistics.peakUsedPages, extra);
    m_SystemBytes += extra * PageSize;
    return target;
}

u32 PageManager::ReleaseAllPages(Allocator* owner)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 index = GetOwnerIndex(owner);
    if (index == NoOwner)
        return 0;
    u32 released = 0;
    // Backwards: releasing a metapage only moves the entries after it.
    for (u32 m = m_NumberOfMetapages; m-- > 0;)
    {
        Metapage* metapage = m_ByAddress[m];
        for (char* page = metapage->start; page < metapage->end;)
        {
            const u32 pages = RunLength(metapage, page);
            const u32 record = m_Records.Find(page)->load(std::memory_order_relaxed);
            if (pages != 0 && PageRecordTable::OwnerOf(record) == index)
            {
                released += pages;
                if (ReleaseRun(metapage, page, pages))
                    break; // the metapage went back to the system
            }
            page += std::size_t(pages ? pages : 1) * PageSize;
        }
    }
    return released;
}

u32 PageManager::GetRunPages(const void* first) const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const Metapage* metapage = FindMetapage(first, 1);
    return metapage ? RunLength(metapage, first) : 0;
}

u32 PageManager::RunLength(const Metapage* metapage, const void* first) const
{
    const std::atomic<u32>* records = m_Records.Find(first);
    const u32 record =
        records ? records->load(std::memory_order_relaxed) : PageRecordTable::Unowned;
    if ((record & PageRecordTable::RunStart) == 0 || PageRecordTable::OwnerOf(record) == NoOwner)
        return 0;
    // The run goes on while the owner does, up to the next run's first page.
    const u32 owner = record & ~u32(PageRecordTable::RunStart | PageRecordTable::TagMask);
    u32 pages = 1;
    for (const char* page = static_cast<const char*>(first) + PageSize; page < metapage->end;
         page += PageSize, ++pages)
        if ((m_Records.Find(page)->load(std::memory_order_relaxed) &
             ~u32(PageRecordTable::TagMask)) != owner)
            break;
    return pages;
}

void* PageManager::WalkBackToRunStart(const void* p, const std::atomic<u32>* record,
                                      u32 ownerIndex) const
{
    std::uintptr_t page = reinterpret_cast<std::uintptr_t>(p) & ~std::uintptr_t(PageSize - 1);
    for (;;)
    {
        // Records of one region are consecutive: step back in place, and
        // look the region up again only at its first page.
        const bool regionStart =
            ((page >> PageRecordTable::PageShift) & (PageRecordTable::RecordsPerRegion - 1)) == 0;
        page -= PageSize;
        record = regionStart ? m_Records.Find(reinterpret_cast<void*>(page)) : record - 1;
        if (record == nullptr)
            return nullptr;
        const u32 value = record->load(std::memory_order_relaxed);
        if (PageRecordTable::OwnerOf(value) != ownerIndex)
            return nullptr;
        if (value & PageRecordTable::RunStart)
            return reinterpret_cast<void*>(page);
    }
}

void PageManager::ForEachRun(const Allocator* owner,
                             void (*visit)(void* start, u32 pages, void* context),
                             void* context) const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 index = GetOwnerIndex(owner);
    for (u32 m = 0; index != NoOwner && m < m_NumberOfMetapages; ++m)
    {
        const Metapage* metapage = m_ByAddress[m];
        for (char* page = metapage->start; page < metapage->end;)
        {
            const u32 pages = RunLength(metapage, page);
            if (pages != 0 && PageRecordTable::OwnerOf(
                                  m_Records.Find(page)->load(std::memory_order_relaxed)) == index)
                visit(page, pages, context);
            page += std::size_t(pages ? pages : 1) * PageSize;
        }
    }
}

// ---- counters ---------------------------------------------------------------

PageManager::Statistics PageManager::GetStatistics() const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return m_Statistics;
}

u32 PageManager::GetSystemBytes() const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return m_SystemBytes;
}

u32 PageManager::GetNumberOfMetapages() const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return m_NumberOfMetapages;
}

} // namespace qel
