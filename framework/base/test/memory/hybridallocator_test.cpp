// The hybrid allocator: routing by rounded size and the fall-through,
// reallocation across entries, the two warnings, forwarding and ownership,
// Mem's General allocator, and a seeded multithreaded stress test of General
// with content checks.
#include <qel/hybridallocator.h>
#include <qel/mallocallocator.h>
#include <qel/mem.h>
#include <qel/packedallocator.h>
#include <qel/pageallocator.h>
#include <qel/pagemanager.h>
#include <qel/poolallocator.h>

#include "memory/memorytest.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace
{

using qel::Allocator;
using qel::HybridAllocator;
using qel::u32;

// A sub-allocator that serves nothing and writes down what it is asked.
class RecordingAllocator : public qel::MallocAllocator
{
public:
    explicit RecordingAllocator(std::string& log, unsigned limit) : m_Log(log), m_Limit(limit) {}
    ~RecordingAllocator() override { m_Log += "~"; }
    void* MallocNoThrow(unsigned int size) override { return Note("M", size), nullptr; }
    void* MallocDebugNoThrow(unsigned int size, const char*, const char*, u32) override
    {
        return Note("m", size), nullptr;
    }
    void FreeAll() override { Note("A"); }
    void DumpStatistics(u32, qel::AllocatorStatMarker*, qel::AllocatorStatMarker*,
                        qel::OutputStream*, char*) override
    {
        Note("D");
    }
    bool ValidateMemory() override { return Note("V"), m_Limit != 0; }
    unsigned int GetMaxSupportedAllocSize() const override { return m_Limit; }
    void AddContext(const char* name) override { Note(name); }
    void RemoveContext() override { Note("-"); }

private:
    void Note(const char* what, unsigned size = 0)
    {
        m_Log += std::to_string(m_Limit) + what + (size ? std::to_string(size) : "") + " ";
    }
    std::string& m_Log;
    unsigned m_Limit;
};

TEST(HybridAllocator, RoutesByRoundedSizeAndFallsThroughToBig)
{
    qel::PoolAllocator pool;
    qel::PackedAllocator packed("Test", 256);
    HybridAllocator hybrid(&pool, false, &packed, false);
    void* at256 = hybrid.MallocNoThrow(256);
    void* at257 = hybrid.MallocNoThrow(257); // rounded to 272
    EXPECT_EQ(Allocator::GetOwner(at256), &pool);
    EXPECT_EQ(Allocator::GetOwner(at257), &packed);
    EXPECT_EQ(hybrid.GetMaxSupportedAllocSize(), 0xFFFFFFFFu);
    hybrid.Free(at256); // the pool's 256-byte class has no page left
    void* grown = hybrid.MallocNoThrow(16);

    // No page left for the pool: 250 bytes come from the packed run that
    // still has room.
    void* at250;
    {
        qeltest::PagesDrained drained;
        at250 = hybrid.MallocNoThrow(250);
        EXPECT_EQ(Allocator::GetOwner(at250), &packed);
        grown = hybrid.ReAllocNoThrow(grown, 250); // the pool cannot grow it: moved to packed
        EXPECT_EQ(Allocator::GetOwner(grown), &packed);
    }
    for (void* p : {at257, at250, grown})
        hybrid.Free(p);
    EXPECT_EQ(pool.GetTotals().currentAllocations + packed.GetStatistics().currentAllocations, 0u);
}

TEST(HybridAllocator, ReallocStaysInItsEntryOrMovesBetweenThem)
{
    Allocator* hybrid = qel::Mem::CreateHybridAllocator();
    ASSERT_NE(hybrid, nullptr);
    char* p = static_cast<char*>(hybrid->MallocNoThrow(100));
    std::memcpy(p, "contents", 9);
    Allocator* pool = Allocator::GetOwner(p);
    p = static_cast<char*>(hybrid->ReAllocNoThrow(p, 120)); // the pool's own realloc
    EXPECT_EQ(Allocator::GetOwner(p), pool);
    char* big = static_cast<char*>(hybrid->ReAllocNoThrow(p, 1000));
    EXPECT_NE(Allocator::GetOwner(big), pool);
    EXPECT_STREQ(big, "contents");
    char* back = static_cast<char*>(hybrid->ReAllocDebugNoThrow(big, 100, "tag", __FILE__, 1));
    EXPECT_EQ(Allocator::GetOwner(back), pool);
    EXPECT_STREQ(back, "contents");
    EXPECT_TRUE(hybrid->IsValidPointer(back));
    {
        // An address no allocator owns is reported, as for Free.
        qeltest::ScriptedHost host;
        EXPECT_FALSE(hybrid->IsValidPointer(&p));
        ASSERT_EQ(host.questions.size(), 1u);
        EXPECT_NE(host.questions[0].text.find(
                      "Unable to find an allocator owner for allocation at address: "),
                  std::string::npos);
    }
    hybrid->Free(back);
    EXPECT_TRUE(hybrid->ValidateMemory());
    delete hybrid;
}

TEST(HybridAllocator, EachWarningHasItsOwnSiteAndNoEntryIsAskedAboveBothLimits)
{
    std::string log;
    HybridAllocator hybrid(new RecordingAllocator(log, 100), true, new RecordingAllocator(log, 200),
                           true);
    qeltest::ScriptedHost host;
    host.Answer({qel::QueryDevice::Retry, qel::QueryDevice::Ignore, qel::QueryDevice::No});
    EXPECT_EQ(hybrid.MallocNoThrow(97), nullptr);
    EXPECT_EQ(log, "200M97 "); // rounded to 112: the big entry
    EXPECT_EQ(host.breaks, 1);
    EXPECT_EQ(hybrid.MallocNoThrow(193), nullptr); // Ignore, then "don't show again"
    const std::size_t asked = host.questions.size();
    EXPECT_EQ(hybrid.MallocNoThrow(193), nullptr);
    EXPECT_EQ(host.questions.size(), asked);
    EXPECT_EQ(hybrid.MallocDebugNoThrow(194, "tag", __FILE__, 1), nullptr); // its own site
    ASSERT_EQ(host.questions.size(), asked + 2);
    EXPECT_EQ(host.questions[0].text.rfind("HybridAllocator::Malloc(): Unable to find suitable "
                                           "space for allocation! Size: 97. Returning NULL.",
                                           0),
              0u);
    EXPECT_EQ(host.questions[asked].text.rfind("HybridAllocator::MallocDebugNoThrow(): Unable to "
                                               "find suitable space for allocation! Size: 194.",
                                               0),
              0u);
    EXPECT_EQ(log, "200M97 "); // 208 is above both limits: no entry was asked
}

TEST(HybridAllocator, ForwardsToBothSmallFirstAndDestroysWhatItOwns)
{
    std::string log;
    qeltest::ScriptedHost host; // MallocDebugNoThrow's warning
    {
        RecordingAllocator big(log, 0); // keeps ValidateMemory false
        HybridAllocator hybrid(new RecordingAllocator(log, 64), true, &big, false);
        hybrid.AddContext("C");
        hybrid.RemoveContext();
        hybrid.FreeAll();
        hybrid.DumpStatistics(1, nullptr, nullptr, nullptr, nullptr);
        hybrid.DumpStatistics(1 | HybridAllocator::DumpNothing, nullptr, nullptr, nullptr, nullptr);
        EXPECT_FALSE(hybrid.ValidateMemory());
        EXPECT_EQ(hybrid.MallocDebugNoThrow(10, "tag", __FILE__, 1), nullptr);
        EXPECT_EQ(hybrid.Transfert(&big, &log, 10), nullptr);
    }
    // MallocDebugNoThrow asks the plain MallocNoThrow of both entries.
    EXPECT_EQ(log, "64C 0C 64- 0- 64A 0A 64D 0D 64V 0V 64M10 0M10 ~~");
}

TEST(HybridAllocator, GeneralRoutesOverTheSharedPairWhichOutlivesAHybrid)
{
    Allocator* small = qel::Mem::GetSmallAlloc();
    Allocator* big = qel::Mem::GetBigAlloc();
    auto* general = dynamic_cast<HybridAllocator*>(qel::Mem::GetGeneralAlloc());
    ASSERT_NE(general, nullptr);
    EXPECT_EQ(general->GetSmallAllocator(), small);
    EXPECT_EQ(general->GetBigAllocator(), big);
    EXPECT_STREQ(dynamic_cast<qel::PackedAllocator&>(*big).GetName(), "BigAlloc");

    delete qel::Mem::CreateHybridAllocator(small, false, big, false);
    void* a = small->Malloc(16);
    void* b = big->Malloc(1000);
    EXPECT_EQ(Allocator::GetOwner(a), small);
    EXPECT_EQ(Allocator::GetOwner(b), big);
    general->Free(a);
    general->Free(b);

    auto* own = dynamic_cast<HybridAllocator*>(qel::Mem::CreateHybridAllocator());
    ASSERT_NE(own, nullptr);
    Allocator* ownBig = own->GetBigAllocator();
    EXPECT_STREQ(dynamic_cast<qel::PackedAllocator&>(*ownBig).GetName(), "PackedAllocator-Hybrid");
    delete own;
    EXPECT_EQ(qel::PageManager::GetSingletonInstance().GetOwnerIndex(ownBig),
              u32(qel::PageManager::NoOwner));
}

// Four threads churn General with content checks, across both entries and
// big runs.
TEST(HybridAllocatorStress, ThreadsChurnGeneralWithContentChecks)
{
    Allocator* general = qel::Mem::GetGeneralAlloc();
    qeltest::ChurnWithContentChecks(*general, 4, 20000,
                                    [](std::mt19937& random) {
                                        return random() % 64 == 0 ? 1 + random() % 300000
                                                                  : 1 + random() % 4096;
                                    });
    EXPECT_TRUE(general->ValidateMemory());
    auto& big = dynamic_cast<qel::PackedAllocator&>(*qel::Mem::GetBigAlloc());
    EXPECT_EQ(big.GetStatistics().currentAllocations, 0u);
    EXPECT_EQ(big.GetStatistics().currentPages, 0u);
}

} // namespace
