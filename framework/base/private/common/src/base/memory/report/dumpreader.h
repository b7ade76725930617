// Reads statistics dumps into the report's model, line by line: the page
// manager's, and the pool, packed, page and tracking allocators', in any
// order and in pieces cut anywhere. Each dump keeps its own format; the
// "Allocator 0x%08X\t<usage>" titles that Mem::DumpAllStatistics puts before
// each allocator's dump name it. Lines it does not know are counted and
// left out.
#pragma once

#include "base/memory/report/reportmodel.h"

#include <cstddef>

namespace qel
{
namespace report
{

class DumpReader
{
public:
    explicit DumpReader(Model& model) : m_Model(model) {}

    void Read(const char* text, std::size_t size);
    // Reads a last line without its end and closes what is open.
    void Finish();

private:
    enum class Section
    {
        None,
        Skip,
        PageManagerUsage,
        Metapage,
        PoolUsage,
        PoolBlocks,
        PackedUsage,
        PackedBlocks,
        PageUsage,
        PageRuns,
        TrackingUsage,
        TrackingBlocks,
    };

    void Line(const char* line);
    bool Heading(const char* line);
    void Row(const char* line);
    u32 Find(u64 address, Kind kind);
    // Opens a listing of allocator `index`; false (the listing is then
    // skipped) when one was read already.
    bool OpenListing(u32 index);
    void UsageRow(const char* line);
    // A live block of `size` bytes whose chunk covers `span` bytes from `start`.
    void AddBlock(u64 size, u64 start, u64 span);
    void UsePages(u64 start, u64 end, bool full);
    void TrackedRow(const char* line);
    void Note(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

    Model& m_Model;
    String m_Partial;
    Section m_Section = Section::None;
    u32 m_Current = 0;   // the allocator being read
    u32 m_Metapage = 0;  // the metapage being read
    bool m_Full = false; // a tracking listing of every position
    u32 m_Titled = ~0u;  // the allocator the last title named
    bool m_PendingPageUsage = false;
    u64 m_PendingRequests = 0, m_PendingPages = 0;
    // Sites by a hash of their tag, file and line; a collision falls back
    // to a search.
    std::unordered_map<u64, u32, std::hash<u64>, std::equal_to<u64>,
                       NativeStl<std::pair<const u64, u32>>>
        m_SiteIndex;
    u64 m_Unknown = 0;
};

} // namespace report
} // namespace qel
