#include "memory/memorytest.h"

#include <qel/mem.h>
#include <qel/trackingallocator.h>

#include <functional>
#include <map>
#include <memory>

namespace
{

using qel::Allocator;
using qel::AllocatorStatMarker;
using qeltest::DumpCapture;
using qeltest::Hex;

std::unique_ptr<Allocator> NewTracker()
{
    return std::unique_ptr<Allocator>(qel::Mem::CreateTrackingAllocator());
}

// The tracker's listing: each live block's address, and its size, tag, file
// and line as one text (its position left out).
std::map<std::string, std::string> Listing(Allocator& tracker, AllocatorStatMarker* from = nullptr,
                                           AllocatorStatMarker* to = nullptr)
{
    DumpCapture capture;
    tracker.DumpStatistics(qel::TrackingAllocator::DumpAllocations, from, to, capture.Stream(),
                           nullptr);
    std::map<std::string, std::string> blocks;
    for (const std::string& line : capture.Lines())
    {
        if (line.compare(0, 2, "0x") != 0)
            continue;
        const std::size_t address = line.find('\t'), size = line.find('\t', address + 1),
                          position = line.find('\t', size + 1);
        std::string rest = line.substr(address + 1, size - address - 1);
        rest = rest.substr(rest.find_first_not_of(' ')) + line.substr(position);
        EXPECT_TRUE(blocks.emplace(line.substr(0, address), rest).second) << line;
    }
    return blocks;
}

std::string Entry(unsigned size, const char* tag, const char* file, unsigned line)
{
    return std::to_string(size) + "\t" + tag + "\t" + file + "\t" + std::to_string(line);
}

TEST(TrackingAllocator, ARecordFollowsItsBlockThroughEveryWayItMovesOrGoes)
{
    // Each case starts from one debug block and returns where the block is
    // afterwards (null when gone) and the entry expected for it.
    struct Case
    {
        const char* name;
        unsigned size;
        std::function<void*(Allocator&, void*)> act;
        std::string expected;
    };
    const Case cases[] = {
        {"kept", 100, [](Allocator&, void* p) { return p; }, Entry(100, "A", "a.cpp", 1)},
        {"resized in place, new site", 100,
         [](Allocator& t, void* p) { return t.ReAllocDebug(p, 110, "B", "b.cpp", 2); },
         Entry(110, "B", "b.cpp", 2)},
        {"pool to packed", 100, [](Allocator& t, void* p) { return t.ReAlloc(p, 1000); },
         Entry(1000, "A", "a.cpp", 1)},
        {"packed to pool", 2000, [](Allocator& t, void* p) { return t.ReAlloc(p, 50); },
         Entry(50, "A", "a.cpp", 1)},
        {"packed grown", 2000, [](Allocator& t, void* p) { return t.ReAlloc(p, 70000); },
         Entry(70000, "A", "a.cpp", 1)},
        {"freed by its owner, as delete does", 100,
         [](Allocator&, void* p)
         {
             Allocator::GetOwner(p)->Free(p);
             return nullptr;
         },
         ""},
        {"freed by the tracker", 3000,
         [](Allocator& t, void* p)
         {
             t.FreeDebug(p, "c.cpp", 3);
             return nullptr;
         },
         ""},
        {"everything freed", 100,
         [](Allocator& t, void*)
         {
             t.FreeAll();
             return nullptr;
         },
         ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        std::unique_ptr<Allocator> tracker = NewTracker();
        void* other = tracker->Malloc(40); // an untagged neighbour that stays
        void* p = tracker->MallocDebug(c.size, "A", "a.cpp", 1);
        void* q = c.act(*tracker, p);
        std::map<std::string, std::string> expected;
        if (q != nullptr)
            expected[Hex(q)] = c.expected;
        if (std::string(c.name) != "everything freed")
            expected[Hex(other)] = Entry(40, "", "", 0);
        EXPECT_EQ(Listing(*tracker), expected);
        auto& tracking = static_cast<qel::TrackingAllocator&>(*tracker);
        EXPECT_EQ(tracking.GetNumberOfAllocations(), expected.size());
        tracker->FreeAll();
    }
}

TEST(TrackingAllocator, MarkersBoundTheListingAndTheTagsAndRequestsCountAsAsked)
{
    std::unique_ptr<Allocator> tracker = NewTracker();
    AllocatorStatMarker first, second;
    void* before = tracker->MallocDebug(700, "Early", "e.cpp", 5);
    tracker->FillStatMarker(first);
    void* kept = tracker->MallocDebug(33, "Level", "l.cpp", 9);
    void* also = tracker->MallocDebug(5000, "Level", "l.cpp", 10);
    tracker->Free(tracker->MallocDebug(64, "Gone", "g.cpp", 1));
    tracker->FillStatMarker(second);
    void* after = tracker->Malloc(20);

    const std::map<std::string, std::string> between = {
        {Hex(kept), Entry(33, "Level", "l.cpp", 9)},
        {Hex(also), Entry(5000, "Level", "l.cpp", 10)}};
    EXPECT_EQ(Listing(*tracker, &first, &second), between);
    EXPECT_EQ(Listing(*tracker, nullptr, &first),
              (std::map<std::string, std::string>{{Hex(before), Entry(700, "Early", "e.cpp", 5)}}));
    EXPECT_EQ(Listing(*tracker, &second, nullptr),
              (std::map<std::string, std::string>{{Hex(after), Entry(20, "", "", 0)}}));

    DumpCapture capture;
    tracker->DumpStatistics(qel::TrackingAllocator::DumpUsage | qel::TrackingAllocator::DumpTags,
                            &first, &second, capture.Stream(), nullptr);
    const std::vector<std::string> lines = capture.Lines();
    const auto tag =
        std::find_if(lines.begin(), lines.end(),
                     [](const std::string& l) { return l.compare(0, 5, "Level") == 0; });
    ASSERT_NE(tag, lines.end());
    EXPECT_EQ(*tag, qeltest::Format("%-31s\t%15u\t%15u", "Level", 2u, 5033u));
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& l) { return l.compare(0, 5, "Early") == 0; }),
              0);
    // The usage row: 4 blocks and the bytes asked for; peaks include the
    // block freed.
    const auto row =
        std::find_if(lines.begin(), lines.end(),
                     [](const std::string& l) { return l.compare(0, 7, "Tracked") == 0; });
    ASSERT_NE(row, lines.end());
    unsigned n[12] = {};
    ASSERT_EQ(std::sscanf(row->c_str() + 15, "%u %u %u %u %u %u %u %u", &n[0], &n[1], &n[2], &n[3],
                          &n[4], &n[5], &n[6], &n[7]),
              8);
    EXPECT_EQ(n[0], 4u);
    EXPECT_EQ(n[1], 700u + 33 + 5000 + 20);
    EXPECT_EQ(n[6], 4u);
    EXPECT_EQ(n[7], 700u + 33 + 5000 + 64);
    tracker->FreeAll();
}

TEST(TrackingAllocator, SiteTextsAreCopiedAndAListedRowStaysOneLine)
{
    std::unique_ptr<Allocator> tracker = NewTracker();
    char tag[] = "Old\ttag";
    std::string file(400, 'd');
    file += "/name.cpp";
    void* p = tracker->MallocDebug(8, tag, file.c_str(), 77);
    std::strcpy(tag, "New");
    file.assign(file.size(), 'x');
    const std::map<std::string, std::string> listed = Listing(*tracker);
    ASSERT_EQ(listed.size(), 1u);
    // The tab became a blank; the long path keeps its end.
    EXPECT_EQ(listed.at(Hex(p)),
              Entry(8, "Old tag", (std::string(190, 'd') + "/name.cpp").c_str(), 77));
    tracker->FreeAll();
}

} // namespace
