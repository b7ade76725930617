#include "memory/memorytest.h"

#include <qel/mem.h>
#include <qel/memoryreport.h>
#include <qel/packedallocator.h>
#include <qel/pageallocator.h>
#include <qel/pagemanager.h>
#include <qel/poolallocator.h>
#include <qel/provider.h>
#include <qel/trackingallocator.h>

#include <atomic>
#include <map>
#include <memory>
#include <thread>

namespace
{

using qel::Allocator;
using qel::AllocatorStatistics;
using qel::AllocatorStatMarker;
using qel::Mem;
using qeltest::Hex;

typedef std::vector<std::string> Cells;

// The cells of the rows of the table whose id is `id`, markup stripped.
std::vector<Cells> Table(const std::string& html, const std::string& id)
{
    std::vector<Cells> rows;
    const std::size_t start = html.find("id=\"" + id + "\"");
    if (start == std::string::npos)
        return rows;
    const std::size_t end = html.find("</table>", start);
    for (std::size_t row = html.find("<tr", start); row < end; row = html.find("<tr", row + 1))
    {
        Cells cells;
        const std::size_t rowEnd = html.find("</tr>", row);
        for (std::size_t cell = html.find("<td", row); cell < rowEnd;
             cell = html.find("<td", cell + 1))
        {
            std::string text;
            for (std::size_t i = html.find('>', cell) + 1; html.compare(i, 5, "</td>") != 0; ++i)
            {
                if (html[i] == '<')
                    i = html.find('>', i);
                else
                    text += html[i];
            }
            cells.push_back(text);
        }
        if (!cells.empty())
            rows.push_back(cells);
    }
    return rows;
}

// The row of `table` whose id is `id`.
Cells Row(const std::string& html, const std::string& table, const std::string& id)
{
    const std::size_t at = html.find("<tr id=\"" + id + "\"");
    if (at == std::string::npos)
        return {};
    const std::size_t end = html.find("</tr>", at);
    std::vector<Cells> rows = Table(html.substr(0, end + 5) + "</table>", table);
    return rows.empty() ? Cells() : rows.back();
}

std::string Text(qel::u64 value)
{
    return std::to_string(value);
}

std::string LiveReport(AllocatorStatMarker* from = nullptr, AllocatorStatMarker* to = nullptr)
{
    qeltest::DumpCapture out;
    EXPECT_TRUE(Mem::WriteMemoryReport(out, from, to));
    return out.Text();
}

std::string SavedDumps(AllocatorStatMarker* from, AllocatorStatMarker* to)
{
    qeltest::DumpCapture out;
    Mem::DumpAllStatistics(&out, from, to);
    return out.Text();
}

// A workload on allocators of its own, with what it keeps live written down.
struct Workload
{
    std::unique_ptr<Allocator> pool{Mem::CreatePoolAllocator()};
    std::unique_ptr<Allocator> packed{Mem::CreatePackedAllocator("Scripted", 256)};
    std::unique_ptr<Allocator> pages{Mem::CreatePageAllocator()};
    std::unique_ptr<Allocator> tracker{Mem::CreateTrackingAllocator()};
    std::map<Allocator*, std::vector<void*>> live;
    AllocatorStatMarker first, second;
    // Tracked blocks by tag, and by file and line, as blocks and bytes asked
    // for; those made between the markers apart.
    std::map<std::string, std::pair<unsigned, unsigned>> tags, lines, between;
    std::pair<void*, unsigned> largestBetween{nullptr, 0};

    Workload()
    {
        std::mt19937 random(7);
        auto fill = [&](Allocator& allocator, int count, unsigned low, unsigned high)
        {
            for (int i = 0; i < count; ++i)
                live[&allocator].push_back(allocator.Malloc(low + random() % (high - low + 1)));
            // Every third goes, from the middle of the pages.
            std::vector<void*>& blocks = live[&allocator];
            for (std::size_t i = 0; i < blocks.size(); i += 3)
                allocator.Free(blocks[i]);
            for (std::size_t i = 0, kept = 0; i < blocks.size(); ++i)
                if (i % 3 != 0)
                    blocks[kept++] = blocks[i];
            blocks.resize(blocks.size() - (blocks.size() + 2) / 3);
        };
        fill(*pool, 900, 1, 256);
        fill(*packed, 300, 1, 20000);
        fill(*pages, 7, 1, 40000);
        const char* names[] = {"Mesh", "Sound", "Script"};
        auto tracked = [&](int i, bool marked)
        {
            const unsigned size = 8 + random() % 9000;
            const char* tag = names[i % 3];
            const unsigned line = 10 + i % 4;
            void* p = tracker->MallocDebug(size, tag, "game.cpp", line);
            live[tracker.get()].push_back(p);
            for (auto* group : {&tags, &lines})
            {
                auto& entry = (*group)[group == &tags ? tag : "game.cpp:" + std::to_string(line)];
                entry.first += 1;
                entry.second += size;
            }
            if (marked)
            {
                auto& entry = between["game.cpp:" + std::to_string(line)];
                entry.first += 1;
                entry.second += size;
                if (size > largestBetween.second)
                    largestBetween = {p, size};
            }
        };
        for (int i = 0; i < 200; ++i)
            tracked(i, false);
        tracker->FillStatMarker(first);
        for (int i = 0; i < 60; ++i)
            tracked(i, true);
        // Blocks made and freed between the markers are not listed.
        tracker->Free(tracker->MallocDebug(123456, "Gone", "gone.cpp", 1));
        tracker->FillStatMarker(second);
    }
    ~Workload()
    {
        for (auto& blocks : live)
            for (void* p : blocks.second)
                blocks.first->Free(p);
    }
};

TEST(MemoryReport, EveryCounterAndEveryLiveBlockOfAScriptedWorkloadIsShownOnce)
{
    Workload work;
    const std::string html = LiveReport(&work.first, &work.second);

    // Pool and packed: the ten counters as the allocator keeps them, every
    // live block listed once with the bytes it uses, and its pages on the map.
    auto* pool = static_cast<qel::PoolAllocator*>(work.pool.get());
    auto* packed = static_cast<qel::PackedAllocator*>(work.packed.get());
    const std::pair<Allocator*, AllocatorStatistics> counted[] = {
        {pool, pool->GetTotals()}, {packed, packed->GetStatistics()}};
    for (const auto& allocator : counted)
    {
        SCOPED_TRACE(Hex(allocator.first));
        const AllocatorStatistics& s = allocator.second;
        const Cells row = Row(html, "allocator-table", "allocator-" + Hex(allocator.first));
        ASSERT_EQ(row.size(), 14u);
        const Cells expected = {Text(s.currentAllocations),
                                Text(s.peakAllocations),
                                Text(s.currentRequestedSize),
                                Text(s.peakRequestedSize),
                                Text(s.currentUsedSize),
                                Text(s.peakUsedSize),
                                Text(s.currentPages),
                                Text(s.peakPages),
                                Text(s.currentFullPages),
                                Text(s.peakFullPages),
                                Text(work.live[allocator.first].size()),
                                Text(s.currentUsedSize),
                                "0"};
        EXPECT_EQ(Cells(row.begin() + 1, row.end()), expected);
        EXPECT_EQ(Row(html, "page-owners", "pages-" + Hex(allocator.first)).at(1),
                  Text(s.currentPages));
        unsigned histogram = 0;
        for (const Cells& bin : Table(html, "histogram-" + Hex(allocator.first)))
            histogram += std::stoul(bin.at(1));
        EXPECT_EQ(histogram, work.live[allocator.first].size());
    }
    auto* pages = static_cast<qel::PageAllocator*>(work.pages.get());
    const Cells pageRow = Row(html, "allocator-table", "allocator-" + Hex(pages));
    ASSERT_EQ(pageRow.size(), 14u);
    EXPECT_EQ(pageRow[1], Text(pages->GetNumberOfAllocations()));
    EXPECT_EQ(pageRow[7], Text(pages->GetNumberOfPages()));
    EXPECT_EQ(pageRow[11], Text(work.live[pages].size()));
    EXPECT_EQ(pageRow[12], Text(pages->GetNumberOfPages() * 4096));
    EXPECT_EQ(Row(html, "page-owners", "pages-" + Hex(pages)).at(1),
              Text(pages->GetNumberOfPages()));

    const qel::PageManager::Statistics s = qel::PageManager::GetSingletonInstance().GetStatistics();
    const std::vector<Cells> manager = {
        {"Requests", Text(s.currentRequests), Text(s.peakRequests)},
        {"Used pages", Text(s.currentUsedPages), Text(s.peakUsedPages)},
        {"System pages", Text(s.currentSystemPages), Text(s.peakSystemPages)}};
    EXPECT_EQ(Table(html, "page-manager"), manager);
    unsigned long long metapagePages = 0, metapageUsed = 0;
    for (const Cells& metapage : Table(html, "metapages"))
    {
        metapagePages += std::stoull(metapage.at(2));
        metapageUsed += std::stoull(metapage.at(3));
    }
    EXPECT_EQ(metapagePages, s.currentSystemPages);
    EXPECT_EQ(metapageUsed, s.currentUsedPages);

    // The tracked blocks by tag and by line, and those still live between
    // the markers, with the largest first.
    auto grouped = [&html](const char* id)
    {
        std::map<std::string, std::pair<unsigned, unsigned>> groups;
        for (const Cells& row : Table(html, id))
            groups[row.at(0)] = {unsigned(std::stoul(row.at(1))), unsigned(std::stoul(row.at(2)))};
        return groups;
    };
    EXPECT_EQ(grouped("by-tag"), work.tags);
    EXPECT_EQ(grouped("by-line"), work.lines);
    EXPECT_EQ(grouped("range-by-line"), work.between);
    const std::vector<Cells> largest = Table(html, "range-largest");
    ASSERT_EQ(largest.size(), 60u);
    EXPECT_EQ(largest[0].at(0), Hex(work.largestBetween.first));
    EXPECT_EQ(largest[0].at(1), Text(work.largestBetween.second));
}

TEST(MemoryReport, SavedDumpsReadInPiecesGiveTheLiveReportWhichDisturbsNothing)
{
    Workload work;
    SavedDumps(nullptr, nullptr); // gives this thread's caches back first
    auto* pool = static_cast<qel::PoolAllocator*>(work.pool.get());
    auto* packed = static_cast<qel::PackedAllocator*>(work.packed.get());
    auto snapshot = [&]
    {
        const qel::PageManager::Statistics s =
            qel::PageManager::GetSingletonInstance().GetStatistics();
        return std::vector<qel::u32>{
            s.currentRequests,
            s.currentUsedPages,
            s.currentSystemPages,
            pool->GetTotals().currentUsedSize,
            packed->GetStatistics().currentUsedSize,
            static_cast<qel::TrackingAllocator*>(work.tracker.get())->GetPosition()};
    };
    const std::vector<qel::u32> before = snapshot();
    const std::string live = LiveReport(&work.first, &work.second);
    const std::string dumps = SavedDumps(&work.first, &work.second);
    EXPECT_EQ(LiveReport(&work.first, &work.second), live);
    EXPECT_EQ(snapshot(), before);

    // Read whole, in pieces cut anywhere (CR LF split too), and twice over.
    std::mt19937 random(3);
    for (int pass = 0; pass < 3; ++pass)
    {
        SCOPED_TRACE(pass);
        qel::MemoryReport report;
        const std::string text = pass == 2 ? dumps + dumps : dumps;
        for (std::size_t at = 0; at < text.size();)
        {
            const std::size_t piece = pass == 0 ? text.size() : 1 + random() % 300;
            const std::size_t size = std::min(piece, text.size() - at);
            ASSERT_TRUE(report.Read(text.data() + at, qel::u32(size)));
            at += size;
        }
        qeltest::DumpCapture out;
        ASSERT_TRUE(report.Write(out, "The running process"));
        if (pass < 2)
        {
            EXPECT_EQ(out.Text(), live);
            continue;
        }
        // Twice over: the same tables, and a note for what was not read again.
        for (const char* table : {"allocator-table", "page-owners", "metapages", "by-tag",
                                  "range-by-line", "range-largest"})
            EXPECT_EQ(Table(out.Text(), table), Table(live, table)) << table;
        EXPECT_NE(out.Text().find("more than once"), std::string::npos);
    }
}

TEST(MemoryReport, AHundredThousandLiveBlocksMakeAPageOfAFewMegabytes)
{
    std::unique_ptr<Allocator> tracker(Mem::CreateTrackingAllocator());
    std::vector<void*> blocks;
    const char* tags[] = {"Mesh", "Texture", "Script", "Audio", "AI"};
    std::mt19937 random(11);
    for (int i = 0; i < 100000; ++i)
        blocks.push_back(
            tracker->MallocDebug(8 + random() % 600, tags[i % 5], "big.cpp", unsigned(i % 40)));
    const std::string html = LiveReport();
    EXPECT_LT(html.size(), 4u << 20);
    const Cells row = Row(html, "allocator-table", "allocator-" + Hex(tracker.get()));
    ASSERT_EQ(row.size(), 14u);
    EXPECT_EQ(row[11], "100000");
    for (void* p : blocks)
        tracker->Free(p);
}

TEST(MemoryReportStress, TheLiveReportIsWholeWhileOtherThreadsAllocate)
{
    // Threads churn a tracker (four of them, handing blocks to each other),
    // the general allocator and tagged blocks; the reports written meanwhile
    // must be whole pages naming the tracker, and every record goes with its
    // block.
    std::unique_ptr<Allocator> tracker(Mem::CreateTrackingAllocator());
    auto size = [](std::mt19937& random) { return 1 + random() % 5000; };
    std::atomic<int> running{3};
    std::thread churns[] = {
        std::thread(
            [&]
            {
                qeltest::ChurnWithContentChecks(*tracker, 4, 20000, size);
                --running;
            }),
        std::thread(
            [&]
            {
                qeltest::ChurnWithContentChecks(*Mem::GetGeneralAlloc(), 2, 3000, size);
                --running;
            }),
        std::thread(
            [&]
            {
                const char* tags[] = {"Mesh", "Sound", "Script"};
                std::vector<void*> kept;
                for (unsigned i = 0; i < 3000; ++i)
                {
                    kept.push_back(
                        tracker->MallocDebug(16 + i % 700, tags[i % 3], "churn.cpp", i % 9));
                    if (i % 2)
                    {
                        tracker->Free(kept[i / 2]);
                        kept[i / 2] = nullptr;
                    }
                }
                for (void* p : kept)
                    tracker->Free(p);
                --running;
            }),
    };
    int reports = 0;
    do
    {
        const std::string html = LiveReport();
        ASSERT_GE(html.size(), 8u);
        EXPECT_EQ(html.compare(html.size() - 8, 8, "</html>\n"), 0);
        EXPECT_EQ(Row(html, "allocator-table", "allocator-" + Hex(tracker.get())).size(), 14u);
        ++reports;
    } while (running != 0);
    for (std::thread& churn : churns)
        churn.join();
    std::printf("%d reports written while the threads ran\n", reports);

    const std::string html = LiveReport();
    EXPECT_EQ(Row(html, "allocator-table", "allocator-" + Hex(tracker.get())).at(11), "0");
    EXPECT_TRUE(Table(html, "by-tag").empty());
    auto& tracking = static_cast<qel::TrackingAllocator&>(*tracker);
    EXPECT_EQ(tracking.GetNumberOfAllocations(), 0u);
    EXPECT_EQ(tracking.GetRequestedSize(), 0u);
    EXPECT_TRUE(tracker->ValidateMemory());
}

} // namespace
