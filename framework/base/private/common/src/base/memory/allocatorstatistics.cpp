#include <qel/allocatorstatistics.h>

#include <qel/outputstream.h>

#include <cstdio>

namespace qel
{

namespace
{

void Raise(u32& current, u32& peak, u32 amount)
{
    current += amount;
    if (current > peak)
        peak = current;
}

// Writes what snprintf made of the row, cut to the buffer.
void WriteText(OutputStream& out, const char* text, int length, std::size_t size)
{
    if (length < 0)
        return;
    out.Write(text, static_cast<u32>(std::size_t(length) < size ? length : size - 1));
}

} // namespace

void AllocatorStatistics::AddAllocation(u32 requested, u32 used)
{
    Raise(currentAllocations, peakAllocations, 1);
    Raise(currentRequestedSize, peakRequestedSize, requested);
    Raise(currentUsedSize, peakUsedSize, used);
}

void AllocatorStatistics::RemoveAllocation(u32 requested, u32 used)
{
    currentAllocations -= 1;
    currentRequestedSize -= requested;
    currentUsedSize -= used;
}

void AllocatorStatistics::AddPages(u32 count)
{
    Raise(currentPages, peakPages, count);
}

void AllocatorStatistics::RemovePages(u32 count)
{
    currentPages -= count;
}

void AllocatorStatistics::AddFullPages(u32 count)
{
    Raise(currentFullPages, peakFullPages, count);
}

void AllocatorStatistics::RemoveFullPages(u32 count)
{
    currentFullPages -= count;
}

void AllocatorStatistics::ClearCurrent()
{
    currentFullPages = currentPages = currentAllocations = 0;
    currentRequestedSize = currentUsedSize = 0;
}

void AllocatorStatistics::DumpHeader(OutputStream& out, const char* title)
{
    char first[33];
    std::snprintf(first, sizeof first, "%-15s", title ? title : "");
    char row[512];
    const int length = std::snprintf(
        row, sizeof row,
        "%s\t%15s\t%15s\t%15s\t%15s\t%15s\t%20s\t%15s\t%15s\t%15s\t%15s\t%15s\t%20s\r\n", first,
        "Curr. nbr alloc", "Curr. req size", "Curr. used size", "Curr. nbr pages", "Curr page size",
        "Curr. nbr pages full", "Peak nbr alloc", "Peak req size", "Peak used size",
        "Peak nbr pages", "Peak page size", "Peak nbr pages full");
    WriteText(out, row, length, sizeof row);
}

void AllocatorStatistics::DumpRow(OutputStream& out, const char* name) const
{
    char first[33];
    std::snprintf(first, sizeof first, "%-15s", name ? name : "");
    // Page sizes are derived: pages are always 4096 bytes.
    char row[512];
    const int length = std::snprintf(
        row, sizeof row,
        "%s\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u\r\n", first,
        unsigned(currentAllocations), unsigned(currentRequestedSize), unsigned(currentUsedSize),
        unsigned(currentPages), unsigned(currentPages * 4096u), unsigned(currentFullPages),
        unsigned(peakAllocations), unsigned(peakRequestedSize), unsigned(peakUsedSize),
        unsigned(peakPages), unsigned(peakPages * 4096u), unsigned(peakFullPages));
    WriteText(out, row, length, sizeof row);
}

} // namespace qel
