// The page manager's statistics dump. Rows are formatted on the stack and
// written to the stream: the dump allocates nothing.
#include "base/memory/dumpwriter.h"
#include "base/memory/metapage.h"

#include <qel/debuggerstream.h>
#include <qel/outputstream.h>

#include <cinttypes>
#include <cstdio>

namespace qel
{

using memory::Address;
using memory::Print;

namespace
{

const char kUsageRow[] = "%-20s\t%18u\t%20u\t%18u\t%18u\t%20u%18u\t\r\n";

// The metapages in age order: the merge of the two lists, each oldest first.
class ByAge
{
public:
    ByAge(const Metapage* room, const Metapage* full) : m_Room(room), m_Full(full) {}

    const Metapage* Next()
    {
        const Metapage*& from =
            (m_Full == nullptr || (m_Room != nullptr && m_Room->age < m_Full->age)) ? m_Room
                                                                                    : m_Full;
        const Metapage* metapage = from;
        if (from != nullptr)
            from = from->next;
        return metapage;
    }

private:
    const Metapage* m_Room;
    const Metapage* m_Full;
};

} // namespace

void PageManager::DumpStatistics(u32 flags, OutputStream* out) const
{
    OutputStream& stream = out ? *out : DebuggerStream::GetDefaultInstance();
    ScopedLock<CriticalSection> lock(m_Lock);

    if (flags & DumpUsage)
    {
        Print(stream, "\r\nDumping memory usage statistics for PageManager\r\n");
        Print(stream, "%-20s\t%18s\t%20s\t%18s\t%18s\t%20s%18s\t\r\n", "Desc", "Curr. nbr requests",
              "Curr. nbr used pages", "Curr nbr OS pages", "Peak nbr requests",
              "Peak nbr used pages", "Peak nbr OS pages");
        if (flags & DumpMetapageRows)
        {
            ByAge metapages(m_RoomList, m_FullList);
            while (const Metapage* metapage = metapages.Next())
            {
                char name[32];
                std::snprintf(name, sizeof name, "meta-%u", unsigned(metapage->age));
                Print(stream, kUsageRow, name, unsigned(metapage->runs),
                      unsigned(metapage->usedPages), unsigned(metapage->pages),
                      unsigned(metapage->peakRuns), unsigned(metapage->peakUsedPages),
                      unsigned(metapage->pages));
            }
        }
        const Statistics& s = m_Statistics;
        Print(stream, kUsageRow, "Total", unsigned(s.currentRequests), unsigned(s.currentUsedPages),
              unsigned(s.currentSystemPages), unsigned(s.peakRequests), unsigned(s.peakUsedPages),
              unsigned(s.peakSystemPages));
    }

    if (flags & (DumpRuns | DumpFreeRuns))
    {
        ByAge metapages(m_RoomList, m_FullList);
        while (const Metapage* metapage = metapages.Next())
            DumpMetapage(*metapage, flags, stream);
    }

    if (stream.HasPendingBlock())
        stream.Flush();
}

void PageManager::DumpMetapage(const Metapage& metapage, u32 flags, OutputStream& out) const
{
    const u32 freeRuns = metapage.freePages.GetNumberOfChunks();
    if (!((flags & DumpRuns) && metapage.usedPages != 0) &&
        !((flags & DumpFreeRuns) && freeRuns != 0))
        return;
    Print(out,
          "\r\nMetapage statistics:\r\nAge: %u\tMetapage Range: [0x%08" PRIXPTR ", 0x%08" PRIXPTR
          "[\tPages used: %u\tNbr of pages:%u\r\n[%10s, %10s[\t%12s\t%8s\r\n",
          unsigned(metapage.age), Address(metapage.start), Address(metapage.end),
          unsigned(metapage.usedPages), unsigned(metapage.pages), "Start", "End", "Nbr Pages",
          "Owner");

    if (flags & DumpRuns)
    {
        // The used stretches between the free ones, and the free ones, in
        // address order. A used stretch may hold runs of several owners;
        // the owner shown is its first page's.
        const std::atomic<Allocator*>* owners = m_Owners.load(std::memory_order_relaxed);
        for (const char* page = metapage.start; page < metapage.end;)
        {
            const u32 first = m_Records.Find(page)->load(std::memory_order_relaxed);
            const bool used = first != PageRecordTable::Unowned;
            u32 pages = 1;
            for (; page + std::size_t(pages) * PageSize < metapage.end; ++pages)
                if ((m_Records.Find(page + std::size_t(pages) * PageSize)
                         ->load(std::memory_order_relaxed) != PageRecordTable::Unowned) != used)
                    break;
            const char* end = page + std::size_t(pages) * PageSize;
            if (used)
            {
                const u32 index = PageRecordTable::OwnerOf(first);
                const Allocator* owner =
                    owners ? owners[index].load(std::memory_order_relaxed) : nullptr;
                Print(out, "[0x%08" PRIXPTR ", 0x%08" PRIXPTR "[\t%12u\t0x%08" PRIXPTR "\r\n",
                      Address(page), Address(end), unsigned(pages), Address(owner));
            }
            else
            {
                Print(out, "[0x%08" PRIXPTR ", 0x%08" PRIXPTR "[\t%12u\t  unused\r\n",
                      Address(page), Address(end), unsigned(pages));
            }
            page = end;
        }
    }
    if (flags & DumpFreeRuns)
        Print(out, "Nbr of unused pages nodes: %u\r\n", unsigned(freeRuns));
}

} // namespace qel
