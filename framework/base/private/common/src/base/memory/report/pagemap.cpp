// The page map: the address space the page manager holds, one strip per
// 4 MB region of the page records, one cell per 4096-byte page. Committed
// free pages are grey, pages in use have their owner's colour: a pale cell
// for the page, and a solid bar from its foot as high as the share of the
// page that live blocks fill, in quarters. Pages the page manager has not
// committed stay blank, so metapages, their free stretches and half-empty
// pages show at a glance.
#include "base/memory/report/html.h"

#include <algorithm>
#include <cinttypes>

namespace qel
{
namespace report
{

namespace
{

const u64 kPage = 4096;
// SVG coordinates are plain unsigned: "%u" formats them on every host.
const unsigned kRegionPages = 1024, kColumns = 128, kRows = kRegionPages / kColumns;
const unsigned kPitchX = 5, kPitchY = 7, kCellX = 4, kCellY = 6;
const unsigned kLabel = 132, kRegionHeight = kRows * kPitchY + 10;
const unsigned kWidth = kLabel + kColumns * kPitchX;
// Regions past this many are counted, not drawn: the page stays small.
const unsigned kMostRegions = 512;

enum : unsigned char
{
    NotCommitted,
    Free,
    Used
};

struct Cell
{
    unsigned char state;
    unsigned char level; // quarters in use, 0 to 4; 5 when not known (drawn full)
    u32 owner;
};

// Path data by class: 0 free pages, then for each owner (the allocators and
// one more for an owner not dumped) its pale cells and its levels 1 to 4.
struct Paths
{
    explicit Paths(u32 owners) : data(1 + owners * 5) {}
    String& Free() { return data[0]; }
    String& Pale(u32 owner) { return data[1 + owner * 5]; }
    String& Level(u32 owner, u32 level) { return data[1 + owner * 5 + level]; }
    Vector<String> data;
};

void AddRect(String& path, unsigned x, unsigned y, unsigned width, unsigned height)
{
    char text[64];
    std::snprintf(text, sizeof text, "M%u %uh%uv%uh-%uz", x, y, width, height, width);
    path += text;
}

u32 OwnerIndex(const Model& model, u64 address)
{
    for (u32 i = 0; i < model.allocators.size(); ++i)
        if (model.allocators[i].address == address)
            return i;
    return u32(model.allocators.size());
}

// Fills the cells of region `region` from the metapages and the listed pages
// from `next` on (sorted addresses), and moves `next` past them.
void FillRegion(const Model& model, u64 region, const Vector<u64>& listed, std::size_t& next,
                Cell* cells)
{
    const u64 base = region << 22, top = base + kRegionPages * kPage;
    std::fill(cells, cells + kRegionPages, Cell{NotCommitted, 0, 0});
    auto mark = [&](u64 start, u64 end, Cell cell)
    {
        for (u64 page = std::max(start, base); page < std::min(end, top); page += kPage)
            cells[(page - base) / kPage] = cell;
    };
    for (const Metapage& metapage : model.metapages)
    {
        if (metapage.end <= base || metapage.start >= top)
            continue;
        mark(metapage.start, metapage.end, Cell{Free, 0, 0});
        for (const Stretch& stretch : metapage.stretches)
            if (stretch.used)
                mark(stretch.start, stretch.start + stretch.pages * kPage,
                     Cell{Used, 5, OwnerIndex(model, stretch.owner)});
    }
    for (; next < listed.size() && listed[next] < top; ++next)
    {
        const PageUse& use = model.pages.at(listed[next]);
        const u32 level = u32((u64(use.bytes) * 4 + kPage - 1) / kPage);
        cells[(listed[next] - base) / kPage] = Cell{Used, (unsigned char)level, use.allocator};
    }
}

void DrawRegion(const Cell* cells, u32 top, Paths& paths)
{
    for (u32 row = 0; row < kRows; ++row)
    {
        const Cell* line = cells + row * kColumns;
        const u32 y = top + row * kPitchY;
        // Runs of equal cells become one rectangle: free, pale, then solid.
        for (u32 c = 0; c < kColumns;)
        {
            u32 end = c + 1;
            const Cell& cell = line[c];
            if (cell.state == NotCommitted)
            {
                c = end;
                continue;
            }
            auto same = [&](const Cell& other) {
                return other.state == cell.state &&
                       (cell.state == Free || other.owner == cell.owner);
            };
            while (end < kColumns && same(line[end]))
                ++end;
            const u32 x = kLabel + c * kPitchX, width = (end - c) * kPitchX - (kPitchX - kCellX);
            if (cell.state == Free)
                AddRect(paths.Free(), x, y, width, kCellY);
            else
            {
                AddRect(paths.Pale(cell.owner), x, y, width, kCellY);
                for (u32 s = c; s < end;)
                {
                    u32 e = s + 1;
                    while (e < end && line[e].level == line[s].level)
                        ++e;
                    const u32 level = line[s].level > 4 ? 4 : line[s].level;
                    const u32 height = (kCellY * level + 3) / 4;
                    if (level != 0)
                        AddRect(paths.Level(cell.owner, level), kLabel + s * kPitchX,
                                y + kCellY - height, (e - s) * kPitchX - (kPitchX - kCellX),
                                height);
                    s = e;
                }
            }
            c = end;
        }
    }
}

void WritePath(Html& html, const String& path, const char* colour, const char* opacity,
               const String& title)
{
    if (path.empty())
        return;
    html.Format("<path fill=\"%s\" fill-opacity=\"%s\" d=\"", colour, opacity);
    html.Raw(path.c_str());
    html.Raw("\"><title>");
    html.Text(title);
    html.Raw("</title></path>\n");
}

void WriteMetapageTable(Html& html, const Model& model)
{
    html.Raw("<table id=\"metapages\"><caption>Metapages</caption>\n<tr><th>Age</th><th>Start</th>"
             "<th>Pages</th><th>Used</th><th>Free</th><th>Free runs</th><th>Largest</th>"
             "</tr>\n");
    for (const Metapage& m : model.metapages)
    {
        u64 runs = 0, largest = 0;
        for (const Stretch& s : m.stretches)
            if (!s.used)
            {
                ++runs;
                largest = std::max(largest, s.pages);
            }
        if (m.hasFreeRuns)
            runs = m.freeRuns;
        html.Format("<tr id=\"metapage-%" PRIu64 "\"><td>%" PRIu64 "</td><td>0x%08" PRIX64
                    "</td><td>%" PRIu64 "</td><td>%" PRIu64 "</td><td>%" PRIu64 "</td><td>%" PRIu64
                    "</td><td>",
                    m.age, m.age, m.start, m.pages, m.usedPages, m.pages - m.usedPages, runs);
        if (m.stretches.empty())
            html.Raw("?");
        else
            html.Format("%" PRIu64, largest);
        html.Raw("</td></tr>\n");
    }
    html.Raw("</table>\n");
}

} // namespace

void WritePageMap(Html& html, const Model& model)
{
    Vector<u64> regions, listed;
    for (const Metapage& m : model.metapages)
        for (u64 r = m.start >> 22; m.end != 0 && r <= (m.end - 1) >> 22; ++r)
            regions.push_back(r);
    listed.reserve(model.pages.size());
    for (const auto& page : model.pages)
    {
        listed.push_back(page.first);
        regions.push_back(page.first >> 22);
    }
    std::sort(regions.begin(), regions.end());
    regions.erase(std::unique(regions.begin(), regions.end()), regions.end());
    std::sort(listed.begin(), listed.end());

    html.Raw("<section id=\"page-map\"><h2>Address space</h2>\n<p class=\"lead\">Every 4 MB "
             "region the page manager uses, one cell per 4 KB page: grey cells are committed "
             "and free, coloured ones belong to the allocator of that colour, the solid part "
             "as high as the share of the page live blocks fill. Blank cells are not "
             "committed.</p>\n<div class=\"pair\"><div class=\"picture\">\n");
    const unsigned drawn = unsigned(std::min<std::size_t>(regions.size(), kMostRegions));
    const unsigned height = std::max(drawn * kRegionHeight, 20u);
    html.Format("<svg id=\"page-map-svg\" xmlns=\"http://www.w3.org/2000/svg\" width=\"%u\" "
                "height=\"%u\" viewBox=\"0 0 %u %u\" font-size=\"11\">\n",
                kWidth, height, kWidth, height);
    Paths paths(u32(model.allocators.size()) + 1);
    Vector<Cell> cells(kRegionPages);
    // Pages by owner (one more for an owner not dumped), and free ones.
    Vector<u64> owned(model.allocators.size() + 1);
    u64 free = 0;
    std::size_t next = 0;
    for (u32 i = 0; i < regions.size(); ++i)
    {
        while (next < listed.size() && (listed[next] >> 22) < regions[i])
            ++next;
        FillRegion(model, regions[i], listed, next, cells.data());
        for (const Cell& cell : cells)
        {
            free += cell.state == Free;
            owned[cell.owner] += cell.state == Used;
        }
        if (i >= drawn)
            continue;
        const unsigned top = unsigned(i) * kRegionHeight + 2;
        html.Format("<text x=\"0\" y=\"%u\">0x%08" PRIX64 "</text>"
                    "<rect x=\"%u\" y=\"%u\" width=\"%u\" height=\"%u\" fill=\"#fafafa\" "
                    "stroke=\"#e4e4e4\"/>\n",
                    top + 10, regions[i] << 22, kLabel - 1, top - 1, kColumns * kPitchX + 1,
                    kRows * kPitchY + 1);
        DrawRegion(cells.data(), top, paths);
    }
    WritePath(html, paths.Free(), "#bdbdbd", "1", "committed, free");
    for (u32 owner = 0; owner <= model.allocators.size(); ++owner)
    {
        const bool known = owner < model.allocators.size();
        const String name =
            known ? AllocatorLabel(model, owner, true) : String("an owner not dumped");
        const char* colour = known ? AllocatorColour(owner) : "#555555";
        WritePath(html, paths.Pale(owner), colour, "0.3", name);
        for (u32 level = 1; level <= 4; ++level)
            WritePath(html, paths.Level(owner, level), colour, "1", name);
    }
    html.Raw("</svg>\n");
    if (regions.size() > drawn)
        html.Format("<p>%u more regions are not drawn.</p>\n", unsigned(regions.size() - drawn));
    html.Raw("</div><div class=\"numbers\">\n");

    // The legend with each colour's pages, then the page manager's counters
    // and its metapages.
    html.Format("<table id=\"page-owners\"><caption>Pages on the map</caption>\n"
                "<tr><td><i style=\"background:#bdbdbd\"></i>committed, free</td><td>%" PRIu64
                "</td></tr>\n",
                free);
    for (u32 i = 0; i <= model.allocators.size(); ++i)
    {
        if (i == model.allocators.size())
        {
            if (owned[i] != 0)
                html.Format("<tr><td><i style=\"background:#555555\"></i>an owner not "
                            "dumped</td><td>%" PRIu64 "</td></tr>\n",
                            owned[i]);
            break;
        }
        html.Format("<tr id=\"pages-0x%08" PRIX64 "\"><td>", model.allocators[i].address);
        WriteAllocatorName(html, model, i);
        html.Format("</td><td>%" PRIu64 "</td></tr>\n", owned[i]);
    }
    html.Raw("</table>\n");
    if (model.hasPageManager)
    {
        const u64* c = model.pageManager;
        html.Format("<table id=\"page-manager\"><caption>Page manager</caption>\n"
                    "<tr><th></th><th>Current</th><th>Peak</th></tr>\n"
                    "<tr><td>Requests</td><td>%" PRIu64 "</td><td>%" PRIu64 "</td></tr>\n"
                    "<tr><td>Used pages</td><td>%" PRIu64 "</td><td>%" PRIu64 "</td></tr>\n"
                    "<tr><td>System pages</td><td>%" PRIu64 "</td><td>%" PRIu64 "</td></tr>\n"
                    "</table>\n",
                    c[0], c[3], c[1], c[4], c[2], c[5]);
    }
    WriteMetapageTable(html, model);
    html.Raw("</div></div></section>\n");
}

} // namespace report
} // namespace qel
