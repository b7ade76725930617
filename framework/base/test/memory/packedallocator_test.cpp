// The packed allocator: the need and run-size rules, the choice among runs and
// among free chunks, merging, set-aside runs, runs going back, reallocation
// in place and across pages, reports of bad frees, the dumps and the checks;
// its thread caches, and those of the pool where both behave alike. Moves to
// another allocator (Transfert) are tested through the hybrid.
#include <qel/packedallocator.h>
#include <qel/pagemanager.h>
#include <qel/poolallocator.h>

#include "memory/memorytest.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

using qel::PackedAllocator;
using qel::u32;
using qeltest::Format;
using qeltest::Hex;

char* Take(PackedAllocator& packed, unsigned size)
{
    return static_cast<char*>(packed.MallocNoThrow(size));
}

u32 Used(const PackedAllocator& packed)
{
    return packed.GetStatistics().currentUsedSize;
}

// The runs that a dump of the allocator's pages lists.
std::ptrdiff_t RunsInADump(PackedAllocator& packed)
{
    qeltest::DumpCapture dump;
    packed.DumpStatistics(PackedAllocator::DumpPages, nullptr, nullptr, dump.Stream(), nullptr);
    const std::vector<std::string> lines = dump.Lines();
    return std::count_if(lines.begin(), lines.end(),
                         [](const std::string& line)
                         { return line.rfind("PackedAllocatorPage: ", 0) == 0; });
}

// Each case's allocator gives back what the case left, so that its
// destructor has no leaks to list.
class PackedAllocatorTest : public ::testing::Test
{
protected:
    void TearDown() override { packed.FreeAll(); }
    PackedAllocator packed{"Test", 256};
};

// Questions whose text begins with `prefix` (an unanswered warning is also
// followed by "see it again?").
std::size_t Asked(const qeltest::ScriptedHost& host, const std::string& prefix)
{
    std::size_t count = 0;
    for (const auto& question : host.questions)
        count += question.text.rfind(prefix, 0) == 0;
    return count;
}

TEST_F(PackedAllocatorTest, NeedRunSizeAndRemainderBoundaries)
{
    EXPECT_EQ(packed.MallocNoThrow(0), nullptr);
    for (unsigned size : {1u, 23u, 24u, 25u})
    {
        const u32 before = Used(packed);
        char* p = Take(packed, size);
        EXPECT_EQ(Used(packed) - before, size <= 24 ? 24u : 32u) << size; // chunks of 40 and 48
        if (size == 1)
        {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) & 4095, 144u); // run + block headers
        }
    }
    packed.FreeAll();
    // Needs of 3968 and 3984 get the minimum of 4 pages, 20000 gets 5.
    for (unsigned need : {3968u, 3984u, 20000u})
    {
        char* p = Take(packed, need - 16);
        EXPECT_EQ(packed.GetStatistics().currentPages, need == 20000 ? 5u : 4u) << need;
        packed.Free(p);
        EXPECT_EQ(packed.GetStatistics().currentPages, 0u);
    }
    // A remainder under forty bytes goes with the block.
    Take(packed, 16256 - 16 - 32); // leaves 32 bytes of a fresh 4-page run
    EXPECT_EQ(Used(packed), 16256u - 16u);
    EXPECT_EQ(packed.GetStatistics().currentFullPages, 4u); // nothing left: set aside
    EXPECT_TRUE(packed.ValidateMemory());
}

TEST_F(PackedAllocatorTest, FreedNeighboursMergeIntoOneChunk)
{
    char* blocks[5];
    for (char*& block : blocks)
        block = Take(packed, 112); // chunks of 128, back to back
    EXPECT_EQ(blocks[1], blocks[0] + 128);
    packed.Free(blocks[0]);
    packed.Free(blocks[2]);
    packed.Free(blocks[1]); // between two free chunks: all three merge
    EXPECT_EQ(Take(packed, 384 - 16), blocks[0]);
    EXPECT_TRUE(packed.ValidateMemory());
}

TEST_F(PackedAllocatorTest, ExactFitTakesTheLaterChunkAndSmallRemaindersStay)
{
    char* a = Take(packed, 48); // 64
    Take(packed, 32);
    char* b = Take(packed, 48); // 64
    Take(packed, 32);
    char* c = Take(packed, 80); // 96
    Take(packed, 32);
    for (char* p : {a, b, c})
        packed.Free(p);
    EXPECT_EQ(Take(packed, 48), b); // the later of the two 64-byte chunks
    const u32 before = Used(packed);
    EXPECT_EQ(Take(packed, 64), c); // needs 80: the 16 left of 96 go with it
    EXPECT_EQ(Used(packed) - before, 80u);
}

TEST_F(PackedAllocatorTest, RequestGoesToTheRunWhoseLargestChunkFitsItMost)
{
    char* a = Take(packed, 24);       // 40 bytes: the rest of run A is 16216
    Take(packed, 16216 - 1000 - 16);  // A keeps a largest chunk of 1000
    char* b = Take(packed, 2000);     // too big for A: run B
    char* fromB = Take(packed, 992);  // needs 1008: more than A has
    char* fromA = Take(packed, 976);  // needs 992: A fits it best, and takes all 1000
    EXPECT_EQ(fromA, a + 40 + 15216); // A's tail
    EXPECT_EQ(fromB, b + 2016);       // behind the chunk of b
}

TEST_F(PackedAllocatorTest, FullAndBigRunsAreSetAsideAndGoBackWithTheirLastBlock)
{
    qel::PageManager& manager = qel::PageManager::GetSingletonInstance();
    const u32 usedPages = manager.GetStatistics().currentUsedPages;
    char* full = Take(packed, 16000); // 240 bytes left: at or below the threshold
    EXPECT_EQ(packed.GetStatistics().currentFullPages, 4u);
    char* small = Take(packed, 100); // the set-aside run is not searched
    EXPECT_EQ(packed.GetStatistics().currentPages, 8u);
    EXPECT_TRUE(small < full - 144 || small >= full - 144 + 16384); // another run
    packed.Free(full);
    EXPECT_EQ(packed.GetStatistics().currentFullPages, 0u);
    EXPECT_EQ(manager.GetStatistics().currentUsedPages, usedPages + 4);

    char* big = Take(packed, 200000); // 49 pages, set aside with its one block
    EXPECT_EQ(packed.GetStatistics().currentFullPages, 49u);
    EXPECT_NE(Take(packed, 100), big + 200000 + 16); // its tail takes nothing
    packed.FreeAll();
    EXPECT_EQ(manager.GetStatistics().currentUsedPages, usedPages);
    const qel::AllocatorStatistics after = packed.GetStatistics();
    EXPECT_EQ(after.currentPages + after.currentAllocations + after.currentFullPages, 0u);
    EXPECT_EQ(after.peakPages, 4u + 49u);
}

TEST_F(PackedAllocatorTest, ReallocGrowsInPlaceMovesAndShrinks)
{
    char* a = Take(packed, 100);
    std::memset(a, 0x3A, 100);
    EXPECT_EQ(packed.ReAllocNoThrow(a, 200), a); // the free tail is right behind
    Take(packed, 100);                           // now something is
    char* moved = static_cast<char*>(packed.ReAllocNoThrow(a, 1000));
    ASSERT_NE(moved, a);
    EXPECT_EQ(std::string(moved, 100), std::string(100, 0x3A));
    const u32 before = Used(packed);
    EXPECT_EQ(packed.ReAllocNoThrow(moved, 100), moved);
    EXPECT_EQ(before - Used(packed), 1008u - 112u); // the tail went back to the run
    EXPECT_EQ(packed.ReAllocNoThrow(moved, 0), nullptr);
    EXPECT_EQ(moved[99], 0x3A);

    const u32 pages = packed.GetStatistics().currentPages;
    char* big = Take(packed, 300000);
    big[0] = 0x5B;
    char* shrunk = static_cast<char*>(packed.ReAllocNoThrow(big, 64));
    EXPECT_EQ(shrunk[0], 0x5B);
    EXPECT_EQ(packed.GetStatistics().currentPages, pages); // the big run went back
    EXPECT_TRUE(packed.ValidateMemory());

    // A lone block's run that fills a metapage of its own (larger than the
    // first metapage, so that it cannot be placed there) grows by moving its
    // pages where the system can, else by a copy. A byte every 64 KB, and
    // the last, tell that what it held came along.
    const qel::PageManager& manager = qel::PageManager::GetSingletonInstance();
    const unsigned hugeSize = manager.GetFirstMetapageSize() + (1u << 20);
    const u32 metapages = manager.GetNumberOfMetapages();
    char* huge = Take(packed, hugeSize);
    ASSERT_NE(huge, nullptr);
    EXPECT_EQ(manager.GetNumberOfMetapages(), metapages + 1);
    for (unsigned at = 0; at < hugeSize; at += 1u << 16)
        huge[at] = char(at >> 16);
    huge[hugeSize - 1] = 0x4D;
    char* grown = static_cast<char*>(packed.ReAllocNoThrow(huge, hugeSize + (4u << 20)));
    ASSERT_NE(grown, nullptr);
    unsigned kept = 0;
    for (unsigned at = 0; at < hugeSize; at += 1u << 16)
        kept += grown[at] == char(at >> 16);
    EXPECT_EQ(kept, hugeSize >> 16);
    EXPECT_EQ(grown[hugeSize - 1], 0x4D);
    grown[hugeSize + (4u << 20) - 1] = 1;
    EXPECT_EQ(manager.GetNumberOfMetapages(), metapages + 1);
    EXPECT_GE(packed.GetStatistics().currentPages - pages, (hugeSize + (4u << 20)) / 4096);
    EXPECT_TRUE(packed.ValidateMemory());
    packed.Free(grown);
    EXPECT_EQ(packed.GetStatistics().currentPages, pages);
    EXPECT_EQ(manager.GetNumberOfMetapages(), metapages);
}

// A block keeps its place while the new size needs at least half of its
// chunk; below that the tail goes back. A block of 1 KB or more that grows
// in place takes a quarter of its chunk more when that much is free behind
// it, three quarters from 16 KB, a smaller one what it needs. One that must
// move takes a quarter more than asked from 1 KB, twice the size from 16 KB.
// A lone block that grows past the end of its run takes the free pages right
// behind the run, as many as it needs.
TEST_F(PackedAllocatorTest, ReallocKeepsAHalfUsedPlaceAndGrowsWithRoomToSpare)
{
    struct Case
    {
        unsigned from, to;
        bool blocked; // a block right behind it: it must move to grow
        u32 capacity; // after
    };
    const Case cases[] = {
        {1000, 600, false, 1008},     // 616 of 1024 bytes: stays
        {1000, 497, false, 1008},     // 528 (rounded) of 1024: stays
        {1000, 400, false, 400},      // 416 of 1024: the tail goes back
        {2000, 2100, false, 2624},    // 2128 needed, 512 more taken
        {20000, 30000, false, 45024}, // 30016 needed, 15012 more taken
        {100, 200, false, 208},       // under 1 KB: what it needs
        {100, 30000, false, 30000},   // under 1 KB, past its run's 4 pages
        {100, 600, true, 608},        // moves, under 1 KB: what it needs
        {1000, 3000, true, 3760},     // moves: 3750 asked
        {10000, 20000, true, 40000},  // moves: twice the size
    };
    const qel::PageManager& manager = qel::PageManager::GetSingletonInstance();
    for (const Case& c : cases)
    {
        char* p = Take(packed, c.from); // first in a fresh run: free space behind it
        char* wall = c.blocked ? Take(packed, 100) : nullptr; // the next best fit
        const unsigned kept = c.from < c.to ? c.from : c.to;
        std::memset(p, 0x6C, kept);
        // A lone block's run: 144 bytes of headers and its capacity. Growing
        // past the run needs the pages behind it free in the page manager,
        // which other allocators of the process may hold: then it moves.
        const u32 runPages = packed.GetStatistics().currentPages;
        const u32 pages = std::max<u32>(4, (144 + c.capacity + 4095) / 4096);
        bool roomBehind = true;
        for (u32 page = runPages; !c.blocked && page < pages; ++page)
        {
            const std::atomic<u32>* record = manager.GetRecords().Find(p - 144 + page * 4096);
            roomBehind = roomBehind && record && record->load() >> 24 == qel::PageManager::NoOwner;
        }
        char* q = static_cast<char*>(packed.ReAllocNoThrow(p, c.to));
        EXPECT_EQ(std::string(q, kept), std::string(kept, 0x6C));
        EXPECT_TRUE(packed.ValidateMemory());
        if (roomBehind)
        {
            EXPECT_EQ(q != p, c.blocked) << c.from << " to " << c.to;
            EXPECT_EQ(Used(packed), c.capacity + (c.blocked ? 112u : 0u))
                << c.from << " to " << c.to;
            if (!c.blocked)
            {
                EXPECT_EQ(packed.GetStatistics().currentPages, pages) << c.from << " to " << c.to;
            }
        }
        packed.Free(q);
        packed.Free(wall);
    }
}

// Bad frees are reported and change nothing; the checks tell live blocks
// from freed ones and inner addresses, and find a damaged header.
TEST_F(PackedAllocatorTest, BadFreesAreReportedAndChecksFindDamageAndDeadPointers)
{
    char* a = Take(packed, 100);
    char* b = Take(packed, 100);
    char* c = Take(packed, 100);
    packed.Free(a);
    packed.Free(b); // merges into a's chunk; its header stays readable
    const qel::AllocatorStatistics before = packed.GetStatistics();
    qeltest::ScriptedHost host;
    packed.Free(b); // the chunk tree refuses it
    packed.Free(a); // its header is now a tree node
    int local = 0;
    packed.Free(&local);
    EXPECT_EQ(Asked(host, "PackedAllocator::Free(): "), 3u);
    EXPECT_EQ(Asked(host, "PackedAllocator::Free(): " + Hex(b) +
                              " is not a live block of this allocator! Allocator: " + Hex(&packed) +
                              ". Ignored.\n"),
              1u);
    const qel::AllocatorStatistics after = packed.GetStatistics();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    EXPECT_TRUE(packed.ValidateMemory());

    EXPECT_TRUE(packed.IsValidPointer(c));
    EXPECT_FALSE(packed.IsValidPointer(a));
    EXPECT_FALSE(packed.IsValidPointer(c + 8));
    c[-16] ^= 1; // the marker
    EXPECT_FALSE(packed.ValidateMemory());
    c[-16] ^= 1;
    EXPECT_TRUE(packed.ValidateMemory());
    EXPECT_EQ(Asked(host, "PackedAllocator::ValidateMemory(): damaged block headers in run " +
                              Hex(a - 144)),
              1u);
}

TEST_F(PackedAllocatorTest, DumpOfAKnownState)
{
    char* a = Take(packed, 100); // chunk 128
    char* b = Take(packed, 24);  // chunk 40
    char* c = Take(packed, 200); // chunk 224
    packed.Free(b);
    char* run = a - 144;
    qeltest::DumpCapture capture;
    packed.DumpStatistics(1 | 2 | 8, nullptr, nullptr, capture.Stream(), nullptr);
    const std::string self = Hex(&packed), runText = Hex(run) + " PageCount: 4 PageSize: 16384";
    const char* row =
        "%-15s\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u";
    const std::vector<std::string> expected = {
        "",
        "Dumping memory usage statistics for PackedAllocator " + self + "\tOverhead per alloc: 16",
        capture.Lines()[2], // the shared table header
        Format(row, "Test", 2, 320, 320, 4, 16384, 0, 3, 344, 344, 4, 16384, 0),
        "",
        "",
        "Dumping page statistics for PackedAllocator " + self,
        "",
        "PackedAllocatorPage: " + runText,
        "Address     \t   Used size",
        Hex(a) + Format("\t%16u", 112),
        Hex(c) + Format("\t%16u", 208),
        "Number of allocations: 2\tLargest free chunk: 15864",
        "",
        "End of page statistics for PackedAllocator " + self,
        "",
        "Freelist PackedAllocatorPage: " + runText,
        "Address     \t        Size",
        Hex(b - 16) + Format("\t%16u", 40),
        Hex(c + 208) + Format("\t%16u", 15864),
        "Number of nodes: 2",
    };
    EXPECT_EQ(capture.Lines(), expected);
}

TEST(PackedAllocator, DestructionListsWhatIsStillAllocated)
{
    qeltest::ScriptedHost host;
    char* leak = nullptr;
    {
        PackedAllocator packed("Leaky", 256);
        leak = Take(packed, 100);
    }
    std::string output;
    for (const std::string& text : host.output)
        output += text;
    EXPECT_NE(output.find("Dumping page statistics for PackedAllocator"), std::string::npos);
    EXPECT_NE(output.find(Hex(leak) + Format("\t%16u", 112)), std::string::npos) << output;
}

// The pool's and the packed allocator's thread caches behave alike: one row
// each, with blocks of that allocator's sizes. A worker thread takes and
// frees `count` blocks of each of `sizes`, four rounds over, then keeps one
// block of `kept` bytes (`usable` of them written) while the test looks.
//
// What the worker's cache holds stays within its allocator's bound (144 KB
// for the pool, about 2.05 MB for the packed allocator) and counts as
// allocated while the thread lives: other threads' dumps say how many blocks
// it holds, and validation finds them sound. The thread's own statistics
// calls give its cache back first, and the cache goes back when the thread
// ends. FreeAll voids this thread's cache, and the allocator serves on.
TEST(ThreadCaches, ACacheIsBoundedCountedShownAndGoesBack)
{
    qel::PoolAllocator pool;
    PackedAllocator packed("Cached", 256);
    pool.EnableThreadCaches();
    packed.EnableThreadCaches();
    std::vector<unsigned> small, large;
    for (unsigned size = 16; size <= 256; size += 16)
        small.push_back(size);
    for (unsigned size = 256; size <= 65536; size += size / 8)
        large.push_back(size);
    const struct
    {
        const char* name;
        qel::Allocator& allocator;
        std::function<qel::AllocatorStatistics()> totals;
        const std::vector<unsigned>& sizes;
        int count;
        u32 budget;
        unsigned kept, usable;
    } cases[] = {
        {"pool", pool, [&] { return pool.GetTotals(); }, small, 2000, 144u * 1024, 40, 48},
        {"packed", packed, [&] { return packed.GetStatistics(); }, large, 40, 2100u * 1024, 3000,
         3072},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        qel::Allocator& allocator = c.allocator;
        std::promise<void> filled, checked;
        std::shared_future<void> done = checked.get_future().share();
        char* kept = nullptr;
        std::thread worker(
            [&]
            {
                std::vector<void*> blocks;
                for (int round = 0; round < 4; ++round)
                    for (unsigned size : c.sizes)
                    {
                        for (int i = 0; i < c.count; ++i)
                            blocks.push_back(allocator.Malloc(size));
                        for (void* p : blocks)
                            allocator.Free(p);
                        blocks.clear();
                    }
                kept = static_cast<char*>(allocator.Malloc(c.kept));
                std::memset(kept, 1, c.usable);
                filled.set_value();
                done.wait();
                EXPECT_EQ(c.totals().currentAllocations, 1u); // its own cache went back
                allocator.Free(kept);
            });
        filled.get_future().wait();
        EXPECT_EQ(qel::Allocator::GetOwner(kept), &allocator);
        qeltest::DumpCapture dump;
        allocator.DumpStatistics(1, nullptr, nullptr, dump.Stream(), nullptr); // usage
        const long held = qeltest::HeldInOtherThreadsCaches(dump);
        const qel::AllocatorStatistics cached = c.totals(); // the worker's alone
        EXPECT_GT(held, 0);
        EXPECT_EQ(cached.currentAllocations, u32(held) + 1);
        EXPECT_GE(cached.currentUsedSize, u32(held) * c.sizes.front() + c.usable);
        EXPECT_LE(cached.currentUsedSize, c.budget + c.usable);
        EXPECT_TRUE(allocator.ValidateMemory()); // cached blocks are sound
        checked.set_value();
        worker.join();
        EXPECT_EQ(c.totals().currentAllocations, 0u);
        EXPECT_EQ(c.totals().currentPages, 0u);

        allocator.Free(allocator.Malloc(c.kept)); // into this thread's cache
        allocator.FreeAll();
        EXPECT_EQ(c.totals().currentPages, 0u);
        void* b = allocator.Malloc(c.kept);
        std::memset(b, 7, c.usable);
        EXPECT_EQ(c.totals().currentAllocations, 1u); // those cached beside it went back
        allocator.Free(b);
        EXPECT_EQ(c.totals().currentAllocations, 0u);
    }

    // A block freed twice is reported as the cache goes back.
    qeltest::ScriptedHost host;
    void* q = packed.Malloc(1000);
    packed.Free(q);
    packed.Free(q);
    packed.GetStatistics(); // the cache goes back: the second free is found
    EXPECT_EQ(Asked(host, "PackedAllocator::Free(): " + Hex(q) +
                              " is not a live block of this allocator!"),
              1u);
    EXPECT_FALSE(packed.IsValidPointer(q));
}

// Homes are given places round the thread's four: the fifth allocator made
// looks first in the first one's place. In a fresh thread it finds the
// first's cache there, makes its own elsewhere, and serves from that one,
// never from the first's.
TEST(PackedAllocatorThreadCaches, AllocatorsSharingAPlaceServeTheirOwnBlocks)
{
    std::vector<std::unique_ptr<PackedAllocator>> packed;
    for (int i = 0; i < 5; ++i)
    {
        packed.emplace_back(new PackedAllocator("Shared", 256));
        packed.back()->EnableThreadCaches();
    }
    PackedAllocator& first = *packed.front();
    PackedAllocator& last = *packed.back();
    std::thread(
        [&]
        {
            void* a = first.Malloc(1000); // the refill leaves more in its cache
            void* b = last.Malloc(1000);
            void* c = last.Malloc(1000); // from its own cache, past the first look
            EXPECT_EQ(qel::Allocator::GetOwner(a), &first);
            EXPECT_EQ(qel::Allocator::GetOwner(b), &last);
            EXPECT_EQ(qel::Allocator::GetOwner(c), &last);
            first.Free(a);
            for (void* p : {b, c})
                last.Free(p);
        })
        .join();
    EXPECT_EQ(first.GetStatistics().currentAllocations + last.GetStatistics().currentAllocations,
              0u);
}

// A cache refilled when no run has room takes a run sized for its class:
// blocks of 4,368 bytes (the class of 4608) go seven to eight pages, where
// runs of four pages would hold three.
TEST(PackedAllocatorThreadCaches, RefillsTakeRunsThatWasteLittleOfTheirPages)
{
    PackedAllocator packed("Runs", 256);
    packed.EnableThreadCaches();
    std::vector<void*> blocks;
    for (int i = 0; i < 140; ++i)
        blocks.push_back(packed.Malloc(4368));
    const double taken = 4096.0 * packed.GetStatistics().currentPages;
    EXPECT_LE(taken / (140 * 4368.0), 1.15); // runs of four pages: 1.37
    for (void* p : blocks)
        packed.Free(p);
    EXPECT_EQ(packed.GetStatistics().currentPages, 0u);
}

// A refill carves blocks below a page ahead of need, but a block of a page
// or more only when it is asked for: a thread holding 48 such blocks has
// had 48 carved, while blocks of 1 KB come with more waiting in its cache.
TEST(PackedAllocatorThreadCaches, OnlyBlocksBelowAPageAreCarvedAhead)
{
    for (const unsigned size : {1000u, 4081u, 20000u})
    {
        PackedAllocator packed("Ahead", 256);
        packed.EnableThreadCaches();
        std::promise<void> taken, counted;
        std::thread worker(
            [&]
            {
                std::vector<void*> blocks;
                for (int i = 0; i < 48; ++i)
                    blocks.push_back(packed.Malloc(size));
                taken.set_value();
                counted.get_future().wait();
                for (void* p : blocks)
                    packed.Free(p);
            });
        taken.get_future().wait();
        const u32 carved = packed.GetStatistics().currentAllocations;
        counted.set_value();
        worker.join();
        if (PackedAllocator::NeedFor(size) > 4096)
            EXPECT_EQ(carved, 48u) << size;
        else
            EXPECT_GT(carved, 48u) << size;
    }
}

// A block freed and asked for again at once is the same block, though a
// freed block waits a moment before it is sorted into its list: a list
// that runs empty takes it back instead of carving another.
TEST(PackedAllocatorThreadCaches, ABlockFreedAndAskedForAgainAtOnceIsTheSameBlock)
{
    PackedAllocator packed("Again", 256);
    packed.EnableThreadCaches();
    for (const unsigned size : {2500u, 20000u, 65536u}) // classes whose lists start empty
    {
        void* p = packed.Malloc(size);
        packed.Free(p);
        EXPECT_EQ(packed.Malloc(size), p) << size;
        packed.Free(p);
    }
}

// A growth that must move, to a size the thread's cache serves, takes the
// block of its class that the thread freed last, still in the processor's
// caches, and keeps what the block held.
TEST(PackedAllocatorThreadCaches, AGrowthThatMovesTakesTheBlockTheThreadFreedLast)
{
    PackedAllocator packed("Grows", 256);
    packed.EnableThreadCaches();
    char* p = Take(packed, 1000); // carved with the next 1 KB block right behind it
    std::memset(p, 'g', 1000);
    std::vector<void*> freed;
    for (int i = 0; i < 5; ++i) // the first is sorted into its list as the fifth waits
        freed.push_back(packed.Malloc(2500));
    for (void* block : freed)
        packed.Free(block);
    char* q = static_cast<char*>(packed.ReAllocNoThrow(p, 2000));
    EXPECT_EQ(q, freed.front());
    EXPECT_EQ(std::string(q, 1000), std::string(1000, 'g'));
    EXPECT_TRUE(packed.ValidateMemory());
    packed.Free(q);
}

// With caches on, an emptied big run of at most 2 MB stays with its arena,
// counted in no statistics, for the next big run: a request for fewer pages
// takes its head, the pages behind go back, and the block grows into them
// again in place. A larger run goes back at once, as every run does without
// caches; a second free of the kept run's block is reported; FreeAll gives
// the kept run back.
TEST(PackedAllocatorThreadCaches, AnEmptiedBigRunIsKeptForTheNextOne)
{
    const qel::PageManager& manager = qel::PageManager::GetSingletonInstance();
    for (const bool caches : {false, true})
    {
        PackedAllocator packed("Spare", 256);
        if (caches)
            packed.EnableThreadCaches();
        char* first = Take(packed, 1u << 20);
        packed.Free(first);
        EXPECT_EQ(packed.GetStatistics().currentPages, 0u);
        EXPECT_TRUE(packed.ValidateMemory());
        EXPECT_EQ(manager.FindOwner(first), caches ? &packed : nullptr);
        if (!caches)
            continue;

        qeltest::ScriptedHost host;
        packed.Free(first);
        EXPECT_EQ(Asked(host, "PackedAllocator::Free(): " + Hex(first) +
                                  " is not a live block of this allocator!"),
                  1u);

        char* head = Take(packed, 200000);
        EXPECT_EQ(head, first);
        EXPECT_EQ(packed.GetStatistics().currentPages,
                  PackedAllocator::RunPagesFor(PackedAllocator::NeedFor(200000)));
        EXPECT_EQ(manager.FindOwner(head + (600u << 10)), nullptr);
        std::memset(head, 'h', 200000);
        char* grown = static_cast<char*>(packed.ReAllocNoThrow(head, 1u << 20));
        EXPECT_EQ(grown, head);
        EXPECT_EQ(std::string(grown, 200000), std::string(200000, 'h'));
        EXPECT_TRUE(packed.ValidateMemory());
        packed.Free(grown);

        // A block of a cached size, a page or more, that moves to grow takes
        // the kept run before the thread's cache.
        char* page = Take(packed, 4096);
        char* behind = Take(packed, 4096);
        std::memset(page, 'p', 4096);
        char* moved = static_cast<char*>(packed.ReAllocNoThrow(page, 8000));
        EXPECT_EQ(moved, first);
        EXPECT_EQ(std::string(moved, 4096), std::string(4096, 'p'));
        EXPECT_EQ(packed.ReAllocNoThrow(moved, 300000), moved);
        packed.Free(moved);
        packed.Free(behind);

        char* large = Take(packed, 3u << 20);
        packed.Free(large);
        EXPECT_NE(manager.FindOwner(large), &packed);
        char* last = Take(packed, 1u << 20);
        packed.Free(last);
        EXPECT_EQ(manager.FindOwner(last), &packed);
        packed.FreeAll();
        EXPECT_EQ(manager.FindOwner(last), nullptr);
    }
}

// With caches on, threads take their runs from arenas given in turn, as
// many as the machine has processors (at most eight): one thread more than
// that, each holding a block of a cached size, hold them in one run an
// arena, the last thread sharing the first one's.
TEST(PackedAllocatorThreadCaches, ThreadsShareAsManyArenasAsThereAreProcessors)
{
    const unsigned processors = std::thread::hardware_concurrency();
    const unsigned arenas = processors == 0 || processors > 8 ? 8 : processors;
    PackedAllocator packed("Arenas", 256);
    packed.EnableThreadCaches();
    std::promise<void> counted;
    std::shared_future<void> done = counted.get_future().share();
    std::vector<std::promise<void>> taken(arenas + 1);
    std::vector<std::thread> threads;
    for (std::promise<void>& mine : taken)
    {
        threads.emplace_back(
            [&packed, &mine, done]
            {
                void* p = packed.Malloc(1000);
                mine.set_value();
                done.wait();
                packed.Free(p);
            });
        mine.get_future().wait(); // arenas go to threads in the order of their first block
    }
    EXPECT_EQ(RunsInADump(packed), std::ptrdiff_t(arenas));
    counted.set_value();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(packed.GetStatistics().currentPages, 0u);
}

// A block freed by another thread goes back to its own run, and the
// statistics are the arenas' sums.
TEST(PackedAllocatorThreadCaches, BlocksGoBackToTheirArenasWhoeverFreesThem)
{
    PackedAllocator packed("Arenas", 256);
    packed.EnableThreadCaches();
    void* mine = packed.Malloc(70000); // above the cached sizes: straight from the arena
    void* theirs = nullptr;
    std::thread([&] { theirs = packed.Malloc(70000); }).join();
    EXPECT_EQ(RunsInADump(packed), 2);
    const u32 pages = PackedAllocator::RunPagesFor(PackedAllocator::NeedFor(70000));
    EXPECT_EQ(packed.GetStatistics().currentAllocations, 2u);
    EXPECT_EQ(packed.GetStatistics().currentPages, 2 * pages);

    std::thread([&] { packed.Free(mine); }).join();
    EXPECT_TRUE(packed.ValidateMemory());
    EXPECT_EQ(packed.GetStatistics().currentPages, pages); // the run went back
    packed.Free(theirs);
    EXPECT_EQ(packed.GetStatistics().currentAllocations, 0u);
    EXPECT_EQ(packed.GetStatistics().currentPages, 0u);
}

// A block whose header is on its own page goes into the cache wherever it
// sits on that page, once the four freed after it have pushed it out of the
// pending ones; what lies in a run's header never does.
TEST(PackedAllocatorThreadCaches, BlocksNearAPageStartAreCachedButRunHeadersAreNot)
{
    PackedAllocator packed("Cached", 256);
    packed.EnableThreadCaches();
    std::vector<char*> blocks;
    char* nearStart = nullptr;
    while (nearStart == nullptr && blocks.size() < 1000)
    {
        blocks.push_back(static_cast<char*>(packed.Malloc(700)));
        const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(blocks.back()) & 4095;
        if (offset >= 16 && offset < 128 + 16)
            nearStart = blocks.back();
    }
    ASSERT_NE(nearStart, nullptr);
    packed.Free(nearStart);
    for (int freed = 0; freed < 4;)
    {
        char* p = blocks[blocks.size() - 2 - std::size_t(freed)];
        ASSERT_NE(reinterpret_cast<std::uintptr_t>(p) & 4095, 144u); // a run's first block
        packed.Free(p);
        blocks.erase(blocks.end() - 2 - freed++);
    }
    EXPECT_EQ(packed.Malloc(700), nearStart); // taken back from the cache

    const qel::AllocatorStatistics before = packed.GetStatistics();
    qeltest::ScriptedHost host;
    char* runStart = blocks.front() - 128 - 16;
    packed.Free(runStart + 64);
    EXPECT_EQ(Asked(host, "PackedAllocator::Free(): " + Hex(runStart + 64) +
                              " is not a live block of this allocator!"),
              1u);
    const qel::AllocatorStatistics after = packed.GetStatistics();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    EXPECT_TRUE(packed.ValidateMemory());
    for (char* p : blocks)
        packed.Free(p);
    EXPECT_EQ(packed.GetStatistics().currentPages, 0u);
}

} // namespace
