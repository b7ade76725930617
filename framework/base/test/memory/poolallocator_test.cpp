// The pool allocator: size classes, page layout and return, the realloc
// rule, the fall-back to larger classes, FreeAll, the dumps, and a seeded
// multithreaded stress test with content checks.
#include <qel/packedallocator.h>
#include <qel/pagemanager.h>
#include <qel/poolallocator.h>

#include "memory/memorytest.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace
{

using qel::PoolAllocator;
using qel::u32;
using qeltest::Format;
using qeltest::Hex;

std::uintptr_t Offset(const void* p)
{
    return reinterpret_cast<std::uintptr_t>(p) & 4095;
}

TEST(PoolAllocator, SizesMapOntoTheirClasses)
{
    PoolAllocator pool;
    EXPECT_EQ(pool.MallocNoThrow(0), nullptr);
    EXPECT_EQ(pool.MallocNoThrow(257), nullptr);
    void* one = pool.MallocNoThrow(1);
    void* sixteen = pool.MallocNoThrow(16);
    void* seventeen = pool.MallocNoThrow(17);
    void* largest = pool.MallocNoThrow(256);
    EXPECT_EQ(pool.GetStatistics(0).currentAllocations, 2u);
    EXPECT_EQ(pool.GetStatistics(1).currentAllocations, 1u);
    EXPECT_EQ(pool.GetStatistics(15).currentAllocations, 1u);
    EXPECT_EQ(pool.GetTotals().currentUsedSize, 16u + 16u + 32u + 256u);
    for (void* p : {one, sixteen, seventeen, largest})
    {
        EXPECT_EQ(qel::Allocator::GetOwner(p), &pool);
        pool.Free(p);
    }
    EXPECT_EQ(pool.GetTotals().currentAllocations, 0u);
    EXPECT_EQ(pool.GetTotals().peakAllocations, 4u);
}

TEST(PoolAllocator, FreshPageHandsOutBlocksFromItsStart)
{
    PoolAllocator pool;
    char* first = static_cast<char*>(pool.MallocNoThrow(48));
    char* second = static_cast<char*>(pool.MallocNoThrow(40));
    EXPECT_EQ(Offset(first), 32u);
    EXPECT_EQ(second, first + 48);

    // The header: guards first and last; on 32-bit hosts eight words with
    // the free-list head as the address of the first free run.
    const char* page = first - 32;
    u32 words[8];
    std::memcpy(words, page, sizeof words);
    EXPECT_EQ(words[0], 0xBAAAAAABu);
    EXPECT_EQ(words[7], 0xEAAAAAAEu);
    if (sizeof(void*) == 4)
    {
        EXPECT_EQ(words[1], 0u); // alone in its list
        EXPECT_EQ(words[2], 0u);
        EXPECT_EQ(words[3], u32(reinterpret_cast<std::uintptr_t>(first + 96)));
        EXPECT_EQ(words[4], 48u);
        EXPECT_EQ(words[5], 2u);
        EXPECT_EQ(words[6], 4064u / 48u);
        // The run at the head links to nothing and holds the rest.
        u32 run[2];
        std::memcpy(run, first + 96, sizeof run);
        EXPECT_EQ(run[0], 0u);
        EXPECT_EQ(run[1], 4064u / 48u - 2u);
    }
    pool.Free(first);
    // The freed block is reused first.
    EXPECT_EQ(pool.MallocNoThrow(48), first);
    pool.Free(first);
    pool.Free(second);
}

TEST(PoolAllocator, PageGoesBackWithItsLastBlockAndFullPagesMove)
{
    qel::PageManager& pages = qel::PageManager::GetSingletonInstance();
    PoolAllocator pool;
    const u32 usedBefore = pages.GetStatistics().currentUsedPages;
    std::vector<void*> blocks;
    for (int i = 0; i < 84; ++i) // a page holds 4064 / 48 = 84 blocks
        blocks.push_back(pool.MallocNoThrow(48));
    EXPECT_EQ(pool.GetStatistics(2).currentPages, 1u);
    EXPECT_EQ(pool.GetStatistics(2).currentFullPages, 1u);
    void* next = pool.MallocNoThrow(48);
    EXPECT_EQ(pool.GetStatistics(2).currentPages, 2u);
    EXPECT_EQ(pages.GetStatistics().currentUsedPages, usedBefore + 2);

    pool.Free(blocks[5]); // the full page has room again
    EXPECT_EQ(pool.GetStatistics(2).currentFullPages, 0u);
    pool.Free(next); // the second page's only block: the page goes back
    EXPECT_EQ(pool.GetStatistics(2).currentPages, 1u);
    EXPECT_EQ(pages.GetStatistics().currentUsedPages, usedBefore + 1);
    for (int i = 0; i < 84; ++i)
        if (i != 5)
            pool.Free(blocks[i]);
    EXPECT_EQ(pool.GetStatistics(2).currentPages, 0u);
    EXPECT_EQ(pages.GetStatistics().currentUsedPages, usedBefore);
}

TEST(PoolAllocator, ReallocStaysWhenTheRoundedSizeIsAtLeastHalfTheBlock)
{
    PoolAllocator pool;
    char* p = static_cast<char*>(pool.MallocNoThrow(100)); // 112-byte class
    std::memset(p, 0x5C, 100);
    EXPECT_EQ(pool.ReAllocNoThrow(p, 60), p); // 64 >= 112 / 2
    // In place, the requested size follows the new size; the peak stays.
    EXPECT_EQ(pool.GetStatistics(6).currentRequestedSize, 60u);
    EXPECT_EQ(pool.GetTotals().currentRequestedSize, 60u);
    EXPECT_EQ(pool.GetTotals().peakRequestedSize, 112u);
    EXPECT_EQ(pool.GetTotals().currentUsedSize, 112u);
    char* moved = static_cast<char*>(pool.ReAllocNoThrow(p, 40));
    EXPECT_NE(moved, p);
    EXPECT_EQ(pool.GetStatistics(2).currentAllocations, 1u); // the 48-byte class
    EXPECT_EQ(pool.GetStatistics(6).currentAllocations, 0u);
    for (int i = 0; i < 40; ++i)
        ASSERT_EQ(moved[i], 0x5C);

    void* small = pool.MallocNoThrow(16);
    EXPECT_EQ(pool.ReAllocNoThrow(small, 16), small);
    EXPECT_EQ(pool.ReAllocNoThrow(small, 1), small);     // the smallest class always stays
    EXPECT_EQ(pool.ReAllocNoThrow(moved, 300), nullptr); // too big: the block stays valid
    EXPECT_EQ(pool.GetTotals().currentAllocations, 2u);
    pool.Free(moved);
    pool.Free(small);
    // Each free took a whole block off: what the shrinks in place took off
    // (52 for `p`, 15 for `small`) is left below zero.
    EXPECT_EQ(pool.GetTotals().currentRequestedSize, 0u - 52u - 15u);
    EXPECT_EQ(pool.GetTotals().currentUsedSize, 0u);
}

TEST(PoolAllocator, DebugFormsDropTheSiteAndActAsThePlainOnes)
{
    PoolAllocator pool;
    qel::PackedAllocator packed("PackedAllocator-Test", 256);
    char* p = static_cast<char*>(pool.MallocDebugNoThrow(20, "tag", __FILE__, __LINE__));
    EXPECT_EQ(pool.GetStatistics(1).currentAllocations, 1u);
    std::memset(p, 0x3A, 20);
    char* q = static_cast<char*>(pool.ReAllocDebugNoThrow(p, 100, "tag", __FILE__, __LINE__));
    EXPECT_EQ(pool.GetStatistics(6).currentAllocations, 1u);
    EXPECT_EQ(pool.GetStatistics(1).currentAllocations, 0u);
    char* moved =
        static_cast<char*>(pool.TransfertDebug(&packed, q, 300, "tag", __FILE__, __LINE__));
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(qel::Allocator::GetOwner(moved), &packed);
    EXPECT_EQ(pool.GetTotals().currentAllocations, 0u);
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(moved[i], 0x3A);
    packed.FreeDebug(moved, __FILE__, __LINE__);
    EXPECT_EQ(packed.GetStatistics().currentAllocations, 0u);
}

TEST(PoolAllocator, FreeAllKeepsThePeaks)
{
    PoolAllocator pool;
    for (int i = 0; i < 300; ++i)
        pool.MallocNoThrow(1 + i % 256);
    const qel::AllocatorStatistics before = pool.GetTotals();
    const u32 smallestBefore = pool.GetStatistics(0).currentAllocations;
    pool.FreeAll();
    const qel::AllocatorStatistics after = pool.GetTotals();
    EXPECT_EQ(after.currentAllocations, 0u);
    EXPECT_EQ(after.currentPages, 0u);
    EXPECT_EQ(after.peakAllocations, 300u);
    EXPECT_EQ(after.peakPages, before.peakPages);
    EXPECT_EQ(after.peakUsedSize, before.currentUsedSize);
    EXPECT_EQ(pool.GetStatistics(0).peakAllocations, smallestBefore);
    EXPECT_EQ(pool.GetStatistics(0).currentAllocations, 0u);
}

TEST(PoolAllocator, ExhaustedPageManagerFallsBackToTheSmallestLargerClass)
{
    PoolAllocator pool;
    void* big = pool.MallocNoThrow(48);    // class 2 gets a page
    void* bigger = pool.MallocNoThrow(96); // class 5 too
    void *fallback, *fromFive;
    {
        qeltest::PagesDrained drained;
        fallback = pool.MallocNoThrow(16);
        EXPECT_NE(fallback, nullptr);
        EXPECT_EQ(pool.GetStatistics(2).currentAllocations, 2u); // served by the 48-byte class
        EXPECT_EQ(pool.GetStatistics(0).currentPages, 0u);
        fromFive = pool.MallocNoThrow(64); // classes 3 and 4 have no page: class 5
        EXPECT_EQ(pool.GetStatistics(5).currentAllocations, 2u);
        EXPECT_EQ(pool.MallocNoThrow(256), nullptr); // nothing larger than the last class
    }
    for (void* p : {big, bigger, fallback, fromFive})
        pool.Free(p);
    EXPECT_EQ(pool.GetTotals().currentPages, 0u);
}

TEST(PoolAllocator, DumpOfAKnownState)
{
    PoolAllocator pool;
    char* a = static_cast<char*>(pool.MallocNoThrow(32));
    char* b = static_cast<char*>(pool.MallocNoThrow(32));
    char* c = static_cast<char*>(pool.MallocNoThrow(32));
    pool.Free(b);
    qeltest::DumpCapture capture;
    pool.DumpStatistics(PoolAllocator::DumpUsage | PoolAllocator::DumpAllocations |
                            PoolAllocator::DumpFreeLists,
                        nullptr, nullptr, capture.Stream(), nullptr);
    const std::vector<std::string> lines = capture.Lines();
    const std::string self = Hex(&pool);
    char* page = a - 32;
    ASSERT_GE(lines.size(), 40u);
    EXPECT_EQ(lines[1],
              "Dumping usage statistics for PoolAllocator " + self + "\tOverhead per alloc: 0");
    EXPECT_EQ(lines[2].substr(0, 16), "Pool Size      \t");
    EXPECT_EQ(
        lines[4],
        Format("%-15s\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u",
               "32", 2, 64, 64, 1, 4096, 0, 3, 96, 96, 1, 4096, 0));
    EXPECT_EQ(lines[19].substr(0, 15), "TOTAL          ");

    std::vector<std::string> expected = {
        "",
        "Dumping allocations for PoolAllocator " + self,
        "Pool: 32 bytes",
        "Address     \t   Used size",
        Hex(a) + "\t            32",
        Hex(c) + "\t            32",
        "Number of allocations: 2\tMax number of allocations: 127",
        "",
        "",
        "End of allocations for PoolAllocator " + self,
        "",
        "Dumping freelists for PoolAllocator " + self,
        "",
        "Freelist PoolAllocatorPage: " + Hex(page) + "(max alloc size: 32 bytes)",
        "Address     \t        size",
        Hex(b) + "\t             1",
        Hex(c + 32) + "\t           124",
        "Number of nodes: 2",
        "",
        "End of freelists for PoolAllocator " + self,
    };
    const std::vector<std::string> tail(lines.end() - long(expected.size()), lines.end());
    EXPECT_EQ(tail, expected);
    pool.Free(a);
    pool.Free(c);
}

TEST(PoolAllocator, DumpSkipsDamagedPagesAndWarnsOfForeignOwners)
{
    PoolAllocator pool;
    char* a = static_cast<char*>(pool.MallocNoThrow(16));
    char* b = static_cast<char*>(pool.MallocNoThrow(16));
    pool.Free(a); // a run of one block at the head of the free list

    u32 saved;
    std::memcpy(&saved, a + 4, 4);
    const u32 zero = 0;
    std::memcpy(a + 4, &zero, 4); // an empty run: the page is damaged
    qeltest::DumpCapture damaged;
    pool.DumpStatistics(PoolAllocator::DumpAllocations, nullptr, nullptr, damaged.Stream(),
                        nullptr);
    std::memcpy(a + 4, &saved, 4);
    for (const std::string& line : damaged.Lines())
        EXPECT_EQ(line.find("Number of allocations"), std::string::npos) << line;

    std::atomic<u32>* record = qel::PageManager::GetSingletonInstance().GetRecords().Find(b);
    const u32 original = record->load();
    record->store(original | 0xFF000000u); // the page now belongs to nobody
    qeltest::ScriptedHost host;
    qeltest::DumpCapture foreign;
    pool.DumpStatistics(PoolAllocator::DumpAllocations, nullptr, nullptr, foreign.Stream(),
                        nullptr);
    record->store(original);
    ASSERT_GE(host.questions.size(), 1u);
    EXPECT_EQ(host.questions[0].text.rfind("Invalid Page Owner while dumping memory statistics!. "
                                           "Allocator: " +
                                               Hex(&pool) + ". Page: " + Hex(b - 48) +
                                               ". Marked Owner: 0x00000000\n",
                                           0),
              0u);
    pool.Free(b);
}

// Four threads churn one pool with content checks, handing blocks to each
// other, with and without thread caches: whatever path a block took, every
// block and page is back at the end (the threads' caches went back as they
// ended).
TEST(PoolAllocatorStress, ThreadsChurnWithContentChecks)
{
    for (bool cached : {false, true})
    {
        PoolAllocator pool;
        if (cached)
            pool.EnableThreadCaches();
        qeltest::ChurnWithContentChecks(pool, 4, 20000,
                                        [](std::mt19937& random) { return 1 + random() % 256; });
        EXPECT_EQ(pool.GetTotals().currentAllocations, 0u) << cached;
        EXPECT_EQ(pool.GetTotals().currentPages, 0u) << cached;
    }
}

// A thread's cache outlives its allocator: one made later in the same place
// of the thread's caches, and at the same address, starts from a cache of
// its own and never serves the blocks of the one that went.
TEST(PoolAllocatorThreadCaches, ALaterAllocatorNeverTakesTheCacheOfOneThatWent)
{
    for (int round = 0; round < 3; ++round)
    {
        // As many homes a round as there are places, so that each round's
        // first takes the place of the one before.
        PoolAllocator pools[4];
        for (PoolAllocator& pool : pools)
            pool.EnableThreadCaches();
        void* b = pools[0].Malloc(32);
        EXPECT_EQ(pools[0].GetTotals().currentAllocations, 1u) << round;
        pools[0].Free(b); // left in this thread's cache as the pool goes
    }
}

} // namespace
