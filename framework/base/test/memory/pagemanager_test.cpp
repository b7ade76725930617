// The page manager on managers of its own: metapage sizing and release,
// owner indices, the owner lookup, release errors and the statistics dump.
#include <qel/mallocallocator.h>
#include <qel/pagemanager.h>

#include "memory/memorytest.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>

namespace
{

using qel::PageManager;
using qel::u32;
using qeltest::Format;
using qeltest::Hex;

const u32 kMB = 1u << 20;
const u32 kPage = PageManager::PageSize;

char* Page(void* run, u32 index)
{
    return static_cast<char*>(run) + std::size_t(index) * kPage;
}

class PageManagerTest : public ::testing::Test
{
protected:
    PageManagerTest() : pages(new PageManager(0, 64 * kMB, kMB))
    {
        pages->AddOwner(&owner);
        pages->AddOwner(&other);
    }

    qel::MallocAllocator owner, other;
    std::unique_ptr<PageManager> pages;
};

// The first request commits one step, a bigger one a metapage of exactly its
// size, and one past the maximum gets what is left or nothing.
TEST_F(PageManagerTest, MetapagesAreAStepOrTheRequestsSizeUpToTheMaximum)
{
    void* run = pages->AllocatePages(&owner, 1);
    ASSERT_NE(run, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(run) % kPage, 0u);
    EXPECT_EQ(pages->GetSystemBytes(), kMB);
    EXPECT_EQ(pages->GetStatistics().currentSystemPages, 256u);
    EXPECT_EQ(pages->GetNumberOfMetapages(), 1u);
    ASSERT_NE(pages->AllocatePages(&owner, 300), nullptr);
    EXPECT_EQ(pages->GetSystemBytes(), kMB + 300 * kPage);
    EXPECT_EQ(pages->GetStatistics().currentSystemPages, 256u + 300u);

    pages->SetLimits(0, kMB + 428 * kPage, kMB);           // room for 128 pages more
    ASSERT_NE(pages->AllocatePages(&owner, 255), nullptr); // fills the first metapage
    ASSERT_NE(pages->AllocatePages(&owner, 100), nullptr);
    EXPECT_EQ(pages->GetSystemBytes(), kMB + 428 * kPage);
    EXPECT_EQ(pages->AllocatePages(&owner, 29), nullptr); // 28 pages left
    EXPECT_NE(pages->AllocatePages(&owner, 28), nullptr);
    EXPECT_EQ(pages->GetStatistics().currentUsedPages, 684u);
}

TEST_F(PageManagerTest, EmptyMetapageGoesBackUnlessItIsTheKeptFirstOne)
{
    void* run = pages->AllocatePages(&owner, 10);
    pages->ReleasePages(&owner, run, 10);
    EXPECT_EQ(pages->GetSystemBytes(), 0u);
    EXPECT_EQ(pages->GetNumberOfMetapages(), 0u);
    EXPECT_EQ(pages->GetRecords().GetNumberOfRegions(), 0u); // regions go with their pages

    pages->SetLimits(2 * kMB, 64 * kMB, kMB);
    void* first = pages->AllocatePages(&owner, 1);
    void* second = pages->AllocatePages(&owner, 600);
    EXPECT_EQ(pages->GetSystemBytes(), 2 * kMB + 600 * kPage);
    pages->ReleasePages(&owner, second, 600);
    pages->ReleasePages(&owner, first, 1);
    EXPECT_EQ(pages->GetSystemBytes(), 2 * kMB);
    EXPECT_EQ(pages->GetStatistics().currentUsedPages, 0u);
    // The kept metapage serves again without a new commit.
    EXPECT_NE(pages->AllocatePages(&owner, 512), nullptr);
    EXPECT_EQ(pages->GetSystemBytes(), 2 * kMB);
}

TEST_F(PageManagerTest, OwnerIsFoundFromAnyAddressOfItsRunsOnlyInTheWholeAddressSpace)
{
    void* mine = pages->AllocatePages(&owner, 3);
    void* theirs = pages->AllocatePages(&other, 2);
    pages->SetPageTag(theirs, 0x5A); // an owner's tag hides neither owner nor run
    EXPECT_EQ(pages->GetRecords().Find(theirs)->load() & qel::PageRecordTable::TagMask, 0x5Au);
    EXPECT_EQ(pages->FindOwner(theirs), &other);
    EXPECT_EQ(pages->GetRunPages(theirs), 2u);
    EXPECT_EQ(pages->FindOwner(mine), &owner);
    EXPECT_EQ(pages->FindOwner(Page(mine, 3) - 1), &owner);
    EXPECT_EQ(pages->FindOwner(Page(theirs, 1) + 17), &other);
    EXPECT_EQ(pages->GetRunPages(mine), 3u);
    EXPECT_EQ(pages->GetRunPages(Page(mine, 1)), 0u);

    pages->ReleasePages(&owner, mine, 3);
    EXPECT_EQ(pages->FindOwner(mine), nullptr);

    int local = 0;
    void* heap = std::calloc(1, 64); // calloc: gcc -O3 warns of a const pointer to unset bytes
    EXPECT_EQ(pages->FindOwner(&local), nullptr);
    EXPECT_EQ(pages->FindOwner(heap), nullptr);
    EXPECT_EQ(pages->FindOwner(nullptr), nullptr);
    EXPECT_EQ(pages->FindOwner(reinterpret_cast<void*>(~std::uintptr_t(0))), nullptr);
    std::free(heap);
    // The table of regions covers the user address space: 4 GB in regions
    // of 4 MB on 32-bit hosts, 128 TB at least on 64-bit ones.
    const std::uintptr_t regions = pages->GetRecords().GetRegionCapacity();
    if (sizeof(void*) == 4)
        EXPECT_EQ(regions, 1024u);
    else
        EXPECT_GE(regions, std::uintptr_t(1) << (47 - 22));
}

TEST_F(PageManagerTest, RemovedOwnerKeepsOthersIndicesAndItsSlotIsNotReused)
{
    qel::MallocAllocator third, fourth;
    EXPECT_EQ(pages->AddOwner(&third), 2u);
    void* stale = pages->AllocatePages(&other, 1);
    pages->RemoveOwner(&other);
    EXPECT_EQ(pages->GetOwnerIndex(&owner), 0u);
    EXPECT_EQ(pages->GetOwnerIndex(&third), 2u);
    EXPECT_EQ(pages->GetOwnerIndex(&other), PageManager::NoOwner);
    EXPECT_EQ(pages->AddOwner(&fourth), 3u);
    // Pages left behind by the removed owner are nobody's, not the newcomer's.
    EXPECT_EQ(pages->FindOwner(stale), nullptr);
    EXPECT_EQ(pages->AllocatePages(&other, 1), nullptr);
}

// Pages of another owner or released twice are refused (Retry goes on);
// a run outside every metapage is fatal.
TEST_F(PageManagerTest, BadReleasesAreRefusedAndOneOutsideEveryMetapageIsFatal)
{
    qeltest::ScriptedHost host;
    host.Answer({qel::QueryDevice::Retry, qel::QueryDevice::Retry, qel::QueryDevice::Yes});
    void* keep = pages->AllocatePages(&owner, 1); // keeps the metapage alive
    void* run = pages->AllocatePages(&owner, 4);
    pages->ReleasePages(&other, run, 4);
    EXPECT_EQ(pages->GetStatistics().currentUsedPages, 5u);
    pages->ReleasePages(&owner, run, 4);
    pages->ReleasePages(&owner, run, 4);
    EXPECT_EQ(pages->GetStatistics().currentUsedPages, 1u);
    EXPECT_EQ(host.questions.size(), 2u);
    EXPECT_EQ(host.breaks, 2);
    EXPECT_EQ(host.exits, 0);
    EXPECT_EQ(pages->FindOwner(keep), &owner);

    alignas(4096) static char outside[2 * 4096];
    pages->ReleasePages(&owner, outside, 2);
    ASSERT_EQ(host.questions.size(), 3u);
    const std::string message = Format("Unable to find the metapage containing page %s [Length: 2] "
                                       "in the metapage manager!",
                                       Hex(outside).c_str());
    EXPECT_NE(host.questions[2].text.find("Message: " + message + "\n"), std::string::npos);
    EXPECT_EQ(host.breaks, 3);
    EXPECT_EQ(host.exits, 1);
}

TEST_F(PageManagerTest, CuttingARunLeavesItsTailARunOfItsOwn)
{
    void* run = pages->AllocatePages(&owner, 6);
    pages->SetPageTag(run, 7);
    pages->ReleasePages(&owner, run, 2);
    EXPECT_EQ(pages->GetRunPages(Page(run, 2)), 4u);
    void* again = pages->AllocatePages(&owner, 2); // a released page's tag is gone
    ASSERT_EQ(again, run);
    EXPECT_EQ(pages->GetRecords().Find(again)->load() & qel::PageRecordTable::TagMask, 0u);
    pages->ReleasePages(&owner, again, 2);
    EXPECT_EQ(pages->GetStatistics().currentRequests, 1u);
    pages->ReleasePages(&owner, Page(run, 3), 1); // from the middle: two runs
    EXPECT_EQ(pages->GetStatistics().currentRequests, 2u);
    EXPECT_EQ(pages->ReleaseAllPages(&owner), 3u);
    EXPECT_EQ(pages->GetSystemBytes(), 0u);
}

TEST_F(PageManagerTest, RunGrowsOnlyIntoFreePagesRightBehindIt)
{
    char* run = static_cast<char*>(pages->AllocatePages(&owner, 4));
    ASSERT_TRUE(pages->ExtendRun(&owner, run, 4, 3));
    EXPECT_EQ(pages->GetRunPages(run), 7u);
    EXPECT_EQ(pages->FindRunStart(Page(run, 6), pages->GetOwnerIndex(&owner)), run);
    EXPECT_EQ(pages->GetStatistics().currentUsedPages, 7u);
    EXPECT_EQ(pages->GetStatistics().currentRequests, 1u);
    char* next = static_cast<char*>(pages->AllocatePages(&other, 1));
    ASSERT_EQ(next, Page(run, 7));
    EXPECT_FALSE(pages->ExtendRun(&owner, run, 7, 1));    // taken
    EXPECT_FALSE(pages->ExtendRun(&other, run, 7, 1));    // not its run
    EXPECT_FALSE(pages->ExtendRun(&other, next, 1, 256)); // past its metapage
    pages->ReleasePages(&owner, run, 7);
    EXPECT_EQ(pages->GetStatistics().currentUsedPages, 1u);
}

// A run takes the best fitting stretch of the oldest metapage that has one;
// a run that is to grow, the head of the largest stretch (the oldest
// metapage's among equals), where it can grow the longest.
TEST_F(PageManagerTest, RunToGrowTakesTheHeadOfTheLargestStretch)
{
    struct Case
    {
        const char* what;
        u32 count;
        bool toGrow;
        int metapage; // 0 and 1 as made below, 2 a new one
        u32 page;     // where the run starts
        u32 stretch;  // the free pages it starts
    };
    const Case cases[] = {
        {"best fit, oldest first", 8, false, 0, 10, 10},
        {"best fit where only one holds it", 50, false, 1, 100, 100},
        {"largest stretch", 8, true, 1, 100, 100},
        {"largest stretch, exactly its size", 100, true, 1, 100, 100},
        {"equal largest stretches: the oldest", 8, true, 0, 50, 40},
        {"no stretch holds it", 101, true, 2, 0, 0},
    };
    for (const Case& c : cases)
    {
        // Two full metapages of 256 pages; free stretches of 10 and 40 pages
        // in the first, of 100 (or 40) in the second.
        pages.reset(new PageManager(0, 64 * kMB, kMB));
        pages->AddOwner(&owner);
        char* first = static_cast<char*>(pages->AllocatePages(&owner, 256));
        char* second = static_cast<char*>(pages->AllocatePages(&owner, 256));
        pages->ReleasePages(&owner, Page(first, 10), 10);
        pages->ReleasePages(&owner, Page(first, 50), 40);
        const bool equal = std::strstr(c.what, "equal") != nullptr;
        pages->ReleasePages(&owner, Page(second, 100), equal ? 40 : 100);

        char* run = static_cast<char*>(pages->AllocatePages(&owner, c.count, c.toGrow));
        ASSERT_NE(run, nullptr) << c.what;
        if (c.metapage == 2)
        {
            EXPECT_EQ(pages->GetNumberOfMetapages(), 3u) << c.what;
            continue;
        }
        EXPECT_EQ(run, Page(c.metapage == 0 ? first : second, c.page)) << c.what;
        EXPECT_FALSE(pages->ExtendRun(&owner, run, c.count, c.stretch - c.count + 1)) << c.what;
        EXPECT_EQ(pages->ExtendRun(&owner, run, c.count, c.stretch - c.count), c.count < c.stretch)
            << c.what;
    }
}

// Where the system moves pages (Linux), a run that fills its metapage alone
// moves to a larger place with its contents, and its metapage with it.
TEST_F(PageManagerTest, RunAloneInItsMetapageMovesWithoutACopy)
{
    char* shared = static_cast<char*>(pages->AllocatePages(&owner, 1)); // a metapage of 1 MB
    char* run = static_cast<char*>(pages->AllocatePages(&owner, 300));  // one of 300 pages
    std::memset(run, 0x5C, 300 * kPage);
    EXPECT_EQ(pages->MoveRun(&owner, shared, 1, 2), nullptr);  // not alone in its metapage
    EXPECT_EQ(pages->MoveRun(&other, run, 300, 600), nullptr); // not its run
    EXPECT_EQ(pages->MoveRun(&owner, run, 300, 300), nullptr); // no growth
    pages->SetLimits(0, kMB + 599 * kPage, kMB);
    EXPECT_EQ(pages->MoveRun(&owner, run, 300, 600), nullptr); // past the maximum
    pages->SetLimits(0, 64 * kMB, kMB);
    char* moved = static_cast<char*>(pages->MoveRun(&owner, run, 300, 600));
#if !defined(__linux__)
    EXPECT_EQ(moved, nullptr);
    return;
#endif
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(std::string(moved, 300 * kPage), std::string(300 * kPage, 0x5C));
    EXPECT_EQ(std::string(Page(moved, 300), 300 * kPage), std::string(300 * kPage, '\0'));
    EXPECT_EQ(pages->FindOwner(run), nullptr);
    EXPECT_EQ(pages->FindOwner(Page(moved, 599)), &owner);
    EXPECT_EQ(pages->FindRunStart(Page(moved, 599), pages->GetOwnerIndex(&owner)), moved);
    EXPECT_EQ(pages->GetRunPages(moved), 600u);
    EXPECT_EQ(pages->GetSystemBytes(), kMB + 600 * kPage);
    EXPECT_EQ(pages->GetStatistics().currentUsedPages, 601u);
    EXPECT_EQ(pages->GetStatistics().currentRequests, 2u);
    pages->ReleasePages(&owner, moved, 600);
    EXPECT_EQ(pages->GetSystemBytes(), kMB);
    EXPECT_EQ(pages->GetNumberOfMetapages(), 1u);
}

TEST_F(PageManagerTest, DumpOfKnownStateIsExact)
{
    void* mine = pages->AllocatePages(&owner, 2);
    void* theirs = pages->AllocatePages(&other, 3);
    ASSERT_EQ(theirs, Page(mine, 2)); // runs come from the head of the free pages
    qeltest::DumpCapture capture;
    pages->DumpStatistics(PageManager::DumpUsage | PageManager::DumpMetapageRows |
                              PageManager::DumpRuns | PageManager::DumpFreeRuns,
                          capture.Stream());
    const char* row = "%-20s\t%18u\t%20u\t%18u\t%18u\t%20u%18u\t";
    const std::vector<std::string> expected = {
        "",
        "Dumping memory usage statistics for PageManager",
        Format("%-20s\t%18s\t%20s\t%18s\t%18s\t%20s%18s\t", "Desc", "Curr. nbr requests",
               "Curr. nbr used pages", "Curr nbr OS pages", "Peak nbr requests",
               "Peak nbr used pages", "Peak nbr OS pages"),
        Format(row, "meta-0", 2u, 5u, 256u, 2u, 5u, 256u),
        Format(row, "Total", 2u, 5u, 256u, 2u, 5u, 256u),
        "",
        "Metapage statistics:",
        Format("Age: 0\tMetapage Range: [%s, %s[\tPages used: 5\tNbr of pages:256",
               Hex(mine).c_str(), Hex(Page(mine, 256)).c_str()),
        Format("[%10s, %10s[\t%12s\t%8s", "Start", "End", "Nbr Pages", "Owner"),
        // The two runs make one used stretch, shown with its first owner.
        Format("[%s, %s[\t%12u\t%s", Hex(mine).c_str(), Hex(Page(mine, 5)).c_str(), 5u,
               Hex(&owner).c_str()),
        Format("[%s, %s[\t%12u\t  unused", Hex(Page(mine, 5)).c_str(), Hex(Page(mine, 256)).c_str(),
               251u),
        "Nbr of unused pages nodes: 1",
    };
    EXPECT_EQ(capture.Lines(), expected);
}

TEST_F(PageManagerTest, ConcurrentRunsAndLookupsStayConsistent)
{
    // Each thread allocates and releases runs for an owner of its own and
    // looks its pages up without the lock while the others change records.
    qel::MallocAllocator owners[4];
    for (qel::MallocAllocator& o : owners)
        pages->AddOwner(&o);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&, t]
            {
                std::mt19937 random(1234 + t);
                for (int i = 0; i < 1500; ++i)
                {
                    const u32 count = 1 + random() % 8;
                    void* run = pages->AllocatePages(&owners[t], count);
                    if (run == nullptr || pages->FindOwner(Page(run, count - 1)) != &owners[t])
                        ++mismatches;
                    if (run != nullptr)
                        pages->ReleasePages(&owners[t], run, count);
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(pages->GetStatistics().currentUsedPages, 0u);
    EXPECT_EQ(pages->GetSystemBytes(), 0u);
}

} // namespace
