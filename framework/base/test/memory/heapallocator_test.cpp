// The heap and malloc allocators: what counts as one of the heap's blocks,
// contents across reallocation, consistency under random and concurrent use.
#include <qel/errormanager.h>
#include <qel/heapallocator.h>
#include <qel/mallocallocator.h>
#include <qel/mem.h>

#include "memory/memorytest.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace
{

TEST(HeapAllocator, OnlyLiveBlocksOfItsOwnHeapAreValid)
{
    qel::HeapAllocator heap, otherHeap;
    void* block = heap.MallocNoThrow(100);
    void* foreign = otherHeap.MallocNoThrow(100);
    void* fromMalloc = std::malloc(100);
    void* empty = heap.MallocNoThrow(0); // a zero size still gives a block
    int local = 0;
    static int global = 0;
    EXPECT_TRUE(heap.IsValidPointer(block));
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(heap.IsValidPointer(empty));
    EXPECT_FALSE(heap.IsValidPointer(static_cast<char*>(block) + 16)); // inside, not a block
    EXPECT_FALSE(heap.IsValidPointer(foreign));
    EXPECT_FALSE(heap.IsValidPointer(fromMalloc));
    EXPECT_FALSE(heap.IsValidPointer(&local));
    EXPECT_FALSE(heap.IsValidPointer(&global));
    EXPECT_TRUE(heap.IsValidPointer(nullptr)); // the whole heap, sound
    heap.Free(block);
    heap.Free(empty);
    EXPECT_FALSE(heap.IsValidPointer(block));
    std::free(fromMalloc);
}

// One thread and then four at once, handing blocks to each other: the
// heap serialises them. A few blocks are bigger than an arena.
TEST(HeapAllocator, RandomAndConcurrentUseKeepContentsAndHeapConsistent)
{
    qel::HeapAllocator heap;
    for (unsigned threads : {1u, 4u})
    {
        SCOPED_TRACE(threads);
        qeltest::ChurnWithContentChecks(heap, threads, 20000 / threads,
                                        [](std::mt19937& random) {
                                            return random() % 128 == 0 ? 1 + random() % (3u << 20)
                                                                       : 1 + random() % 3000;
                                        });
        EXPECT_TRUE(heap.ValidateMemory());
    }
}

TEST(MallocAllocator, ZeroSizesGiveNullAndReallocToZeroFrees)
{
    qel::MallocAllocator allocator;
    EXPECT_EQ(allocator.MallocNoThrow(0), nullptr);
    void* p = allocator.ReAllocNoThrow(nullptr, 17);
    ASSERT_NE(p, nullptr);
    std::memset(p, 0x5A, 17);
    EXPECT_EQ(allocator.ReAllocNoThrow(p, 0), nullptr); // a leak here shows under ASan
    EXPECT_TRUE(allocator.IsValidPointer(&allocator));
}

TEST(MallocAllocator, HasItsOwnCategoryForItsLifetime)
{
    qel::ErrorManager& errors = qel::ErrorManager::GetSingletonInstance();
    qel::Mem::GetNativeAlloc(); // the first allocator made registers the memory category
    const qel::u32 before = errors.GetNumberOfCategories();
    {
        qel::MallocAllocator allocator;
        EXPECT_EQ(errors.GetNumberOfCategories(), before + 1);
        EXPECT_NE(allocator.GetErrorCategory(), qel::Mem::GetErrorCategory());
        EXPECT_NE(allocator.GetErrorCategory(), qel::u32(qel::ErrorManager::DefaultCategory));
    }
    EXPECT_EQ(errors.GetNumberOfCategories(), before);
}

} // namespace
