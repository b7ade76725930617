// The memory report: one self-contained HTML page (inline SVG, no script,
// nothing fetched) drawn from statistics dumps. It shows
//   - the address space of the page manager, every 4 MB region and page
//     coloured by the allocator that owns it, free committed pages apart,
//     and how full each page is;
//   - each allocator's counters and peaks, requested against used against
//     page bytes, and a size histogram of its live blocks;
//   - the live blocks of tracking allocators by tag and by file and line;
//   - the blocks allocated between two statistics markers and still live;
// each as a picture with its numbers beside it.
//
// Mem::WriteMemoryReport writes it for the live process; a MemoryReport fed
// with dumps saved earlier (Mem::DumpAllStatistics, or the allocators' and
// the page manager's own dumps in any order) writes the same page, which is
// what `qeltool memory` does. What it reads and keeps lives on the Native
// allocator, never on the allocators it describes.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class OutputStream;

class QEL_API MemoryReport
{
public:
    QEL_NATIVE_ALLOCATION_OPERATORS

    MemoryReport();
    ~MemoryReport();
    MemoryReport(const MemoryReport&) = delete;
    MemoryReport& operator=(const MemoryReport&) = delete;

    // Reads dump text; a call goes on where the last one stopped, so the
    // text may be cut anywhere. False once memory has run out.
    bool Read(const void* text, u32 size);
    // True once a page manager's or an allocator's dump has been read: text
    // that holds none would give an empty page.
    bool HasStatistics() const;
    // Writes the page, headed by `title`; false when memory ran out (the
    // page is then cut short).
    bool Write(OutputStream& out, const char* title);

private:
    struct State;
    State* m_State;
};

} // namespace qel
