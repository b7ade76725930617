#include <qel/allocatorstatistics.h>

#include <qel/outputstream.h>

#include "base/memory/dumpwriter.h"

#include <cstdio>

namespace qel
{

void AllocatorStatistics::DumpHeader(OutputStream& out, const char* title)
{
    char first[33];
    std::snprintf(first, sizeof first, "%-15s", title ? title : "");
    memory::Print(out,
                  "%s\t%15s\t%15s\t%15s\t%15s\t%15s\t%20s\t%15s\t%15s\t%15s\t%15s\t%15s\t%20s\r\n",
                  first, "Curr. nbr alloc", "Curr. req size", "Curr. used size", "Curr. nbr pages",
                  "Curr page size", "Curr. nbr pages full", "Peak nbr alloc", "Peak req size",
                  "Peak used size", "Peak nbr pages", "Peak page size", "Peak nbr pages full");
}

void AllocatorStatistics::DumpRow(OutputStream& out, const char* name) const
{
    char first[33];
    std::snprintf(first, sizeof first, "%-15s", name ? name : "");
    // Page sizes are derived: pages are always 4096 bytes.
    memory::Print(out,
                  "%s\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u\r\n",
                  first, unsigned(currentAllocations), unsigned(currentRequestedSize),
                  unsigned(currentUsedSize), unsigned(currentPages), unsigned(currentPages * 4096u),
                  unsigned(currentFullPages), unsigned(peakAllocations),
                  unsigned(peakRequestedSize), unsigned(peakUsedSize), unsigned(peakPages),
                  unsigned(peakPages * 4096u), unsigned(peakFullPages));
}

} // namespace qel
