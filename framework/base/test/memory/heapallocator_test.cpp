// The heap and malloc allocators: what counts as one of the heap's blocks,
// contents across reallocation, consistency under random and concurrent use.
#include <qel/errormanager.h>
#include <qel/heapallocator.h>
#include <qel/mallocallocator.h>
#include <qel/mem.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace
{

struct Block
{
    unsigned char* p;
    unsigned int size;
    unsigned char fill;
};

bool Intact(const Block& block)
{
    for (unsigned int i = 0; i < block.size; ++i)
        if (block.p[i] != block.fill)
            return false;
    return true;
}

// Random allocations, frees and reallocations, each block filled with its
// own byte; returns the number of blocks found damaged.
int Churn(qel::Allocator& heap, unsigned seed, int steps, unsigned maxSize)
{
    std::mt19937 random(seed);
    std::vector<Block> blocks;
    int damaged = 0;
    for (int i = 0; i < steps; ++i)
    {
        const unsigned action = random() % 3;
        if (action == 0 || blocks.empty())
        {
            Block block{nullptr, 1 + unsigned(random() % maxSize), (unsigned char)(random())};
            block.p = static_cast<unsigned char*>(heap.MallocNoThrow(block.size));
            if (block.p == nullptr)
                return -1;
            std::memset(block.p, block.fill, block.size);
            blocks.push_back(block);
            continue;
        }
        Block& block = blocks[random() % blocks.size()];
        damaged += Intact(block) ? 0 : 1;
        if (action == 1)
        {
            heap.Free(block.p);
            block = blocks.back();
            blocks.pop_back();
            continue;
        }
        const unsigned size = 1 + unsigned(random() % maxSize);
        block.p = static_cast<unsigned char*>(heap.ReAllocNoThrow(block.p, size));
        if (block.p == nullptr)
            return -1;
        if (size > block.size)
            std::memset(block.p + block.size, block.fill, size - block.size);
        block.size = size;
    }
    for (const Block& block : blocks)
    {
        damaged += Intact(block) ? 0 : 1;
        heap.Free(block.p);
    }
    return damaged;
}

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

TEST(HeapAllocator, RandomUseKeepsContentsAndHeapConsistent)
{
    qel::HeapAllocator heap;
    EXPECT_EQ(Churn(heap, 42, 20000, 3000), 0);
    EXPECT_EQ(Churn(heap, 7, 300, 3u << 20), 0); // blocks bigger than an arena
    EXPECT_TRUE(heap.ValidateMemory());
}

TEST(HeapAllocator, ConcurrentUseOfOneHeapIsSerialised)
{
    qel::HeapAllocator heap;
    std::vector<std::thread> threads;
    std::atomic<int> damaged{0};
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back([&, t] { damaged += Churn(heap, 100 + t, 4000, 2000); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(damaged.load(), 0);
    EXPECT_TRUE(heap.ValidateMemory());
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
