#include "base/memory/report/dumpreader.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace qel
{
namespace report
{

namespace
{

const u64 kPage = 4096;
// The largest blocks between two markers kept for the report's list.
const std::size_t kLargestLeaks = 100;

// Up to `count` decimal numbers from `text`, blanks between them; returns
// how many were read.
int Numbers(const char* text, u64* numbers, int count)
{
    int read = 0;
    for (; read < count; ++read)
    {
        while (*text == ' ' || *text == '\t')
            ++text;
        if (*text < '0' || *text > '9')
            break;
        char* end = nullptr;
        numbers[read] = std::strtoull(text, &end, 10);
        text = end;
    }
    return read;
}

// "0x" and hexadecimal digits.
bool Hexadecimal(const char* text, u64& value)
{
    if (text[0] != '0' || text[1] != 'x' || !std::isxdigit(static_cast<unsigned char>(text[2])))
        return false;
    value = std::strtoull(text + 2, nullptr, 16);
    return true;
}

// A listed block: "0x<address>\t<size>".
bool Block(const char* line, u64& address, u64& size)
{
    const char* tab = std::strchr(line, '\t');
    return tab != nullptr && Hexadecimal(line, address) && Numbers(tab + 1, &size, 1) == 1;
}

bool Starts(const char* line, const char* prefix)
{
    return std::strncmp(line, prefix, std::strlen(prefix)) == 0;
}

// The hexadecimal address right after `prefix`, which the line starts with.
bool AddressAfter(const char* line, const char* prefix, u64& address)
{
    return Starts(line, prefix) &&
           std::sscanf(line + std::strlen(prefix), "0x%" SCNx64, &address) == 1;
}

// The first field of a row, blanks trimmed, and where the rest begins.
String FirstField(const char* line, const char*& rest)
{
    const char* tab = std::strchr(line, '\t');
    const char* end = tab ? tab : line + std::strlen(line);
    rest = tab ? tab + 1 : end;
    const char* begin = line;
    while (begin < end && *begin == ' ')
        ++begin;
    while (end > begin && end[-1] == ' ')
        --end;
    return String(begin, end);
}

} // namespace

u32 HistogramBin(u64 size)
{
    u32 bin = 0;
    for (u64 top = 16; size > top && bin + 1 < HistogramBins; top <<= 1)
        ++bin;
    return bin;
}

void DumpReader::Read(const char* text, std::size_t size)
{
    const char* end = text + size;
    while (text < end)
    {
        const char* newline = static_cast<const char*>(std::memchr(text, '\n', end - text));
        if (newline == nullptr)
        {
            m_Partial.append(text, end);
            return;
        }
        m_Partial.append(text, newline);
        if (!m_Partial.empty() && m_Partial.back() == '\r')
            m_Partial.pop_back();
        Line(m_Partial.c_str());
        m_Partial.clear();
        text = newline + 1;
    }
}

void DumpReader::Finish()
{
    if (!m_Partial.empty())
    {
        if (m_Partial.back() == '\r')
            m_Partial.pop_back();
        Line(m_Partial.c_str());
        m_Partial.clear();
    }
    if (m_PendingPageUsage)
    {
        // A page allocator whose usage came without its address.
        m_Current = Find(0, Kind::Page);
        AllocatorInfo& a = m_Model.allocators[m_Current];
        a.hasPageUsage = true;
        a.requests = m_PendingRequests;
        a.pageTotal = m_PendingPages;
        m_PendingPageUsage = false;
    }
    for (const AllocatorInfo& a : m_Model.allocators)
        if (a.listed && a.hasCounters && a.kind != Kind::Unknown &&
            a.blocks != a.counters[CurrentAllocations])
            Note("Allocator 0x%08" PRIX64 " lists %" PRIu64
                 " live blocks where its counters say %" PRIu64 ": it changed between its dumps.",
                 a.address, a.blocks, a.counters[CurrentAllocations]);
    if (m_Unknown != 0)
        Note("%" PRIu64 " lines of the dumps were not understood and were left out.", m_Unknown);
    m_Unknown = 0;
    m_Section = Section::None;
}

void DumpReader::Note(const char* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    m_Model.notes.emplace_back(text);
}

u32 DumpReader::Find(u64 address, Kind kind)
{
    Vector<AllocatorInfo>& all = m_Model.allocators;
    for (u32 i = 0; i < all.size(); ++i)
        if (all[i].address == address)
        {
            if (all[i].kind == Kind::Unknown)
                all[i].kind = kind;
            return i;
        }
    all.emplace_back();
    all.back().address = address;
    all.back().kind = kind;
    return u32(all.size() - 1);
}

bool DumpReader::OpenListing(u32 index)
{
    AllocatorInfo& a = m_Model.allocators[index];
    if (a.listed)
    {
        Note("The dumps list the blocks of allocator 0x%08" PRIX64
             " more than once: only the first listing is shown.",
             a.address);
        return false;
    }
    a.listed = true;
    return true;
}

void DumpReader::Line(const char* line)
{
    ++m_Model.lines;
    // Rows of blocks and stretches, most of the text, are no headings.
    if (*line == '\0' || (*line != '0' && *line != '[' && Heading(line)))
        return;
    if (m_Section == Section::None)
        ++m_Unknown;
    else if (m_Section != Section::Skip)
        Row(line);
}

// ---- headings ---------------------------------------------------------------

bool DumpReader::Heading(const char* line)
{
    u64 address = 0, a = 0, b = 0, c = 0, d = 0;
    unsigned from = 0, to = 0;
    if (AddressAfter(line, "Allocator ", address))
    {
        m_Titled = Find(address, Kind::Unknown);
        const char* tab = std::strchr(line, '\t');
        m_Model.allocators[m_Titled].usage = tab ? tab + 1 : "";
        m_Section = Section::None;
    }
    else if (Starts(line, "Dumping memory usage statistics for PageManager"))
    {
        m_Model.hasPageManager = true;
        m_Section = Section::PageManagerUsage;
    }
    else if (Starts(line, "Metapage statistics:"))
        m_Section = Section::Skip; // its "Age:" line follows
    else if (std::sscanf(line,
                         "Age: %" SCNu64 "\tMetapage Range: [0x%" SCNx64 ", 0x%" SCNx64
                         "[\tPages used: %" SCNu64 "\tNbr of pages:%" SCNu64,
                         &a, &b, &c, &d, &address) == 5)
    {
        Vector<Metapage>& all = m_Model.metapages;
        u32 i = 0;
        while (i < all.size() && all[i].age != a)
            ++i;
        if (i == all.size())
        {
            all.emplace_back();
            all.back().age = a;
        }
        Metapage& metapage = all[i];
        const bool again = metapage.end != 0;
        metapage.start = b;
        metapage.end = c;
        metapage.usedPages = d;
        metapage.pages = address;
        m_Metapage = i;
        m_Section = again && !metapage.stretches.empty() ? Section::Skip : Section::Metapage;
    }
    else if (std::sscanf(line, "Nbr of unused pages nodes: %" SCNu64, &a) == 1)
    {
        if (m_Metapage < m_Model.metapages.size())
        {
            m_Model.metapages[m_Metapage].hasFreeRuns = true;
            m_Model.metapages[m_Metapage].freeRuns = a;
        }
    }
    else if (AddressAfter(line, "Dumping usage statistics for PoolAllocator ", address))
    {
        m_Current = Find(address, Kind::Pool);
        m_Section = Section::PoolUsage;
    }
    else if (AddressAfter(line, "Dumping allocations for PoolAllocator ", address))
    {
        m_Current = Find(address, Kind::Pool);
        m_Section = OpenListing(m_Current) ? Section::PoolBlocks : Section::Skip;
    }
    else if (AddressAfter(line, "Dumping memory usage statistics for PackedAllocator ", address))
    {
        m_Current = Find(address, Kind::Packed);
        m_Section = Section::PackedUsage;
    }
    else if (AddressAfter(line, "Dumping page statistics for PackedAllocator ", address))
    {
        m_Current = Find(address, Kind::Packed);
        m_Section = OpenListing(m_Current) ? Section::PackedBlocks : Section::Skip;
    }
    else if (Starts(line, "PageAllocator memory usage statistics"))
    {
        m_Section = Section::PageUsage;
        m_PendingPageUsage = false;
        const bool titled = m_Titled < m_Model.allocators.size() &&
                            (m_Model.allocators[m_Titled].kind == Kind::Unknown ||
                             m_Model.allocators[m_Titled].kind == Kind::Page);
        if (titled)
        {
            m_Current = m_Titled;
            m_Model.allocators[m_Current].kind = Kind::Page;
            m_Model.allocators[m_Current].hasPageUsage = true;
        }
        else
        {
            m_PendingPageUsage = true;
            m_PendingRequests = m_PendingPages = 0;
        }
    }
    else if (AddressAfter(line, "Allocations Pagellocator: ", address))
    {
        m_Current = Find(address, Kind::Page);
        AllocatorInfo& info = m_Model.allocators[m_Current];
        if (m_PendingPageUsage && !info.hasPageUsage)
        {
            info.hasPageUsage = true;
            info.requests = m_PendingRequests;
            info.pageTotal = m_PendingPages;
            m_PendingPageUsage = false;
        }
        m_Section = OpenListing(m_Current) ? Section::PageRuns : Section::Skip;
    }
    else if (AddressAfter(line, "Dumping usage statistics for TrackingAllocator ", address))
    {
        m_Current = Find(address, Kind::Tracking);
        m_Section = Section::TrackingUsage;
    }
    else if (std::sscanf(line,
                         "Dumping allocations for TrackingAllocator 0x%" SCNx64
                         "\tFrom position: %u\tTo position: %u",
                         &address, &from, &to) == 3)
    {
        m_Current = Find(address, Kind::Tracking);
        m_Full = from == 0 && to == 0xFFFFFFFFu;
        m_SiteIndex.clear();
        m_Section = Section::TrackingBlocks;
        if (m_Full && !OpenListing(m_Current))
            m_Section = Section::Skip;
        else if (m_Full)
            m_Model.hasTracked = true;
        else if (m_Model.hasRange)
        {
            Note("The dumps hold more than one range between markers: only the first is shown.");
            m_Section = Section::Skip;
        }
        else
        {
            m_Model.hasRange = true;
            m_Model.rangeFrom = from;
            m_Model.rangeTo = to;
        }
    }
    else if (Starts(line, "Dumping tags statistics for ") ||
             Starts(line, "Dumping freelists for ") || Starts(line, "Freelist "))
        m_Section = Section::Skip;
    else if (Starts(line, "End of "))
        m_Section = Section::None;
    else if (std::sscanf(line, "Blocks held in other threads' caches: %" SCNu64, &a) == 1)
    {
        if (m_Current < m_Model.allocators.size())
            m_Model.allocators[m_Current].held = a;
    }
    else if (std::sscanf(line,
                         "Position: %" SCNu64 "\tSmall allocator: 0x%" SCNx64
                         "\tBig allocator: 0x%" SCNx64,
                         &a, &b, &c) == 3)
    {
        if (m_Current < m_Model.allocators.size())
        {
            AllocatorInfo& info = m_Model.allocators[m_Current];
            info.position = a;
            info.small = b;
            info.big = c;
        }
    }
    else
        return false;
    return true;
}

// ---- rows -------------------------------------------------------------------

void DumpReader::Row(const char* line)
{
    AllocatorInfo* a =
        m_Current < m_Model.allocators.size() ? &m_Model.allocators[m_Current] : nullptr;
    u64 n[3] = {};
    switch (m_Section)
    {
    case Section::PageManagerUsage:
    case Section::PoolUsage:
    case Section::PackedUsage:
    case Section::TrackingUsage:
        UsageRow(line);
        break;
    case Section::Metapage:
        if (std::sscanf(line, "[0x%" SCNx64 ", 0x%" SCNx64 "[\t%" SCNu64, &n[0], &n[1], &n[2]) == 3)
        {
            const char* owner = std::strrchr(line, '\t') + 1;
            u64 address = 0;
            const bool used = std::sscanf(owner, "0x%" SCNx64, &address) == 1;
            m_Model.metapages[m_Metapage].stretches.push_back(Stretch{n[0], n[2], address, used});
        }
        break;
    case Section::PoolBlocks:
        if (Block(line, n[0], n[1]))
            AddBlock(n[1], n[0], n[1]);
        else if (Starts(line, "Number of allocations: "))
        {
            a->runs += 1;
            a->pages += 1;
        }
        break;
    case Section::PackedBlocks:
        if (std::sscanf(line, "PackedAllocatorPage: 0x%" SCNx64 " PageCount: %" SCNu64, &n[0],
                        &n[1]) == 2)
        {
            a->runs += 1;
            a->pages += n[1];
            UsePages(n[0], n[0] + n[1] * kPage, false);
        }
        else if (Block(line, n[0], n[1]))
            AddBlock(n[1], n[0] - 16, n[1] + 16); // behind its 16-byte header
        break;
    case Section::PageUsage:
    {
        u64& requests = m_PendingPageUsage ? m_PendingRequests : a->requests;
        u64& pages = m_PendingPageUsage ? m_PendingPages : a->pageTotal;
        if (std::sscanf(line, "Nbr of allocations requests: %" SCNu64, &n[0]) == 1)
            requests = n[0];
        else if (std::sscanf(line, "Total nbr of Pages: %" SCNu64, &n[0]) == 1)
            pages = n[0];
        break;
    }
    case Section::PageRuns:
        if (std::sscanf(line, "[0x%" SCNx64 ", 0x%" SCNx64 "[\t%" SCNu64, &n[0], &n[1], &n[2]) == 3)
        {
            AddBlock(n[2] * kPage, n[0], 0);
            UsePages(n[0], n[1], true);
            a->runs += 1;
            a->pages += n[2];
        }
        break;
    case Section::TrackingBlocks:
        TrackedRow(line);
        break;
    default:
        break;
    }
}

void DumpReader::UsageRow(const char* line)
{
    const char* rest = nullptr;
    const String name = FirstField(line, rest);
    if (m_Section == Section::PageManagerUsage)
    {
        u64 n[6];
        if (Numbers(rest, n, 6) != 6)
            return;
        unsigned age = 0;
        if (name == "Total")
            std::copy(n, n + 6, m_Model.pageManager);
        else if (std::sscanf(name.c_str(), "meta-%u", &age) == 1)
        {
            Vector<Metapage>& all = m_Model.metapages;
            u32 i = 0;
            while (i < all.size() && all[i].age != age)
                ++i;
            if (i == all.size())
            {
                all.emplace_back();
                all.back().age = age;
            }
            Metapage& metapage = all[i];
            metapage.hasRow = true;
            metapage.requests = n[0];
            metapage.usedPages = n[1];
            metapage.pages = n[2];
            metapage.peakRequests = n[3];
            metapage.peakUsedPages = n[4];
        }
        return;
    }
    // Twelve columns: the page size ones (the fifth and the eleventh) are
    // derived.
    u64 n[12];
    if (Numbers(rest, n, 12) != 12)
        return; // the header
    const u64 counters[NumberOfCounters] = {n[0], n[1], n[2], n[3], n[5],
                                            n[6], n[7], n[8], n[9], n[11]};
    AllocatorInfo& a = m_Model.allocators[m_Current];
    u64 size = 0;
    if (m_Section == Section::PoolUsage && name != "TOTAL")
    {
        if (std::sscanf(name.c_str(), "%" SCNu64, &size) == 1 && a.classCount < 16)
        {
            a.classSizes[a.classCount] = size;
            std::copy(counters, counters + NumberOfCounters, a.classCounters[a.classCount]);
            ++a.classCount;
        }
        return;
    }
    if (m_Section != Section::PoolUsage)
        a.name = name;
    a.hasCounters = true;
    std::copy(counters, counters + NumberOfCounters, a.counters);
}

void DumpReader::AddBlock(u64 size, u64 start, u64 span)
{
    AllocatorInfo& a = m_Model.allocators[m_Current];
    a.blocks += 1;
    a.bytes += size;
    const u32 bin = HistogramBin(size);
    a.histogramCount[bin] += 1;
    a.histogramBytes[bin] += size;
    // The bytes in use on each page the block covers.
    for (u64 page = start & ~(kPage - 1); page < start + span; page += kPage)
    {
        const u64 begin = std::max(page, start), end = std::min(page + kPage, start + span);
        auto inserted = m_Model.pages.emplace(page, PageUse{m_Current, 0});
        PageUse& use = inserted.first->second;
        use.allocator = m_Current;
        use.bytes = u32(std::min<u64>(kPage, use.bytes + (end - begin)));
    }
}

void DumpReader::UsePages(u64 start, u64 end, bool full)
{
    for (u64 page = start; page < end; page += kPage)
        m_Model.pages[page] = PageUse{m_Current, full ? u32(kPage) : 0};
}

void DumpReader::TrackedRow(const char* line)
{
    // Address, size, position, tag, file, line: tags and files hold no tab.
    const char* fields[6];
    const char* cursor = line;
    for (int i = 0; i < 6; ++i)
    {
        fields[i] = cursor;
        const char* tab = std::strchr(cursor, '\t');
        if (tab == nullptr && i < 5)
            return; // the header has them all, the closing count none
        cursor = tab ? tab + 1 : cursor + std::strlen(cursor);
    }
    u64 address = 0, n[2] = {}, lineNumber = 0;
    if (!Hexadecimal(fields[0], address) || Numbers(fields[1], n, 2) != 2 ||
        Numbers(fields[5], &lineNumber, 1) != 1)
        return;
    const std::string_view tag(fields[3], fields[4] - 1 - fields[3]),
        file(fields[4], fields[5] - 1 - fields[4]);
    const u64 key =
        (std::hash<std::string_view>()(tag) * 31 + std::hash<std::string_view>()(file)) *
            0x9E3779B97F4A7C15ull +
        lineNumber;
    Vector<Site>& sites = m_Full ? m_Model.sites : m_Model.leakSites;
    auto same = [&](const Site& site)
    {
        return site.line == lineNumber &&
               std::string_view(site.tag.data(), site.tag.size()) == tag &&
               std::string_view(site.file.data(), site.file.size()) == file;
    };
    u32 index = 0;
    auto found = m_SiteIndex.find(key);
    if (found != m_SiteIndex.end() && same(sites[found->second]))
        index = found->second;
    else
    {
        index = u32(std::find_if(sites.begin(), sites.end(), same) - sites.begin());
        if (index == sites.size())
        {
            sites.emplace_back();
            sites.back().tag.assign(tag.data(), tag.size());
            sites.back().file.assign(file.data(), file.size());
            sites.back().line = lineNumber;
        }
        m_SiteIndex.emplace(key, index);
    }
    sites[index].blocks += 1;
    sites[index].bytes += n[0];
    if (m_Full)
    {
        AllocatorInfo& a = m_Model.allocators[m_Current];
        a.blocks += 1;
        a.bytes += n[0];
        a.histogramCount[HistogramBin(n[0])] += 1;
        a.histogramBytes[HistogramBin(n[0])] += n[0];
        return;
    }
    // The largest blocks, kept in a heap whose top is the smallest.
    Vector<TrackedBlock>& largest = m_Model.largestLeaks;
    auto bySize = [](const TrackedBlock& x, const TrackedBlock& y) { return x.size > y.size; };
    if (largest.size() == kLargestLeaks && largest.front().size >= n[0])
        return;
    if (largest.size() == kLargestLeaks)
    {
        std::pop_heap(largest.begin(), largest.end(), bySize);
        largest.pop_back();
    }
    largest.push_back(TrackedBlock{address, n[0], n[1], index});
    std::push_heap(largest.begin(), largest.end(), bySize);
}

} // namespace report
} // namespace qel
