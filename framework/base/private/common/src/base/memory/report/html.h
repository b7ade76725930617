// Writing the report's HTML to a stream: formatted pieces go through a
// stack buffer, texts from the dumps are escaped.
#pragma once

#include "base/memory/report/reportmodel.h"

#include <qel/types.h>

namespace qel
{

class OutputStream;

namespace report
{

class Html
{
public:
    explicit Html(OutputStream& out) : m_Out(out) {}

    // Writes `text` as it is.
    void Raw(const char* text);
    // Formats into a 512-byte buffer: for markup and numbers, never for texts
    // of unbounded length.
    void Format(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;
    // Writes `text` with <, >, & and quotes escaped.
    void Text(const char* text);
    void Text(const String& text)
    {
        Text(text.c_str());
    }
    // "12.3 MB"-style bytes, for labels (tables show exact numbers).
    void Bytes(u64 bytes);

private:
    OutputStream& m_Out;
};

// The colour of allocator `index` on the page map, its legend and charts.
const char* AllocatorColour(u32 index);
// "Small: pool allocator", "packed allocator "BigAlloc"", ...; with
// `address`, its address and the tracker it is under follow.
String AllocatorLabel(const Model& model, u32 index, bool address);
// The colour, the label and below it the address, for a table's cell.
void WriteAllocatorName(Html& html, const Model& model, u32 index);

// The sections of the page (pagemap.cpp, reportwriter.cpp).
void WritePageMap(Html& html, const Model& model);
void WriteAllocators(Html& html, const Model& model);
void WriteSites(Html& html, const Model& model);
void WriteRange(Html& html, const Model& model);

} // namespace report
} // namespace qel
