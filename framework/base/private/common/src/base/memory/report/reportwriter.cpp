// The report's page: its head and summary, the allocators with their bars
// and size histograms, the tracked blocks by tag and by file and line, and
// what was allocated between two markers and is still live. Every section
// draws first and lists the numbers beside the picture; tables give exact
// counts, pictures round them.
#include "base/memory/report/reportwriter.h"

#include "base/memory/dumpwriter.h"
#include "base/memory/report/html.h"

#include <qel/outputstream.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace qel
{
namespace report
{

// ---- writing ----------------------------------------------------------------

void Html::Raw(const char* text)
{
    memory::WriteText(m_Out, text);
}

void Html::Format(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    memory::PrintArguments(m_Out, format, arguments);
    va_end(arguments);
}

void Html::Text(const char* text)
{
    const char* start = text;
    for (; *text; ++text)
    {
        const char* entity = *text == '<'    ? "&lt;"
                             : *text == '>'  ? "&gt;"
                             : *text == '&'  ? "&amp;"
                             : *text == '"'  ? "&quot;"
                             : *text == '\'' ? "&#39;"
                                             : nullptr;
        if (entity == nullptr)
            continue;
        m_Out.Write(start, u32(text - start));
        Raw(entity);
        start = text + 1;
    }
    m_Out.Write(start, u32(text - start));
}

void Html::Bytes(u64 bytes)
{
    const char* units[] = {"B", "KB", "MB", "GB", "TB"};
    double value = double(bytes);
    int unit = 0;
    while (value >= 1024 && unit < 4)
    {
        value /= 1024;
        ++unit;
    }
    if (unit == 0)
        Format("%" PRIu64 " B", bytes);
    else
        Format(value < 10 ? "%.1f %s" : "%.0f %s", value, units[unit]);
}

const char* AllocatorColour(u32 index)
{
    static const char* const kPalette[] = {"#4e79a7", "#f28e2b", "#59a14f", "#e15759", "#76b7b2",
                                           "#edc948", "#b07aa1", "#ff9da7", "#9c755f", "#3b5b92"};
    return kPalette[index % (sizeof kPalette / sizeof kPalette[0])];
}

String AllocatorLabel(const Model& model, u32 index, bool address)
{
    const AllocatorInfo& a = model.allocators[index];
    static const char* const kKinds[] = {"allocator", "pool allocator", "packed allocator",
                                         "page allocator", "tracking allocator"};
    String label = a.usage.empty() ? String() : a.usage + ": ";
    label += kKinds[int(a.kind)];
    if (!a.name.empty() && a.kind == Kind::Packed)
        label += " \"" + a.name + "\"";
    if (!address)
        return label;
    char text[64];
    std::snprintf(text, sizeof text, " 0x%08" PRIX64, a.address);
    label += text;
    for (const AllocatorInfo& t : model.allocators)
        if (t.kind == Kind::Tracking && a.address != 0 &&
            (t.small == a.address || t.big == a.address))
        {
            std::snprintf(text, sizeof text, ", under the tracker 0x%08" PRIX64, t.address);
            label += text;
        }
    return label;
}

void WriteAllocatorName(Html& html, const Model& model, u32 index)
{
    html.Format("<i style=\"background:%s\"></i>", AllocatorColour(index));
    html.Text(AllocatorLabel(model, index, false));
    const String full = AllocatorLabel(model, index, true);
    html.Raw("<br><small>");
    html.Text(full.c_str() + AllocatorLabel(model, index, false).size() + 1);
    html.Raw("</small>");
}

namespace
{

// ---- allocators -------------------------------------------------------------

// Bytes of the pages an allocator holds; 0 when its dumps do not say.
u64 PageBytes(const AllocatorInfo& a)
{
    if (a.kind == Kind::Page)
        return (a.hasPageUsage ? a.pageTotal : a.pages) * 4096;
    return a.hasCounters ? a.counters[CurrentPages] * 4096 : 0;
}

void WriteCell(Html& html, bool known, u64 value)
{
    if (known)
        html.Format("<td>%" PRIu64 "</td>", value);
    else
        html.Raw("<td></td>");
}

void WriteBars(Html& html, const Model& model)
{
    u64 largest = 1;
    for (const AllocatorInfo& a : model.allocators)
        largest = std::max({largest, PageBytes(a), a.hasCounters ? a.counters[CurrentUsed] : 0,
                            a.hasCounters ? a.counters[CurrentRequested] : 0});
    const unsigned rowHeight = 40, width = 440;
    html.Format("<svg id=\"allocator-bars\" xmlns=\"http://www.w3.org/2000/svg\" width=\"%u\" "
                "height=\"%u\" font-size=\"11\">\n",
                width + 80, unsigned(model.allocators.size()) * rowHeight + 4);
    for (u32 i = 0; i < model.allocators.size(); ++i)
    {
        const AllocatorInfo& a = model.allocators[i];
        const unsigned y = unsigned(i) * rowHeight;
        const char* colour = AllocatorColour(i);
        auto scaled = [&](u64 bytes)
        { return unsigned(double(bytes) / double(largest) * width + 0.5); };
        html.Format("<text x=\"0\" y=\"%u\">", y + 11);
        html.Text(AllocatorLabel(model, i, false));
        html.Raw("</text>\n");
        const u64 pages = PageBytes(a);
        const u64 used =
            a.hasCounters ? a.counters[CurrentUsed] : (a.kind == Kind::Page ? pages : 0);
        const u64 requested = a.hasCounters ? a.counters[CurrentRequested] : used;
        html.Format("<rect x=\"0\" y=\"%u\" width=\"%u\" height=\"18\" fill=\"%s\" "
                    "fill-opacity=\"0.25\"><title>pages</title></rect>"
                    "<rect x=\"0\" y=\"%u\" width=\"%u\" height=\"18\" fill=\"%s\" "
                    "fill-opacity=\"0.6\"><title>used</title></rect>"
                    "<rect x=\"0\" y=\"%u\" width=\"%u\" height=\"8\" fill=\"%s\">"
                    "<title>requested</title></rect>",
                    y + 15, scaled(pages), colour, y + 15, scaled(used), colour, y + 20,
                    scaled(requested), colour);
        html.Format("<text x=\"%u\" y=\"%u\">", std::max(scaled(pages), scaled(used)) + 6, y + 28);
        html.Bytes(std::max(pages, used));
        html.Raw("</text>\n");
    }
    html.Raw("</svg>\n");
}

void WriteTable(Html& html, const Model& model)
{
    html.Raw("<table id=\"allocator-table\"><caption>Counters (bytes, blocks, pages)</caption>\n"
             "<tr><th>Allocator</th><th>Blocks</th><th>Peak blocks</th><th>Requested</th>"
             "<th>Peak requested</th><th>Used</th><th>Peak used</th><th>Pages</th>"
             "<th>Peak pages</th><th>Full pages</th><th>Peak full pages</th>"
             "<th>Listed blocks</th><th>Listed bytes</th><th>In other threads' caches</th></tr>\n");
    for (u32 i = 0; i < model.allocators.size(); ++i)
    {
        const AllocatorInfo& a = model.allocators[i];
        html.Format("<tr id=\"allocator-0x%08" PRIX64 "\"><td>", a.address);
        WriteAllocatorName(html, model, i);
        html.Raw("</td>");
        const bool c = a.hasCounters, page = a.kind == Kind::Page && a.hasPageUsage;
        const u64* n = a.counters;
        WriteCell(html, c || page, page ? a.requests : n[CurrentAllocations]);
        WriteCell(html, c, n[PeakAllocations]);
        WriteCell(html, c, n[CurrentRequested]);
        WriteCell(html, c, n[PeakRequested]);
        WriteCell(html, c, n[CurrentUsed]);
        WriteCell(html, c, n[PeakUsed]);
        WriteCell(html, c || page, page ? a.pageTotal : n[CurrentPages]);
        WriteCell(html, c, n[PeakPages]);
        WriteCell(html, c, n[CurrentFullPages]);
        WriteCell(html, c, n[PeakFullPages]);
        WriteCell(html, a.listed, a.blocks);
        WriteCell(html, a.listed, a.bytes);
        WriteCell(html, c, a.held);
        html.Raw("</tr>\n");
    }
    html.Raw("</table>\n");
}

void BinLabel(char* text, std::size_t size, u32 bin)
{
    const u64 top = u64(16) << bin;
    if (top < 1024)
        std::snprintf(text, size, "%" PRIu64, top);
    else if (top < (u64(1) << 20))
        std::snprintf(text, size, "%" PRIu64 "K", top >> 10);
    else
        std::snprintf(text, size, "%" PRIu64 "M", top >> 20);
}

void WriteHistogram(Html& html, const Model& model, u32 index)
{
    const AllocatorInfo& a = model.allocators[index];
    u32 first = HistogramBins, last = 0;
    u64 most = 1;
    for (u32 b = 0; b < HistogramBins; ++b)
        if (a.histogramCount[b] != 0)
        {
            first = std::min(first, b);
            last = b;
            most = std::max(most, a.histogramCount[b]);
        }
    if (first == HistogramBins)
        return;
    const unsigned bins = unsigned(last - first + 1), barWidth = std::max(24u, 300 / bins),
                   height = 90;
    html.Raw("<div class=\"pair histogram\"><div class=\"picture\"><h4>");
    WriteAllocatorName(html, model, index);
    html.Format("</h4><svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%u\" height=\"%u\" "
                "font-size=\"10\">",
                bins * barWidth + 10, height + 16);
    char label[16];
    for (u32 b = first; b <= last; ++b)
    {
        const unsigned bar = unsigned(double(a.histogramCount[b]) / double(most) * height + 0.5);
        const unsigned x = unsigned(b - first) * barWidth;
        BinLabel(label, sizeof label, b);
        html.Format("<rect x=\"%u\" y=\"%u\" width=\"%u\" height=\"%u\" fill=\"%s\"><title>up to "
                    "%s bytes: %" PRIu64 " blocks</title></rect><text x=\"%u\" y=\"%u\">%s</text>",
                    x, height - bar, barWidth - 2, bar, AllocatorColour(index), label,
                    a.histogramCount[b], x, height + 12, label);
    }
    html.Format("</svg></div><div class=\"numbers\"><table id=\"histogram-0x%08" PRIX64
                "\"><tr><th>Size up to</th><th>Blocks</th><th>Bytes</th></tr>\n",
                a.address);
    for (u32 b = first; b <= last; ++b)
    {
        if (a.histogramCount[b] == 0)
            continue;
        BinLabel(label, sizeof label, b);
        html.Format("<tr><td>%s</td><td>%" PRIu64 "</td><td>%" PRIu64 "</td></tr>\n", label,
                    a.histogramCount[b], a.histogramBytes[b]);
    }
    html.Raw("</table></div></div>\n");
}

// ---- tracked blocks ---------------------------------------------------------

struct Group
{
    String key;
    u64 blocks, bytes;
};

// The sites gathered by `key` (their tag, or their file and line), most
// bytes first.
Vector<Group> Gather(const Vector<Site>& sites, bool byTag)
{
    Vector<Group> groups;
    for (const Site& site : sites)
    {
        String key;
        if (byTag)
            key = site.tag.empty() ? String("(no tag)") : site.tag;
        else
        {
            char line[24];
            std::snprintf(line, sizeof line, ":%" PRIu64, site.line);
            key = site.file.empty() ? String("(no file)") : site.file + line;
        }
        groups.push_back(Group{key, site.blocks, site.bytes});
    }
    std::sort(groups.begin(), groups.end(),
              [](const Group& a, const Group& b) { return a.key < b.key; });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < groups.size(); ++i)
    {
        if (kept != 0 && groups[kept - 1].key == groups[i].key)
        {
            groups[kept - 1].blocks += groups[i].blocks;
            groups[kept - 1].bytes += groups[i].bytes;
        }
        else
            groups[kept++] = groups[i];
    }
    groups.resize(kept);
    std::stable_sort(groups.begin(), groups.end(),
                     [](const Group& a, const Group& b) { return a.bytes > b.bytes; });
    return groups;
}

void WriteGroups(Html& html, const Vector<Group>& groups, const char* id, const char* heading,
                 const char* colour)
{
    const std::size_t drawn = std::min<std::size_t>(groups.size(), 20),
                      listed = std::min<std::size_t>(groups.size(), 200);
    const u64 most = groups.empty() ? 1 : std::max<u64>(1, groups[0].bytes);
    html.Format("<div class=\"pair\"><div class=\"picture\"><h3>%s</h3>"
                "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"520\" height=\"%u\" "
                "font-size=\"11\">\n",
                heading, unsigned(drawn * 22 + 4));
    for (std::size_t i = 0; i < drawn; ++i)
    {
        const unsigned y = unsigned(i * 22),
                       bar = unsigned(double(groups[i].bytes) / double(most) * 300 + 0.5);
        html.Format("<rect x=\"0\" y=\"%u\" width=\"%u\" height=\"16\" fill=\"%s\"/>"
                    "<text x=\"%u\" y=\"%u\">",
                    y + 2, std::max(bar, 1u), colour, std::max(bar, 1u) + 6, y + 14);
        html.Text(groups[i].key);
        html.Raw(" (");
        html.Bytes(groups[i].bytes);
        html.Raw(")</text>\n");
    }
    html.Format("</svg></div><div class=\"numbers\"><table id=\"%s\"><tr><th>%s</th>"
                "<th>Blocks</th><th>Bytes</th></tr>\n",
                id, std::strcmp(id, "by-tag") == 0 ? "Tag" : "Where");
    for (std::size_t i = 0; i < listed; ++i)
    {
        html.Raw("<tr><td>");
        html.Text(groups[i].key);
        html.Format("</td><td>%" PRIu64 "</td><td>%" PRIu64 "</td></tr>\n", groups[i].blocks,
                    groups[i].bytes);
    }
    if (groups.size() > listed)
        html.Format("<tr><td>%u more</td><td></td><td></td></tr>\n",
                    unsigned(groups.size() - listed));
    html.Raw("</table></div></div>\n");
}

u64 SumBlocks(const Vector<Site>& sites, bool bytes)
{
    u64 sum = 0;
    for (const Site& site : sites)
        sum += bytes ? site.bytes : site.blocks;
    return sum;
}

} // namespace

void WriteAllocators(Html& html, const Model& model)
{
    html.Raw("<section id=\"allocators\"><h2>Allocators</h2>\n<p class=\"lead\">For each "
             "allocator, the pages it holds (pale), the bytes its blocks use (darker) and the "
             "bytes asked for (thin bar): the gaps are its overhead.</p>\n"
             "<div class=\"pair\"><div class=\"picture\">\n");
    WriteBars(html, model);
    html.Raw("</div><div class=\"numbers\">\n");
    WriteTable(html, model);
    html.Raw("</div></div>\n<h3>Live blocks by size</h3>\n<div class=\"grid\">\n");
    for (u32 i = 0; i < model.allocators.size(); ++i)
        WriteHistogram(html, model, i);
    html.Raw("</div></section>\n");
}

void WriteSites(Html& html, const Model& model)
{
    html.Raw("<section id=\"sites\"><h2>Where the memory came from</h2>\n");
    if (!model.hasTracked)
    {
        html.Raw("<p class=\"lead\">No tracking allocator was dumped: the live blocks of a "
                 "tracking allocator (<code>Mem::CreateTrackingAllocator</code>) are shown "
                 "here by tag and by file and line.</p></section>\n");
        return;
    }
    html.Format("<p class=\"lead\">%" PRIu64 " live blocks of the tracking allocators, %" PRIu64
                " bytes asked for, by the tag and by the file and line of the debug allocation "
                "that made them; most bytes first.</p>\n",
                SumBlocks(model.sites, false), SumBlocks(model.sites, true));
    WriteGroups(html, Gather(model.sites, true), "by-tag", "By tag", "#4e79a7");
    WriteGroups(html, Gather(model.sites, false), "by-line", "By file and line", "#59a14f");
    html.Raw("</section>\n");
}

void WriteRange(Html& html, const Model& model)
{
    html.Raw("<section id=\"range\"><h2>Between the markers</h2>\n");
    if (!model.hasRange)
    {
        html.Raw("<p class=\"lead\">No range between two statistics markers in these dumps: "
                 "fill two markers with the tracking allocator's <code>FillStatMarker</code> and "
                 "pass them to the report, and what was allocated between them and is still "
                 "live shows here.</p></section>\n");
        return;
    }
    html.Format("<p class=\"lead\" id=\"range-summary\">From position %" PRIu64 " to %" PRIu64
                ": %" PRIu64 " blocks, %" PRIu64
                " bytes allocated between the markers are still live.</p>\n",
                model.rangeFrom, model.rangeTo, SumBlocks(model.leakSites, false),
                SumBlocks(model.leakSites, true));
    WriteGroups(html, Gather(model.leakSites, false), "range-by-line",
                "Still live, by file and line", "#e15759");
    Vector<TrackedBlock> largest = model.largestLeaks;
    std::sort(largest.begin(), largest.end(),
              [](const TrackedBlock& a, const TrackedBlock& b)
              { return a.size != b.size ? a.size > b.size : a.position < b.position; });
    html.Raw("<table id=\"range-largest\"><caption>The largest of them</caption>\n<tr><th>Address"
             "</th><th>Bytes</th><th>Position</th><th>Tag</th><th>Where</th></tr>\n");
    for (const TrackedBlock& block : largest)
    {
        const Site& site = model.leakSites[block.site];
        html.Format("<tr><td>0x%08" PRIX64 "</td><td>%" PRIu64 "</td><td>%" PRIu64 "</td><td>",
                    block.address, block.size, block.position);
        html.Text(site.tag);
        html.Raw("</td><td>");
        html.Text(site.file);
        if (!site.file.empty())
            html.Format(":%" PRIu64, site.line);
        html.Raw("</td></tr>\n");
    }
    html.Raw("</table></section>\n");
}

void WriteReport(const Model& model, OutputStream& out, const char* title)
{
    Html html(out);
    html.Raw("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n<title>Memory "
             "report: ");
    html.Text(title ? title : "");
    html.Raw("</title>\n<style>\n"
             "body{font:13px/1.4 system-ui,sans-serif;margin:24px;color:#222;background:#fff}\n"
             "h1{margin:0 0 4px}h2{margin:32px 0 4px;border-bottom:2px solid #ddd}"
             "h3{margin:16px 0 6px}h4{margin:4px 0;font-weight:normal}\n"
             ".lead{color:#555;max-width:70em}.pair{display:flex;flex-wrap:wrap;gap:28px;"
             "align-items:flex-start}.grid{display:flex;flex-wrap:wrap;gap:8px 40px}\n"
             "table{border-collapse:collapse;font-size:12px;margin-bottom:12px}"
             "caption{text-align:left;font-weight:bold;padding:2px 0}\n"
             "th,td{padding:2px 8px;border-bottom:1px solid #eee;text-align:right}"
             "th:first-child,td:first-child{text-align:left}th{background:#f4f4f4}\n"
             "i{display:inline-block;width:11px;height:11px;margin-right:6px;"
             "vertical-align:-1px}small{color:#777}\n"
             ".cards{display:flex;flex-wrap:wrap;gap:12px;margin:12px 0}.cards div{background:"
             "#f4f6f9;border-radius:6px;padding:8px 14px}.cards b{display:block;font-size:20px}\n"
             "</style></head>\n<body>\n<h1>Memory report</h1>\n<p class=\"lead\">");
    html.Text(title ? title : "");
    html.Raw("</p>\n<div class=\"cards\" id=\"summary\">");
    u64 blocks = 0, bytes = 0;
    for (const AllocatorInfo& a : model.allocators)
        if (a.kind != Kind::Tracking)
        {
            blocks += a.blocks;
            bytes += a.bytes;
        }
    html.Raw("<div><b>");
    html.Bytes(model.pageManager[2] * 4096);
    html.Raw("</b>committed by the page manager</div><div><b>");
    html.Bytes(model.pageManager[1] * 4096);
    html.Format("</b>in pages in use</div><div><b>%u</b>allocators</div>"
                "<div><b>%" PRIu64 "</b>live blocks listed, ",
                unsigned(model.allocators.size()), blocks);
    html.Bytes(bytes);
    html.Raw("</div>");
    if (model.hasRange)
    {
        html.Format("<div><b>%" PRIu64 "</b>blocks still live between the markers, ",
                    SumBlocks(model.leakSites, false));
        html.Bytes(SumBlocks(model.leakSites, true));
        html.Raw("</div>");
    }
    html.Raw("</div>\n");
    WritePageMap(html, model);
    WriteAllocators(html, model);
    WriteSites(html, model);
    WriteRange(html, model);
    if (!model.notes.empty())
    {
        html.Raw("<section id=\"notes\"><h2>Notes</h2><ul>\n");
        for (const String& note : model.notes)
        {
            html.Raw("<li>");
            html.Text(note);
            html.Raw("</li>\n");
        }
        html.Raw("</ul></section>\n");
    }
    html.Raw("</body></html>\n");
    out.Flush();
}

} // namespace report
} // namespace qel
