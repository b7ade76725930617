// The page manager's metapages: sizing, committing and releasing them,
// taking page runs from them and giving runs back.
#include "base/memory/metapage.h"

#include <qel/mem.h>

#include "base/memory/memoryreport.h"
#include "base/memory/pagemanagernative.h"

#include <cinttypes>
#include <new>

namespace qel
{

namespace
{

const u64 kPageMask = ~u64(PageManager::PageSize - 1);

} // namespace

void* PageManager::TakeFromMetapages(u32 count, bool toGrow)
{
    if (!toGrow)
    {
        // Oldest first: young metapages stay empty longer and can go back.
        for (Metapage* metapage = m_RoomList; metapage != nullptr; metapage = metapage->next)
            if (metapage->freePages.GetLargestChunk() >= count)
                if (void* run = TakeRun(metapage, count, count))
                    return run;
        return nullptr;
    }
    // The head of the largest stretch, the oldest metapage's among equals:
    // ExtendRun can grow the run there the longest.
    Metapage* roomiest = nullptr;
    u32 largest = count - 1;
    for (Metapage* metapage = m_RoomList; metapage != nullptr; metapage = metapage->next)
        if (metapage->freePages.GetLargestChunk() > largest)
        {
            roomiest = metapage;
            largest = metapage->freePages.GetLargestChunk();
        }
    return roomiest != nullptr ? TakeRun(roomiest, count, largest) : nullptr;
}

void* PageManager::TakeRun(Metapage* metapage, u32 count, u32 stretch)
{
    u32 taken = stretch;
    char* run = static_cast<char*>(metapage->freePages.GetChunk(taken, MemChunkTree::MetapageTag));
    if (run == nullptr)
        return nullptr;
    if (taken > count) // the tree handed out more than asked: keep only that
        metapage->freePages.InsertChunkInTree(run + std::size_t(count) * PageSize, taken - count,
                                              MemChunkTree::MetapageTag);
    Raise(metapage->usedPages, metapage->peakUsedPages, count);
    Raise(metapage->runs, metapage->peakRuns, 1);
    if (metapage->freePages.IsEmpty())
    {
        UnlinkMetapage(metapage);
        metapage->full = true;
        FileMetapage(metapage);
    }
    return run;
}

Metapage* PageManager::CreateMetapage(u32 count)
{
    const u64 need = u64(count) * PageSize;
    u64 size = m_MetapageStep;
    const bool first = m_SystemBytes == 0;
    if (first && m_FirstMetapageSize != 0)
        size = m_FirstMetapageSize;
    size &= kPageMask;
    if (size < need)
        size = need;
    const u64 room =
        (m_MaximumSize > m_SystemBytes ? m_MaximumSize - m_SystemBytes : 0) & kPageMask;
    if (size > room)
        size = room;
    if (size < need)
        return nullptr;

    PageManagerNative* system = PageManagerNative::GetSingletonInstancePointer();
    Allocator* native = Mem::GetNativeAlloc();
    if (system == nullptr || native == nullptr)
        return nullptr;
    const u32 pages = u32(size / PageSize);
    // A metapage sized for one request of 2 MB or more holds one big block.
    const bool oneBlock = size == need && need >= (u64(2) << 20);
    char* start = static_cast<char*>(system->Commit(std::size_t(size), oneBlock));
    void* object = start ? native->MallocNoThrow(sizeof(Metapage)) : nullptr;
    if (m_NumberOfMetapages == m_ByAddressCapacity && object != nullptr)
    {
        const u32 capacity = m_ByAddressCapacity ? m_ByAddressCapacity * 2 : 16;
        void* grown = native->ReAllocNoThrow(m_ByAddress, capacity * u32(sizeof(Metapage*)));
        if (grown != nullptr)
        {
            m_ByAddress = static_cast<Metapage**>(grown);
            m_ByAddressCapacity = capacity;
        }
    }
    if (object == nullptr || m_NumberOfMetapages == m_ByAddressCapacity ||
        !m_Records.Add(start, pages))
    {
        native->Free(object);
        if (start != nullptr)
            system->Release(start, std::size_t(size));
        return nullptr;
    }

    Metapage* metapage = new (object) Metapage(start, pages, m_NextAge++, first);
    metapage->freePages.InsertChunkInTree(start, pages, MemChunkTree::MetapageTag);
    u32 at = m_NumberOfMetapages++;
    for (; at > 0 && m_ByAddress[at - 1]->start > start; --at)
        m_ByAddress[at] = m_ByAddress[at - 1];
    m_ByAddress[at] = metapage;
    FileMetapage(metapage);
    Raise(m_Statistics.currentSystemPages, m_Statistics.peakSystemPages, pages);
    m_SystemBytes += u32(size);
    return metapage;
}

void PageManager::ReleaseMetapage(Metapage* metapage)
{
    UnlinkMetapage(metapage);
    u32 at = 0;
    while (m_ByAddress[at] != metapage)
        ++at;
    for (--m_NumberOfMetapages; at < m_NumberOfMetapages; ++at)
        m_ByAddress[at] = m_ByAddress[at + 1];
    m_Records.Remove(metapage->start, metapage->pages);
    m_Statistics.currentSystemPages -= metapage->pages;
    m_SystemBytes -= metapage->pages * PageSize;
    PageManagerNative::GetSingletonInstance().Release(metapage->start,
                                                      std::size_t(metapage->pages) * PageSize);
    metapage->~Metapage();
    Mem::GetNativeAlloc()->Free(metapage);
}

Metapage* PageManager::FindMetapage(const void* first, u32 count) const
{
    // The last metapage that starts at or below `first`.
    u32 low = 0, high = m_NumberOfMetapages;
    while (low < high)
    {
        const u32 middle = (low + high) / 2;
        if (m_ByAddress[middle]->start <= static_cast<const char*>(first))
            low = middle + 1;
        else
            high = middle;
    }
    Metapage* metapage = low ? m_ByAddress[low - 1] : nullptr;
    return metapage && metapage->Contains(first, count) ? metapage : nullptr;
}

void PageManager::FileMetapage(Metapage* metapage)
{
    Metapage*& head = metapage->full ? m_FullList : m_RoomList;
    Metapage* before = nullptr;
    for (Metapage* other = head; other != nullptr && other->age < metapage->age;
         other = other->next)
        before = other;
    metapage->previous = before;
    metapage->next = before ? before->next : head;
    if (metapage->next)
        metapage->next->previous = metapage;
    (before ? before->next : head) = metapage;
}

void PageManager::UnlinkMetapage(Metapage* metapage)
{
    Metapage*& head = metapage->full ? m_FullList : m_RoomList;
    (metapage->previous ? metapage->previous->next : head) = metapage->next;
    if (metapage->next)
        metapage->next->previous = metapage->previous;
    metapage->next = metapage->previous = nullptr;
}

bool PageManager::ReleaseRun(Metapage* metapage, void* first, u32 count)
{
    const u32 firstRecord = m_Records.Find(first)->load(std::memory_order_relaxed);
    const u32 owner = firstRecord & ~PageRecordTable::RunStart;
    SetRecords(m_Records, first, count, PageRecordTable::Unowned, PageRecordTable::Unowned);

    // A run counts as long as its first page is out: what is left of a run
    // cut at its head or in its middle becomes a run of its own.
    int runs = (firstRecord & PageRecordTable::RunStart) ? -1 : 0;
    char* after = static_cast<char*>(first) + std::size_t(count) * PageSize;
    if (after < metapage->end)
    {
        std::atomic<u32>* next = m_Records.Find(after);
        const u32 value = next->load(std::memory_order_relaxed);
        if ((value & ~u32(PageRecordTable::TagMask)) == (owner & ~u32(PageRecordTable::TagMask)))
        {
            next->store(value | PageRecordTable::RunStart, std::memory_order_relaxed);
            ++runs;
        }
    }

    metapage->freePages.InsertChunkInTree(first, count, MemChunkTree::MetapageTag);
    metapage->usedPages -= count;
    metapage->runs += runs;
    m_Statistics.currentUsedPages -= count;
    m_Statistics.currentRequests += runs;

    if (metapage->usedPages == 0 && !(metapage->first && m_FirstMetapageSize != 0))
    {
        ReleaseMetapage(metapage);
        return true;
    }
    if (metapage->full)
    {
        UnlinkMetapage(metapage);
        metapage->full = false;
        FileMetapage(metapage);
    }
    return false;
}

void PageManager::ReportMissingMetapage(const void* first, u32 count)
{
    memory::ReportFatal(Mem::GetErrorCategory(), __FILE__, __LINE__,
                        "Unable to find the metapage containing page 0x%08" PRIXPTR
                        " [Length: %u] in the metapage manager!",
                        reinterpret_cast<std::uintptr_t>(first), unsigned(count));
}

} // namespace qel
