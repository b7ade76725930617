// The memory facade and the allocator interface: shared usages, factories,
// the owner lookup and its fatal error, reports of failed allocations, the
// page allocator and the statistics table.
#include <qel/allocatorstatistics.h>
#include <qel/mem.h>
#include <qel/pageallocator.h>
#include <qel/pagemanager.h>

#include "memory/memorytest.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace
{

using qel::Mem;
using qel::QueryDevice;
using qeltest::Format;
using qeltest::Hex;

const unsigned kPage = qel::PageManager::PageSize;

// The message part of a fatal error's question.
std::string MessageOf(const qeltest::ScriptedHost& host)
{
    if (host.questions.empty())
        return "(no question)";
    const std::string& text = host.questions.back().text;
    const std::size_t begin = text.find("Message: ");
    const std::size_t end = text.find("\n\nFilename: ");
    return begin == std::string::npos || end == std::string::npos
               ? text
               : text.substr(begin + 9, end - begin - 9);
}

TEST(Mem, SharedUsagesAreMadeOnceUnknownUsagesAreNullAndMadeAllocatorsLiveOnNative)
{
    qel::Allocator* page = Mem::GetPageAlloc();
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(Mem::GetAllocator(Mem::Page), page);
    EXPECT_NE(dynamic_cast<qel::PageAllocator*>(page), nullptr);
    qel::Allocator* native = Mem::GetNativeAlloc();
    ASSERT_NE(native, nullptr);
    EXPECT_EQ(Mem::GetNativeAlloc(), native);
    EXPECT_EQ(Mem::GetAllocator(Mem::AllocatorUsage(5)), nullptr);
    EXPECT_EQ(Mem::GetAllocator(Mem::AllocatorUsage(-1)), nullptr);

    qel::Allocator* made = Mem::CreateMallocAllocator();
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(native->IsValidPointer(made));
    delete made; // back to Native
    EXPECT_FALSE(native->IsValidPointer(made));
}

TEST(GetOwner, AddressNoAllocatorOwnsIsFatal)
{
    qeltest::ScriptedHost host;
    void* fromMalloc = std::malloc(32);
    EXPECT_EQ(qel::Allocator::GetOwner(fromMalloc), nullptr);
    EXPECT_EQ(MessageOf(host),
              "Unable to find an allocator owner for allocation at address: " + Hex(fromMalloc));
    EXPECT_GE(host.exits, 1);
    std::free(fromMalloc);

    int local = 0;
    EXPECT_EQ(qel::Allocator::GetOwner(&local), nullptr);
    EXPECT_EQ(MessageOf(host),
              "Unable to find an allocator owner for allocation at address: " + Hex(&local));
}

TEST(Allocator, FailedMallocIsReportedBreaksOnYesThenExits)
{
    qeltest::ScriptedHost host;
    host.Answer({QueryDevice::Yes});
    EXPECT_EQ(Mem::GetPageAlloc()->Malloc(0), nullptr); // the page allocator refuses 0 bytes
    EXPECT_EQ(MessageOf(host), "Malloc failed: no more available memory");
    EXPECT_EQ(host.questions.back().caption, "Error");
    EXPECT_EQ(host.breaks, 1);
    EXPECT_EQ(host.exits, 1);
}

TEST(PageAllocator, ReallocShrinksInPlaceGrowsByMovingContentsAndDestructionGivesPagesBack)
{
    qel::PageManager& manager = qel::PageManager::GetSingletonInstance();
    const qel::u32 used = manager.GetStatistics().currentUsedPages;
    {
        qel::PageAllocator pages;
        char* block = static_cast<char*>(pages.MallocNoThrow(5 * kPage));
        ASSERT_NE(block, nullptr);
        std::memset(block, 0x3C, 5 * kPage);
        EXPECT_EQ(pages.ReAllocNoThrow(block, 2 * kPage), block);
        EXPECT_EQ(pages.GetNumberOfPages(), 2u);
        EXPECT_FALSE(pages.IsValidPointer(block + 2 * kPage));
        char* grown = static_cast<char*>(pages.ReAllocNoThrow(block, 9 * kPage));
        ASSERT_NE(grown, nullptr);
        EXPECT_EQ(grown[0], 0x3C);
        EXPECT_EQ(grown[2 * kPage - 1], 0x3C);
        EXPECT_EQ(pages.GetNumberOfAllocations(), 1u);
        EXPECT_EQ(pages.GetNumberOfPages(), 9u);
        EXPECT_EQ(manager.GetStatistics().currentUsedPages, used + 9);
        EXPECT_TRUE(pages.ValidateMemory());
        EXPECT_TRUE(pages.IsValidPointer(grown));
        EXPECT_FALSE(pages.IsValidPointer(grown + kPage));
    }
    EXPECT_EQ(manager.GetStatistics().currentUsedPages, used);
}

TEST(PageAllocator, DumpCountsAndListsBlocks)
{
    qel::PageAllocator pages;
    char* block = static_cast<char*>(pages.MallocNoThrow(kPage + 1));
    qeltest::DumpCapture capture;
    pages.DumpStatistics(1 | 2, nullptr, nullptr, capture.Stream(), nullptr);
    const std::vector<std::string> expected = {
        "PageAllocator memory usage statistics",
        "Nbr of allocations requests: 1",
        "Total nbr of Pages: 2",
        "",
        "",
        "Allocations Pagellocator: " + Hex(&pages),
        Format("[%s, %s[\t%12u", Hex(block).c_str(), Hex(block + 2 * kPage).c_str(), 2u),
    };
    EXPECT_EQ(capture.Lines(), expected);
}

TEST(AllocatorStatistics, TableRowsAreExactAndPeaksStay)
{
    qel::AllocatorStatistics stats = {};
    stats.AddPages(3);
    stats.AddAllocation(100, 112);
    stats.AddAllocation(20, 32);
    stats.RemoveAllocation(100, 112);
    stats.AddFullPages(1);
    qeltest::DumpCapture capture;
    qel::AllocatorStatistics::DumpHeader(*capture.Stream(), "Pool Size");
    stats.DumpRow(*capture.Stream(), "TOTAL");
    const std::vector<std::string> expected = {
        Format("%-15s\t%15s\t%15s\t%15s\t%15s\t%15s\t%20s\t%15s\t%15s\t%15s\t%15s\t%15s\t%20s",
               "Pool Size", "Curr. nbr alloc", "Curr. req size", "Curr. used size",
               "Curr. nbr pages", "Curr page size", "Curr. nbr pages full", "Peak nbr alloc",
               "Peak req size", "Peak used size", "Peak nbr pages", "Peak page size",
               "Peak nbr pages full"),
        Format("%-15s\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u\t%15u\t%15u\t%15u\t%15u\t%15u\t%20u",
               "TOTAL", 1u, 20u, 32u, 3u, 3u * 4096u, 1u, 2u, 120u, 144u, 3u, 3u * 4096u, 1u),
    };
    EXPECT_EQ(capture.Lines(), expected);
}

} // namespace
