// The allocators under a script read from the input: the first byte picks an
// allocator, then each step is one of malloc, realloc, free, a move to another
// allocator, a dump or a check, on up to 64 live blocks of random sizes.
// Every block carries a pattern of its own that is checked before it is
// freed, moved or resized, and after a resize for the bytes that must have
// survived it. At the end every block is freed and the allocator must count
// no allocation and validate.
#include <qel/allocator.h>
#include <qel/allocatorstatmarker.h>
#include <qel/mem.h>
#include <qel/outputstream.h>
#include <qel/packedallocator.h>
#include <qel/poolallocator.h>
#include <qel/provider.h>

#include "fuzzhost.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

using qel::Allocator;
using qel::u32;

// A sink that takes every dump and keeps nothing: the dumps are run for
// what they read, not for their text.
class Discard : public qel::Provider
{
public:
    Discard() { m_Open = true; }
    void Request(qel::u64, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override
    {
        block = current = m_Scratch;
        end = m_Scratch + sizeof m_Scratch;
    }
    void Return(void*, void*) override {}
    void Return(void*) override {}

private:
    unsigned char m_Scratch[65536];
};

class DiscardStream : public qel::OutputStream
{
public:
    DiscardStream() : OutputStream(&m_Discard) {}
    ~DiscardStream() override { Finish(); }

private:
    Discard m_Discard;
};

struct Block
{
    unsigned char* data = nullptr;
    u32 size = 0;
    Allocator* owner = nullptr; // the allocator it was asked of
    unsigned char seed = 0;
};

// Allocators live for the whole run: the page manager does not reuse the
// owner index of one that is gone.
struct Allocators
{
    Allocator *pool, *packed, *hybrid, *page, *malloc;
    Allocator* all[7] = {};

    Allocators()
    {
        pool = qel::Mem::CreatePoolAllocator();
        packed = qel::Mem::CreatePackedAllocator("PackedAllocator-Fuzz", 256);
        hybrid = qel::Mem::CreateHybridAllocator();
        page = qel::Mem::CreatePageAllocator();
        malloc = qel::Mem::CreateMallocAllocator();
        Allocator* list[7] = {pool,
                              packed,
                              hybrid,
                              page,
                              malloc,
                              qel::Mem::GetGeneralAlloc(),
                              qel::Mem::GetNativeAlloc()};
        std::memcpy(all, list, sizeof all);
    }
};

[[noreturn]] void Fail(const char* what, u32 size)
{
    std::fprintf(stderr, "allocator fuzz: %s (size %u)\n", what, unsigned(size));
    std::abort();
}

// The bytes of a block that carry its pattern: the first and last 256 and
// every 509th between, so that a large block costs little and a write past
// either end of a neighbour still shows.
template <class Visit>
void ForEachProbe(u32 size, Visit visit)
{
    for (u32 i = 0; i < size; i = i < 256 || i + 256 >= size ? i + 1 : i + 509)
        visit(i);
}

unsigned char Pattern(const Block& block, u32 i)
{
    return static_cast<unsigned char>(block.seed + i * 131u);
}

void Fill(Block& block)
{
    ForEachProbe(block.size, [&](u32 i) { block.data[i] = Pattern(block, i); });
}

// Checks the probes of the block as filled, below `count`.
void Check(const Block& block, u32 count)
{
    ForEachProbe(block.size,
                 [&](u32 i)
                 {
                     if (i < count && block.data[i] != Pattern(block, i))
                         Fail("a block's contents changed", block.size);
                 });
}

// Mostly small sizes, some medium, a few large and a few at the edges.
u32 Size(qelfuzz::Bytes& in)
{
    const u32 word = in.Word();
    switch (word & 7)
    {
    case 0:
        return 0;
    case 1:
        return (word >> 3) % 4097 + 4096; // around a page
    case 2:
        return (word >> 3) * 16; // up to about 128 KB
    default:
        return (word >> 3) % 300; // the pool's range and just past it
    }
}

// The allocator whose pages hold a block; the hybrid's blocks belong to its
// sub-allocators, and the heap and malloc allocators own no pages.
bool OwnerIsRight(Allocator* asked, const void* p, const Allocators& a)
{
    if (asked == a.pool || asked == a.packed || asked == a.page)
        return Allocator::GetOwner(p) == asked;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    qelfuzz::QuietHost::Install();
    static Allocators allocators;
    qelfuzz::Bytes in(data, size);
    Allocator* allocator = allocators.all[in.Byte() % 7];

    Block blocks[64];
    unsigned char seed = 1;
    for (int step = 0; step < 4096 && !in.Empty(); ++step)
    {
        const std::uint8_t op = in.Byte();
        Block& block = blocks[in.Byte() % 64];
        switch (op % 8)
        {
        case 0:
        case 1:
        case 2:
            if (block.data == nullptr)
            {
                const u32 bytes = Size(in);
                block.data = static_cast<unsigned char*>(
                    op & 8 ? allocator->MallocDebugNoThrow(bytes, "fuzz", __FILE__, __LINE__)
                           : allocator->MallocNoThrow(bytes));
                if (block.data == nullptr)
                    break;
                block.size = bytes;
                block.owner = allocator;
                block.seed = seed++;
                if (!OwnerIsRight(allocator, block.data, allocators))
                    Fail("GetOwner does not find the allocator", bytes);
                Fill(block);
            }
            break;
        case 3:
        case 4:
            if (block.data != nullptr)
            {
                Check(block, block.size);
                block.owner->Free(block.data);
                block = Block();
            }
            break;
        case 5:
        {
            // A resize to 0 frees in some allocators and not in others.
            u32 bytes = Size(in);
            if (block.data != nullptr && bytes == 0)
                bytes = 1;
            Allocator* owner = block.data ? block.owner : allocator;
            if (block.data)
                Check(block, block.size);
            void* resized = owner->ReAllocNoThrow(block.data, bytes);
            if (resized == nullptr)
            {
                if (block.data != nullptr) // the old block stays valid
                    Check(block, block.size);
                break;
            }
            const u32 kept = block.size < bytes ? block.size : bytes;
            block.data = static_cast<unsigned char*>(resized);
            block.owner = owner;
            Check(block, kept);
            block.size = bytes;
            Fill(block);
            break;
        }
        case 6:
            if (block.data != nullptr)
            {
                // Move the block into another allocator.
                Allocator* target = allocators.all[in.Byte() % 7];
                Check(block, block.size);
                if (void* moved = block.owner->Transfert(target, block.data, block.size))
                {
                    block.data = static_cast<unsigned char*>(moved);
                    block.owner = target;
                    Check(block, block.size);
                }
            }
            break;
        default:
        {
            static DiscardStream out;
            allocator->DumpStatistics(in.Byte() & 0xF, nullptr, nullptr, &out, nullptr);
            if (!allocator->ValidateMemory())
                Fail("ValidateMemory failed", 0);
            break;
        }
        }
    }

    for (Block& block : blocks)
        if (block.data != nullptr)
        {
            Check(block, block.size);
            block.owner->Free(block.data);
        }
    if (static_cast<qel::PoolAllocator*>(allocators.pool)->GetTotals().currentAllocations != 0 ||
        static_cast<qel::PackedAllocator*>(allocators.packed)->GetStatistics().currentAllocations !=
            0)
        Fail("blocks are still counted after every block was freed", 0);
    for (Allocator* each : allocators.all)
        if (!each->ValidateMemory())
            Fail("ValidateMemory failed at the end", 0);
    return 0;
}
