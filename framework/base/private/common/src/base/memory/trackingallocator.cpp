#include <qel/trackingallocator.h>

#include <qel/debuggerstream.h>
#include <qel/mem.h>
#include <qel/outputstream.h>
#include <qel/packedallocator.h>
#include <qel/poolallocator.h>

#include "base/memory/allocationhistory.h"
#include "base/memory/dumpwriter.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>

namespace qel
{

namespace
{

// A pool or packed allocator whose blocks are recorded in a history. Every
// way a block comes or goes passes here, whoever calls: the hybrid above,
// or the owner lookup of a delete. A record is dropped before its block
// goes, so that another thread given the same address records it anew.
template <class Base>
class Tracked final : public Base
{
public:
    template <class... Arguments>
    explicit Tracked(AllocationHistory& history, Arguments... arguments)
        : Base(arguments...), m_History(history)
    {
    }

    void* MallocNoThrow(unsigned int size) override
    {
        void* p = Base::MallocNoThrow(size);
        if (p != nullptr)
            m_History.Put(p, size, 0);
        return p;
    }
    void* MallocDebugNoThrow(unsigned int size, const char* tag, const char* file,
                             u32 line) override
    {
        void* p = MallocNoThrow(size);
        if (p != nullptr)
            m_History.SetSite(p, m_History.Site(tag, file, line));
        return p;
    }
    void Free(const void* p) override
    {
        m_History.Remove(p);
        Base::Free(p);
    }
    void FreeDebug(const void* p, const char*, u32) override { Free(p); }
    void FreeAll() override
    {
        m_History.RemoveOwned(this);
        Base::FreeAll();
    }
    void* ReAllocNoThrow(void* p, unsigned int size) override
    {
        if (p == nullptr)
            return MallocNoThrow(size);
        AllocationHistory::Record old;
        const bool had = m_History.Take(p, old);
        void* q = Base::ReAllocNoThrow(p, size);
        if (q != nullptr)
            m_History.Put(q, size, had ? old.site : 0);
        else if (had)
            m_History.Restore(old);
        return q;
    }
    void* ReAllocDebugNoThrow(void* p, unsigned int size, const char* tag, const char* file,
                              u32 line) override
    {
        void* q = ReAllocNoThrow(p, size);
        if (q != nullptr)
            m_History.SetSite(q, m_History.Site(tag, file, line));
        return q;
    }
    void* Transfert(Allocator* target, void* p, unsigned int size) override
    {
        AllocationHistory::Record old;
        const bool had = m_History.Take(p, old);
        void* q = Base::Transfert(target, p, size);
        if (q != nullptr && m_History.Owns(target))
            m_History.Put(q, size, had ? old.site : 0);
        else if (q == nullptr && had)
            m_History.Restore(old);
        return q;
    }
    void* TransfertDebug(Allocator* target, void* p, unsigned int size, const char* tag,
                         const char* file, u32 line) override
    {
        void* q = Transfert(target, p, size);
        if (q != nullptr && m_History.Owns(target))
            m_History.SetSite(q, m_History.Site(tag, file, line));
        return q;
    }

private:
    AllocationHistory& m_History;
};

// Tabs and line ends would cut a row.
void Clean(char* text)
{
    for (; *text; ++text)
        if (static_cast<unsigned char>(*text) < 0x20)
            *text = ' ';
}

// The last `room` - 1 characters of `text` (a path keeps its file name).
void Tail(char* out, std::size_t room, const char* text)
{
    const std::size_t length = std::strlen(text);
    const char* from = length < room ? text : text + length - (room - 1);
    std::memcpy(out, from, std::strlen(from) + 1);
    Clean(out);
}

void Head(char* out, std::size_t room, const char* text)
{
    std::size_t length = std::strlen(text);
    if (length >= room)
        length = room - 1;
    std::memcpy(out, text, length);
    out[length] = '\0';
    Clean(out);
}

} // namespace

Allocator* TrackingAllocator::Create()
{
    AllocationHistory* history = new AllocationHistory;
    if (history == nullptr)
        return nullptr;
    Allocator* small = new Tracked<PoolAllocator>(*history);
    Allocator* big = new Tracked<PackedAllocator>(*history, "PackedAllocator-Tracking", 256u);
    Allocator* tracker = small && big ? new TrackingAllocator(small, big, history) : nullptr;
    if (tracker == nullptr)
    {
        delete small;
        delete big;
        delete history;
        return nullptr;
    }
    history->SetOwners(small, big);
    return tracker;
}

TrackingAllocator::TrackingAllocator(Allocator* small, Allocator* big, AllocationHistory* history)
    : HybridAllocator(small, false, big, false), m_History(history)
{
}

TrackingAllocator::~TrackingAllocator()
{
    // The allocators below drop records until they go.
    delete GetSmallAllocator();
    delete GetBigAllocator();
    delete m_History;
}

void* TrackingAllocator::MallocDebugNoThrow(unsigned int size, const char* tag, const char* file,
                                            u32 line)
{
    void* p = HybridAllocator::MallocDebugNoThrow(size, tag, file, line);
    if (p != nullptr)
        m_History->SetSite(p, m_History->Site(tag, file, line));
    return p;
}

void* TrackingAllocator::ReAllocDebugNoThrow(void* p, unsigned int size, const char* tag,
                                             const char* file, u32 line)
{
    void* q = ReAllocNoThrow(p, size);
    if (q != nullptr)
        m_History->SetSite(q, m_History->Site(tag, file, line));
    return q;
}

void TrackingAllocator::FillStatMarker(AllocatorStatMarker& marker)
{
    marker.SetPosition(m_History->GetPosition());
}

u32 TrackingAllocator::GetPosition() const
{
    return m_History->GetPosition();
}

u32 TrackingAllocator::GetNumberOfAllocations() const
{
    return m_History->GetTotals().allocations;
}

u32 TrackingAllocator::GetRequestedSize() const
{
    return m_History->GetTotals().requested;
}

void TrackingAllocator::DumpStatistics(u32 flags, AllocatorStatMarker* from,
                                       AllocatorStatMarker* to, OutputStream* stream, char* title)
{
    using memory::Address;
    OutputStream& out = stream ? *stream : DebuggerStream::GetDefaultInstance();
    if (title)
        memory::WriteText(out, title);
    if (flags & DumpUsage)
    {
        // Requests as the callers made them; the rest is the allocators'.
        const AllocationHistory::Totals totals = m_History->GetTotals();
        const AllocatorStatistics pool =
            static_cast<PoolAllocator*>(GetSmallAllocator())->GetTotals();
        const AllocatorStatistics packed =
            static_cast<PackedAllocator*>(GetBigAllocator())->GetStatistics();
        AllocatorStatistics row = {};
        row.peakFullPages = pool.peakFullPages + packed.peakFullPages;
        row.peakPages = pool.peakPages + packed.peakPages;
        row.peakAllocations = totals.peakAllocations;
        row.peakRequestedSize = totals.peakRequested;
        row.peakUsedSize = pool.peakUsedSize + packed.peakUsedSize;
        row.currentFullPages = pool.currentFullPages + packed.currentFullPages;
        row.currentPages = pool.currentPages + packed.currentPages;
        row.currentAllocations = totals.allocations;
        row.currentRequestedSize = totals.requested;
        row.currentUsedSize = pool.currentUsedSize + packed.currentUsedSize;
        memory::Print(out,
                      "\r\nDumping usage statistics for TrackingAllocator 0x%08" PRIXPTR
                      "\tOverhead per alloc: %u\r\n",
                      Address(this), 0u);
        AllocatorStatistics::DumpHeader(out, "Allocator");
        row.DumpRow(out, "Tracked");
        memory::Print(out,
                      "Position: %u\tSmall allocator: 0x%08" PRIXPTR
                      "\tBig allocator: 0x%08" PRIXPTR "\r\n\r\n",
                      unsigned(m_History->GetPosition()), Address(GetSmallAllocator()),
                      Address(GetBigAllocator()));
    }
    if (flags & (DumpAllocations | DumpTags))
    {
        const u32 first = from ? from->GetPosition() : 0;
        const u32 last = to ? to->GetPosition() : 0xFFFFFFFFu;
        u32 count = 0;
        AllocationHistory::Listed* list = m_History->List(first, last, count);
        char tag[64], file[200];
        if (flags & DumpAllocations)
        {
            memory::Print(
                out,
                "\r\nDumping allocations for TrackingAllocator 0x%08" PRIXPTR
                "\tFrom position: %u\tTo position: %u\r\n%-18s\t%12s\t%10s\t%s\t%s\t%s\r\n",
                Address(this), unsigned(first), unsigned(last), "Address", "Size", "Position",
                "Tag", "File", "Line");
            for (u32 i = 0; i < count; ++i)
            {
                const AllocationHistory::Listed& block = list[i];
                Head(tag, sizeof tag, block.tag);
                Tail(file, sizeof file, block.file);
                memory::Print(out, "0x%08" PRIXPTR "\t%12u\t%10u\t%s\t%s\t%u\r\n", block.address,
                              unsigned(block.size), unsigned(block.position), tag, file,
                              unsigned(block.line));
            }
            memory::Print(out, "Number of allocations: %u\r\n", unsigned(count));
            memory::Print(out, "\r\nEnd of allocations for TrackingAllocator 0x%08" PRIXPTR "\r\n",
                          Address(this));
        }
        if (flags & DumpTags)
        {
            memory::Print(out,
                          "\r\nDumping tags statistics for TrackingAllocator 0x%08" PRIXPTR
                          "\tOverhead per alloc: %u\r\n%-31s\t%15s\t%15s\r\n",
                          Address(this), 0u, "Tag", "Curr. nbr alloc", "Curr. req size");
            // Group by tag text, then the groups by bytes: each group's
            // count and bytes gather in its first entry.
            std::sort(list, list + count,
                      [](const AllocationHistory::Listed& a, const AllocationHistory::Listed& b)
                      { return std::strcmp(a.tag, b.tag) < 0; });
            u32 groups = 0;
            for (u32 i = 0; i < count;)
            {
                u32 j = i, blocks = 0, bytes = 0;
                for (; j < count && std::strcmp(list[j].tag, list[i].tag) == 0; ++j)
                {
                    ++blocks;
                    bytes += list[j].size;
                }
                list[groups] = list[i];
                list[groups].position = blocks;
                list[groups].size = bytes;
                ++groups;
                i = j;
            }
            std::sort(list, list + groups,
                      [](const AllocationHistory::Listed& a, const AllocationHistory::Listed& b)
                      { return a.size > b.size; });
            for (u32 i = 0; i < groups; ++i)
            {
                Head(tag, 32, list[i].tag);
                memory::Print(out, "%-31s\t%15u\t%15u\r\n", tag, unsigned(list[i].position),
                              unsigned(list[i].size));
            }
        }
        AllocationHistory::FreeList(list);
    }
    if (out.HasPendingBlock())
        out.Flush();
}

} // namespace qel
