// The pool allocator's statistics dumps.
#include <qel/debuggerstream.h>
#include <qel/mem.h>
#include <qel/outputstream.h>
#include <qel/pagemanager.h>
#include <qel/poolallocator.h>
#include <qel/report.h>

#include "base/memory/dumpwriter.h"
#include "base/memory/poolallocatorpage.h"
#include "base/memory/threadcache.h"

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <initializer_list>

namespace qel
{

namespace
{

typedef PoolAllocatorPage Page;
using memory::Address;

// The free runs of a page, in address order. False when the free list is
// damaged: a run outside the blocks or empty, more than 256 runs, or counts
// that do not add up to the free blocks.
bool CollectRuns(Page* page, u32 (&offsets)[256], u32 (&counts)[256], u32& number)
{
    const u32 end = Page::HeaderSize + u32(page->blocksHeld) * page->blockSize;
    u32 free = 0;
    number = 0;
    for (u32 offset = page->OffsetOf(page->freeHead); offset != 0;)
    {
        if (offset < Page::HeaderSize || offset >= Page::Size || number == 256 ||
            (offset - Page::HeaderSize) % page->blockSize != 0)
            return false;
        const Page::Run* run = page->RunAt(offset);
        if (run->count == 0 || offset + run->count * page->blockSize > end)
            return false;
        offsets[number] = offset;
        counts[number] = run->count;
        free += run->count;
        ++number;
        offset = page->OffsetOf(run->next);
    }
    if (free != u32(page->blocksHeld) - page->blocksInUse)
        return false;
    // Sort the runs by address, keeping each count with its run.
    u32 order[256];
    for (u32 i = 0; i < number; ++i)
        order[i] = i;
    std::sort(order, order + number, [&](u32 a, u32 b) { return offsets[a] < offsets[b]; });
    u32 sortedOffsets[256], sortedCounts[256];
    for (u32 i = 0; i < number; ++i)
    {
        sortedOffsets[i] = offsets[order[i]];
        sortedCounts[i] = counts[order[i]];
    }
    std::copy(sortedOffsets, sortedOffsets + number, offsets);
    std::copy(sortedCounts, sortedCounts + number, counts);
    return true;
}

void ListAllocations(OutputStream& out, Page* page, const u32* offsets, const u32* counts,
                     u32 number)
{
    memory::Print(out, "%-12s\t%12s\r\n", "Address", "Used size");
    u32 run = 0;
    for (u32 i = 0; i < page->blocksHeld; ++i)
    {
        const u32 offset = Page::HeaderSize + i * page->blockSize;
        if (run < number && offset >= offsets[run])
        {
            // Skip the run; the loop's increment moves past its last block.
            i += counts[run] - 1;
            ++run;
            continue;
        }
        memory::Print(out, "0x%08" PRIXPTR "\t%14u\r\n", Address(page->Base() + offset),
                      unsigned(page->blockSize));
    }
    memory::Print(out, "Number of allocations: %u\tMax number of allocations: %u\r\n\r\n",
                  unsigned(page->blocksInUse), unsigned(page->blocksHeld));
}

void ListFreeRuns(OutputStream& out, Page* page, const u32* offsets, const u32* counts, u32 number)
{
    if (page->IsFull())
        return;
    memory::Print(out,
                  "\r\nFreelist PoolAllocatorPage: 0x%08" PRIXPTR
                  "(max alloc size: %u bytes)\r\n%-12s\t%12s\r\n",
                  Address(page), unsigned(page->blockSize), "Address", "size");
    for (u32 i = 0; i < number; ++i)
        memory::Print(out, "0x%08" PRIXPTR "\t%14u\r\n", Address(page->Base() + offsets[i]),
                      unsigned(counts[i]));
    memory::Print(out, "Number of nodes: %u\r\n", unsigned(number));
}

} // namespace

void PoolAllocator::DumpPages(OutputStream& out, bool allocations)
{
    PageManager& pages = PageManager::GetSingletonInstance();
    for (const Pool& pool : m_Pools)
    {
        if (allocations && (pool.fullFirst || pool.freeFirst))
            memory::Print(out, "Pool: %u bytes\r\n", unsigned(pool.blockSize));
        for (Page* first : {pool.fullFirst, pool.freeFirst})
        {
            for (Page* page = first; page; page = page->next)
            {
                Allocator* marked = pages.FindOwner(page);
                if (marked != this)
                {
                    QEL_WARNING(Mem::GetErrorCategory(),
                                "Invalid Page Owner while dumping memory statistics!. Allocator: "
                                "0x%08" PRIXPTR ". Page: 0x%08" PRIXPTR
                                ". Marked Owner: 0x%08" PRIXPTR "\n",
                                Address(this), Address(page), Address(marked));
                    continue;
                }
                u32 offsets[256], counts[256], number = 0;
                if (!CollectRuns(page, offsets, counts, number))
                    continue; // a damaged page is left out silently
                if (allocations)
                    ListAllocations(out, page, offsets, counts, number);
                else
                    ListFreeRuns(out, page, offsets, counts, number);
            }
        }
    }
}

void PoolAllocator::DumpStatistics(u32 flags, AllocatorStatMarker*, AllocatorStatMarker*,
                                   OutputStream* stream, char* title)
{
    // This allocator keeps no history: the markers bound nothing.
    ScopedLock<CriticalSection> lock(m_Lock);
    if (m_Caches != nullptr)
        m_Caches->FlushOwn();
    OutputStream& out = stream ? *stream : DebuggerStream::GetDefaultInstance();
    if (title)
        memory::WriteText(out, title);

    if (flags & DumpUsage)
    {
        memory::Print(out,
                      "\r\nDumping usage statistics for PoolAllocator 0x%08" PRIXPTR
                      "\tOverhead per alloc: %u\r\n",
                      Address(this), 0u);
        AllocatorStatistics::DumpHeader(out, "Pool Size");
        for (const Pool& pool : m_Pools)
        {
            char name[16];
            std::snprintf(name, sizeof name, "%u", unsigned(pool.blockSize));
            pool.statistics.DumpRow(out, name);
        }
        m_Totals.DumpRow(out, "TOTAL");
        if (const u32 held = m_Caches != nullptr ? m_Caches->HeldByOtherThreads() : 0)
            memory::Print(out, "Blocks held in other threads' caches: %u\r\n", unsigned(held));
        memory::Print(out, "\r\n");
    }
    if (flags & DumpTags)
        memory::Print(out,
                      "\r\nDumping tags statistics for PoolAllocator 0x%08" PRIXPTR
                      "\tOverhead per alloc: %u\r\n",
                      Address(this), 0u);
    if (flags & DumpAllocations)
    {
        bool any = false;
        for (const Pool& pool : m_Pools)
            any = any || pool.fullFirst || pool.freeFirst;
        if (any)
        {
            memory::Print(out, "\r\nDumping allocations for PoolAllocator 0x%08" PRIXPTR "\r\n",
                          Address(this));
            DumpPages(out, true);
            memory::Print(out, "\r\nEnd of allocations for PoolAllocator 0x%08" PRIXPTR "\r\n",
                          Address(this));
        }
    }
    if (flags & DumpFreeLists)
    {
        memory::Print(out, "\r\nDumping freelists for PoolAllocator 0x%08" PRIXPTR "\r\n",
                      Address(this));
        DumpPages(out, false);
        memory::Print(out, "\r\nEnd of freelists for PoolAllocator 0x%08" PRIXPTR "\r\n",
                      Address(this));
    }
    out.Flush();
}

} // namespace qel
