// The memory report's entry points: MemoryReport over dumps, and Mem's calls
// that dump every allocator at once and report on the live process.
#include <qel/memoryreport.h>

#include <qel/debuggerstream.h>
#include <qel/mem.h>
#include <qel/outputstream.h>
#include <qel/packedallocator.h>
#include <qel/pagemanager.h>
#include <qel/provider.h>
#include <qel/trackingallocator.h>

#include "base/memory/report/dumpreader.h"
#include "base/memory/report/reportwriter.h"

#include <cinttypes>
#include <cstdio>
#include <new>

namespace qel
{

struct MemoryReport::State
{
    QEL_NATIVE_ALLOCATION_OPERATORS

    report::Model model;
    report::DumpReader reader{model};
    bool failed = false;
    bool finished = false;
};

MemoryReport::MemoryReport() : m_State(new State) {}

MemoryReport::~MemoryReport()
{
    delete m_State;
}

bool MemoryReport::Read(const void* text, u32 size)
{
    if (m_State == nullptr || m_State->failed || m_State->finished)
        return false;
    try
    {
        m_State->reader.Read(static_cast<const char*>(text), size);
    }
    catch (const std::bad_alloc&)
    {
        m_State->failed = true;
    }
    return !m_State->failed;
}

bool MemoryReport::HasStatistics() const
{
    return m_State != nullptr &&
           (m_State->model.hasPageManager || !m_State->model.allocators.empty());
}

bool MemoryReport::Write(OutputStream& out, const char* title)
{
    if (m_State == nullptr)
        return false;
    try
    {
        if (!m_State->finished)
        {
            m_State->finished = true;
            m_State->reader.Finish();
        }
        if (m_State->failed)
            m_State->model.notes.emplace_back("Memory ran out while the dumps were read: what "
                                              "came after is missing.");
        report::WriteReport(m_State->model, out, title);
    }
    catch (const std::bad_alloc&)
    {
        m_State->failed = true;
    }
    return !m_State->failed;
}

namespace
{

// An output stream that hands what is written to a report, block by block,
// from a buffer of its own: the dumps are read as they are written and are
// never held whole.
class ReportProvider : public Provider
{
public:
    explicit ReportProvider(MemoryReport& report) : m_Report(report) { m_Open = true; }

    void Request(u64, unsigned char*& block, unsigned char*& current, unsigned char*& end) override
    {
        block = current = m_Buffer;
        end = m_Buffer + sizeof m_Buffer;
    }
    void Return(void* block, void* end) override
    {
        m_Report.Read(block,
                      u32(static_cast<unsigned char*>(end) - static_cast<unsigned char*>(block)));
    }
    void Return(void* block) override { m_Report.Read(block, sizeof m_Buffer); }

private:
    MemoryReport& m_Report;
    unsigned char m_Buffer[4096];
};

class ReportStream : public OutputStream
{
public:
    explicit ReportStream(MemoryReport& report) : OutputStream(&m_Provider), m_Provider(report) {}
    ~ReportStream() override { Finish(); }

private:
    ReportProvider m_Provider;
};

const char* const kUsageNames[] = {"Small", "Big", "General", "Page", "Native"};

} // namespace

Allocator* Mem::CreateTrackingAllocator()
{
    return TrackingAllocator::Create();
}

void Mem::DumpAllStatistics(OutputStream* out, AllocatorStatMarker* from, AllocatorStatMarker* to)
{
    OutputStream& stream = out ? *out : DebuggerStream::GetDefaultInstance();
    PageManager* pages = PageManager::GetSingletonInstancePointer();
    if (pages == nullptr)
        return;
    // Pages kept for reuse go back first, so that the page manager's owners
    // and the allocators' own counts agree.
    for (u32 i = 0; i < pages->GetNumberOfOwners() && i < PageManager::MaxOwners; ++i)
        if (auto* packed = dynamic_cast<PackedAllocator*>(pages->GetOwnerAt(i)))
            packed->ReleaseKeptRuns();
    pages->DumpStatistics(PageManager::DumpUsage | PageManager::DumpRuns |
                              PageManager::DumpFreeRuns | PageManager::DumpMetapageRows,
                          &stream);
    for (u32 i = 0; i < pages->GetNumberOfOwners() && i < PageManager::MaxOwners; ++i)
    {
        Allocator* allocator = pages->GetOwnerAt(i);
        TrackingAllocator* tracker = dynamic_cast<TrackingAllocator*>(allocator);
        // A hybrid holds no page: its allocators are owners of their own.
        if (allocator == nullptr ||
            (tracker == nullptr && dynamic_cast<HybridAllocator*>(allocator)))
            continue;
        const char* usage = "";
        for (u32 u = 0; u < NumberOfUsages; ++u)
            if (m_allocators[u].load(std::memory_order_acquire) == allocator)
                usage = kUsageNames[u];
        char title[64];
        std::snprintf(title, sizeof title, "\r\nAllocator 0x%08" PRIXPTR "\t%s\r\n",
                      reinterpret_cast<std::uintptr_t>(allocator), usage);
        // Usage tables and listings; a tracker's tags too.
        allocator->DumpStatistics(tracker ? 1 | 2 | 4 : 1 | 2, nullptr, nullptr, &stream, title);
        if (tracker != nullptr && (from != nullptr || to != nullptr))
            tracker->DumpStatistics(TrackingAllocator::DumpAllocations, from, to, &stream, nullptr);
    }
    if (stream.HasPendingBlock())
        stream.Flush();
}

bool Mem::WriteMemoryReport(OutputStream& out, AllocatorStatMarker* from, AllocatorStatMarker* to)
{
    MemoryReport report;
    {
        ReportStream dumps(report);
        DumpAllStatistics(&dumps, from, to);
    }
    return report.Write(out, "The running process");
}

} // namespace qel
