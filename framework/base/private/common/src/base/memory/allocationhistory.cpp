#include "base/memory/allocationhistory.h"

#include <qel/allocatorstatistics.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>

#include <algorithm>
#include <cstring>

namespace qel
{

namespace
{

const u32 kFirstCapacity = 1024;

void* NativeMalloc(std::size_t bytes)
{
    Allocator* native = Mem::GetNativeAlloc();
    return native && bytes <= 0xFFFFFFFFu ? native->MallocNoThrow(unsigned(bytes)) : nullptr;
}

void NativeFree(void* p)
{
    if (p != nullptr)
        Mem::GetNativeAlloc()->Free(p);
}

u32 HashAddress(std::uintptr_t address)
{
    // Blocks are at least 8 bytes apart: the low bits carry nothing.
    const u64 mixed = u64(address >> 3) * 0x9E3779B97F4A7C15ull;
    return u32(mixed >> 32);
}

u32 HashSite(const char* tag, const char* file, u32 line)
{
    const u64 mixed = (u64(reinterpret_cast<std::uintptr_t>(tag)) * 31 +
                       u64(reinterpret_cast<std::uintptr_t>(file))) *
                          0x9E3779B97F4A7C15ull +
                      line;
    return u32(mixed >> 29);
}

char* CopyText(const char* text)
{
    if (text == nullptr)
        text = "";
    const std::size_t length = std::strlen(text);
    char* copy = static_cast<char*>(NativeMalloc(length + 1));
    if (copy != nullptr)
        std::memcpy(copy, text, length + 1);
    return copy;
}

} // namespace

AllocationHistory::AllocationHistory() = default;

AllocationHistory::~AllocationHistory()
{
    for (u32 i = 0; i < m_SiteCount; ++i)
    {
        NativeFree(m_Sites[i].tag);
        NativeFree(m_Sites[i].file);
    }
    NativeFree(m_Sites);
    NativeFree(m_SiteIndex);
    NativeFree(m_Records);
}

void AllocationHistory::SetOwners(Allocator* small, Allocator* big)
{
    m_Owners[0] = small;
    m_Owners[1] = big;
}

bool AllocationHistory::Owns(const Allocator* allocator) const
{
    return allocator != nullptr && (allocator == m_Owners[0] || allocator == m_Owners[1]);
}

// ---- records ----------------------------------------------------------------

AllocationHistory::Record* AllocationHistory::Find(std::uintptr_t address) const
{
    if (m_Capacity == 0)
        return nullptr;
    const u32 mask = m_Capacity - 1;
    for (u32 i = HashAddress(address) & mask;; i = (i + 1) & mask)
    {
        if (m_Records[i].address == address)
            return &m_Records[i];
        if (m_Records[i].address == 0)
            return nullptr;
    }
}

void AllocationHistory::Insert(const Record& record)
{
    const u32 mask = m_Capacity - 1;
    u32 i = HashAddress(record.address) & mask;
    while (m_Records[i].address != 0)
        i = (i + 1) & mask;
    m_Records[i] = record;
}

bool AllocationHistory::Grow()
{
    const u32 capacity = m_Capacity ? m_Capacity * 2 : kFirstCapacity;
    Record* records = static_cast<Record*>(NativeMalloc(std::size_t(capacity) * sizeof(Record)));
    if (records == nullptr || capacity == 0)
        return false;
    std::memset(records, 0, std::size_t(capacity) * sizeof(Record));
    Record* old = m_Records;
    const u32 oldCapacity = m_Capacity;
    m_Records = records;
    m_Capacity = capacity;
    for (u32 i = 0; i < oldCapacity; ++i)
        if (old[i].address != 0)
            Insert(old[i]);
    NativeFree(old);
    return true;
}

void AllocationHistory::Erase(Record* slot)
{
    m_Totals.allocations -= 1;
    m_Totals.requested -= slot->size;
    --m_Count;
    // Shift back the records of the cluster behind the hole that may not
    // stay past it.
    const u32 mask = m_Capacity - 1;
    u32 hole = u32(slot - m_Records);
    for (u32 i = (hole + 1) & mask; m_Records[i].address != 0; i = (i + 1) & mask)
    {
        const u32 home = HashAddress(m_Records[i].address) & mask;
        if (((i - home) & mask) >= ((i - hole) & mask))
        {
            m_Records[hole] = m_Records[i];
            hole = i;
        }
    }
    m_Records[hole].address = 0;
}

void AllocationHistory::Put(const void* p, u32 size, u32 site)
{
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(p);
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 position = m_Next++;
    if (Record* slot = Find(address))
        Erase(slot);
    if ((m_Count + 1) * 4 > m_Capacity * 3 && !Grow())
        return;
    Insert(Record{address, size, position, site});
    ++m_Count;
    AllocatorStatistics::Raise(m_Totals.allocations, m_Totals.peakAllocations, 1);
    AllocatorStatistics::Raise(m_Totals.requested, m_Totals.peakRequested, size);
}

void AllocationHistory::Remove(const void* p)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (Record* slot = Find(reinterpret_cast<std::uintptr_t>(p)))
        Erase(slot);
}

bool AllocationHistory::Take(const void* p, Record& record)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    Record* slot = Find(reinterpret_cast<std::uintptr_t>(p));
    if (slot == nullptr)
        return false;
    record = *slot;
    Erase(slot);
    return true;
}

void AllocationHistory::Restore(const Record& record)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if ((m_Count + 1) * 4 > m_Capacity * 3 && !Grow())
        return;
    Insert(record);
    ++m_Count;
    AllocatorStatistics::Raise(m_Totals.allocations, m_Totals.peakAllocations, 1);
    AllocatorStatistics::Raise(m_Totals.requested, m_Totals.peakRequested, record.size);
}

void AllocationHistory::SetSite(const void* p, u32 site)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (Record* slot = Find(reinterpret_cast<std::uintptr_t>(p)))
        slot->site = site;
}

void AllocationHistory::RemoveOwned(const Allocator* owner)
{
    PageManager& pages = PageManager::GetSingletonInstance();
    ScopedLock<CriticalSection> lock(m_Lock);
    for (u32 i = 0; i < m_Capacity;)
    {
        Record& record = m_Records[i];
        // Erasing may shift a later record into this slot: look again.
        if (record.address != 0 &&
            pages.FindOwner(reinterpret_cast<void*>(record.address)) == owner)
            Erase(&record);
        else
            ++i;
    }
}

// ---- call sites -------------------------------------------------------------

u32 AllocationHistory::Site(const char* tag, const char* file, u32 line)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    u32 mask = m_SiteIndexCapacity - 1;
    u32 i = HashSite(tag, file, line) & mask;
    if (m_SiteIndexCapacity != 0)
        for (; m_SiteIndex[i] != 0; i = (i + 1) & mask)
        {
            const CallSite& site = m_Sites[m_SiteIndex[i] - 1];
            if (site.tagKey == tag && site.fileKey == file && site.line == line)
                return m_SiteIndex[i];
        }
    // A new site. Both tables grow by doubling, the index at half full.
    if (m_SiteCount == m_SiteCapacity)
    {
        const u32 capacity = m_SiteCapacity ? m_SiteCapacity * 2 : 64;
        CallSite* sites =
            static_cast<CallSite*>(NativeMalloc(std::size_t(capacity) * sizeof(CallSite)));
        if (sites == nullptr)
            return 0;
        if (m_SiteCount != 0)
            std::memcpy(sites, m_Sites, m_SiteCount * sizeof(CallSite));
        NativeFree(m_Sites);
        m_Sites = sites;
        m_SiteCapacity = capacity;
    }
    if ((m_SiteCount + 1) * 2 > m_SiteIndexCapacity)
    {
        const u32 capacity = m_SiteIndexCapacity ? m_SiteIndexCapacity * 2 : 128;
        u32* index = static_cast<u32*>(NativeMalloc(std::size_t(capacity) * sizeof(u32)));
        if (index == nullptr)
            return 0;
        std::memset(index, 0, std::size_t(capacity) * sizeof(u32));
        for (u32 n = 1; n <= m_SiteCount; ++n)
        {
            const CallSite& site = m_Sites[n - 1];
            u32 j = HashSite(site.tagKey, site.fileKey, site.line) & (capacity - 1);
            while (index[j] != 0)
                j = (j + 1) & (capacity - 1);
            index[j] = n;
        }
        NativeFree(m_SiteIndex);
        m_SiteIndex = index;
        m_SiteIndexCapacity = capacity;
        mask = capacity - 1;
        for (i = HashSite(tag, file, line) & mask; m_SiteIndex[i] != 0; i = (i + 1) & mask)
        {
        }
    }
    char* tagText = CopyText(tag);
    char* fileText = CopyText(file);
    if (tagText == nullptr || fileText == nullptr)
    {
        NativeFree(tagText);
        NativeFree(fileText);
        return 0;
    }
    m_Sites[m_SiteCount] = CallSite{tag, file, line, tagText, fileText};
    m_SiteIndex[i] = ++m_SiteCount;
    return m_SiteCount;
}

// ---- reading ----------------------------------------------------------------

u32 AllocationHistory::GetPosition() const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return m_Next;
}

AllocationHistory::Totals AllocationHistory::GetTotals() const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return m_Totals;
}

AllocationHistory::Listed* AllocationHistory::List(u32 from, u32 to, u32& count) const
{
    count = 0;
    Listed* list = nullptr;
    {
        ScopedLock<CriticalSection> lock(m_Lock);
        if (m_Count == 0)
            return nullptr;
        list = static_cast<Listed*>(NativeMalloc(std::size_t(m_Count) * sizeof(Listed)));
        if (list == nullptr)
            return nullptr;
        for (u32 i = 0; i < m_Capacity; ++i)
        {
            const Record& record = m_Records[i];
            if (record.address == 0 || record.position < from || record.position >= to)
                continue;
            const CallSite* site = record.site ? &m_Sites[record.site - 1] : nullptr;
            // The site texts are never freed while the history lives.
            list[count++] = Listed{record.address,         record.size,
                                   record.position,        site ? site->tag : "",
                                   site ? site->file : "", site ? site->line : 0};
        }
    }
    std::sort(list, list + count,
              [](const Listed& a, const Listed& b) { return a.position < b.position; });
    return list;
}

void AllocationHistory::FreeList(Listed* list)
{
    NativeFree(list);
}

} // namespace qel
