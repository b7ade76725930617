// The statistics record of the page-based allocators and the table they
// print: ten counters, each peak the highest value its current counterpart
// ever reached.
//
// The table is tab-separated with CR LF line ends; the page size column is
// derived (pages are 4096 bytes). Rows are formatted on the stack and written
// to the stream: printing never allocates.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class OutputStream;

struct QEL_API AllocatorStatistics
{
    QEL_ALLOCATION_OPERATORS

    u32 peakFullPages;
    u32 peakPages;
    u32 peakAllocations;
    u32 peakRequestedSize;
    u32 peakUsedSize;
    u32 currentFullPages;
    u32 currentPages;
    u32 currentAllocations;
    u32 currentRequestedSize;
    u32 currentUsedSize;

    // One allocation more: `requested` bytes asked for, `used` bytes taken.
    // Inline: the allocators' fast paths count every block.
    void AddAllocation(u32 requested, u32 used)
    {
        Raise(currentAllocations, peakAllocations, 1);
        Raise(currentRequestedSize, peakRequestedSize, requested);
        Raise(currentUsedSize, peakUsedSize, used);
    }
    // `count` allocations at once, `bytes` both asked for and taken.
    void AddAllocations(u32 count, u32 bytes)
    {
        Raise(currentAllocations, peakAllocations, count);
        Raise(currentRequestedSize, peakRequestedSize, bytes);
        Raise(currentUsedSize, peakUsedSize, bytes);
    }
    void RemoveAllocation(u32 requested, u32 used)
    {
        currentAllocations -= 1;
        currentRequestedSize -= requested;
        currentUsedSize -= used;
    }
    // A block kept in place for a new size: the requested size moves by
    // `newSize - oldSize` (modulo 2^32), raising its peak when it grows.
    void ResizeRequested(u32 oldSize, u32 newSize)
    {
        currentRequestedSize += newSize - oldSize;
        if (newSize > oldSize && currentRequestedSize > peakRequestedSize)
            peakRequestedSize = currentRequestedSize;
    }
    void AddPages(u32 count) { Raise(currentPages, peakPages, count); }
    void RemovePages(u32 count) { currentPages -= count; }
    void AddFullPages(u32 count) { Raise(currentFullPages, peakFullPages, count); }
    void RemoveFullPages(u32 count) { currentFullPages -= count; }
    // Clears the five current counters; the peaks stay.
    void ClearCurrent()
    {
        currentFullPages = currentPages = currentAllocations = 0;
        currentRequestedSize = currentUsedSize = 0;
    }

    static void Raise(u32& current, u32& peak, u32 amount)
    {
        current += amount;
        if (current > peak)
            peak = current;
    }

    // The header row, `title` heading the first column.
    static void DumpHeader(OutputStream& out, const char* title);
    // One row, `name` in the first column.
    void DumpRow(OutputStream& out, const char* name) const;
};

} // namespace qel
