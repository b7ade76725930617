// The private heap on POSIX: arenas of mapped pages carved into blocks with
// boundary tags. Free blocks sit in size-segregated lists (one per 16 bytes
// below 1 KB, four per power of two above, with a bitmap of the non-empty
// ones) and merge with free neighbours when they come back, so both
// allocation and release take a handful of steps.
//
// Each block starts with a 16-byte header: the size of the block before it
// (0 for an arena's first), its own size with an in-use bit, and a check
// word, its address mixed with the heap's secret. An address is taken for a
// block of ours only when it lies inside one of our arenas and its header
// checks out, so a foreign address is answered without reading memory we do
// not own. Destroying the heap unmaps every arena.
#include "base/memory/heap_native.h"
#include "base/memory/pages_native.h"

#include <chrono>
#include <cstdint>
#include <cstring>

namespace qel
{
namespace native
{
namespace
{

typedef std::uint32_t u32;
typedef std::uint64_t u64;

const std::size_t kHeader = 16;
const std::size_t kMinBlock = 32;
const u32 kInUse = 1;
// Block sizes are 32-bit; the largest request leaves room for the header.
const std::size_t kMaxBlock = 0xFFF00000u;
const std::size_t kArenaHeader = 64;
const std::size_t kFirstArenaSize = 256 << 10;
const std::size_t kLargestArenaStep = 16 << 20;
const std::size_t kMapGranule = 64 << 10;
const u32 kBins = 152; // 64 exact bins below 1 KB, then 4 per power of two up to 2^32

struct Header
{
    u32 previousSize;
    u32 sizeAndFlags;
    u64 check;
};

struct FreeBlock : Header
{
    FreeBlock* next;
    FreeBlock* previous;
};

static_assert(sizeof(Header) == kHeader, "block header must keep payloads 16-byte aligned");
static_assert(sizeof(FreeBlock) <= kMinBlock, "a free block must hold its list links");

struct Arena
{
    Arena* next;
    Arena* previous;
    std::size_t size; // of the whole mapping
};

static_assert(sizeof(Arena) <= kArenaHeader, "arena header too big");

struct Heap
{
    u64 secret;
    Arena* arenas;
    std::size_t nextArenaSize;
    u64 nonEmptyBins[3];
    FreeBlock* bins[kBins];
};

const std::size_t kHeapMapping = 4096;
static_assert(sizeof(Heap) <= kHeapMapping, "heap record must fit its page");

std::size_t RoundUp(std::size_t value, std::size_t step)
{
    return (value + step - 1) & ~(step - 1);
}

u32 SizeOf(const Header* block)
{
    return block->sizeAndFlags & ~u32(15);
}

bool InUse(const Header* block)
{
    return (block->sizeAndFlags & kInUse) != 0;
}

u64 CheckWord(const Heap& heap, const Header* block)
{
    return heap.secret ^ u64(reinterpret_cast<std::uintptr_t>(block));
}

void SetHeader(const Heap& heap, Header* block, u32 previousSize, u32 size, bool inUse)
{
    block->previousSize = previousSize;
    block->sizeAndFlags = size | (inUse ? kInUse : 0);
    block->check = CheckWord(heap, block);
}

Header* At(void* base, std::size_t offset)
{
    return reinterpret_cast<Header*>(static_cast<char*>(base) + offset);
}

Header* NextOf(Header* block)
{
    return At(block, SizeOf(block));
}

Header* HeaderOf(const void* payload)
{
    return reinterpret_cast<Header*>(const_cast<char*>(static_cast<const char*>(payload)) -
                                     kHeader);
}

void* PayloadOf(Header* block)
{
    return reinterpret_cast<char*>(block) + kHeader;
}

// ---- size lists ---------------------------------------------------------

u32 BinOf(std::size_t size)
{
    if (size < 1024)
        return u32(size >> 4);
    const u32 log = 63 - u32(__builtin_clzll(u64(size)));
    return 64 + (log - 10) * 4 + (u32(size >> (log - 2)) & 3);
}

void Insert(Heap& heap, Header* block)
{
    FreeBlock* free = static_cast<FreeBlock*>(block);
    const u32 bin = BinOf(SizeOf(block));
    free->previous = nullptr;
    free->next = heap.bins[bin];
    if (free->next)
        free->next->previous = free;
    heap.bins[bin] = free;
    heap.nonEmptyBins[bin >> 6] |= u64(1) << (bin & 63);
}

void Unlink(Heap& heap, Header* block)
{
    FreeBlock* free = static_cast<FreeBlock*>(block);
    const u32 bin = BinOf(SizeOf(block));
    if (free->previous)
        free->previous->next = free->next;
    else
        heap.bins[bin] = free->next;
    if (free->next)
        free->next->previous = free->previous;
    if (heap.bins[bin] == nullptr)
        heap.nonEmptyBins[bin >> 6] &= ~(u64(1) << (bin & 63));
}

// The first non-empty bin at or above `from`, kBins when there is none.
u32 NextNonEmptyBin(const Heap& heap, u32 from)
{
    for (u32 word = from >> 6; word < 3; ++word)
    {
        u64 bits = heap.nonEmptyBins[word];
        if (word == from >> 6)
            bits &= ~u64(0) << (from & 63);
        if (bits != 0)
            return word * 64 + u32(__builtin_ctzll(bits));
    }
    return kBins;
}

// Takes a free block of at least `need` bytes out of the lists.
Header* TakeFree(Heap& heap, std::size_t need)
{
    const u32 bin = BinOf(need);
    // Below 1 KB a bin holds one size; above, its blocks may be too small.
    for (FreeBlock* free = heap.bins[bin]; free != nullptr; free = free->next)
        if (SizeOf(free) >= need)
        {
            Unlink(heap, free);
            return free;
        }
    const u32 larger = NextNonEmptyBin(heap, bin + 1);
    if (larger == kBins)
        return nullptr;
    Header* block = heap.bins[larger];
    Unlink(heap, block);
    return block;
}

// Cuts `block` (in use) down to `need` bytes when the rest makes a block of
// its own; the rest merges with a free block after it.
void Trim(Heap& heap, Header* block, std::size_t need)
{
    const u32 size = SizeOf(block);
    if (size - need < kMinBlock)
        return;
    Header* rest = At(block, need);
    u32 restSize = u32(size - need);
    Header* after = At(rest, restSize);
    if (!InUse(after))
    {
        Unlink(heap, after);
        restSize += SizeOf(after);
    }
    SetHeader(heap, block, block->previousSize, u32(need), true);
    SetHeader(heap, rest, u32(need), restSize, false);
    At(rest, restSize)->previousSize = restSize;
    Insert(heap, rest);
}

// ---- arenas -------------------------------------------------------------

bool AddArena(Heap& heap, std::size_t need)
{
    std::size_t size = RoundUp(need + kArenaHeader + kHeader, kMapGranule);
    if (size <= heap.nextArenaSize)
    {
        size = heap.nextArenaSize;
        if (heap.nextArenaSize < kLargestArenaStep)
            heap.nextArenaSize *= 2;
    }
    Arena* arena = static_cast<Arena*>(CommitPages(size, false));
    if (arena == nullptr)
        return false;
    arena->size = size;
    arena->previous = nullptr;
    arena->next = heap.arenas;
    if (heap.arenas)
        heap.arenas->previous = arena;
    heap.arenas = arena;

    const u32 blockSize = u32(size - kArenaHeader - kHeader);
    Header* block = At(arena, kArenaHeader);
    SetHeader(heap, block, 0, blockSize, false);
    SetHeader(heap, At(block, blockSize), blockSize, 0, true); // end marker
    Insert(heap, block);
    return true;
}

void RemoveArena(Heap& heap, Arena* arena)
{
    if (arena->previous)
        arena->previous->next = arena->next;
    else
        heap.arenas = arena->next;
    if (arena->next)
        arena->next->previous = arena->previous;
    ReleasePages(arena, arena->size);
}

Arena* ArenaHolding(const Heap& heap, const void* p)
{
    const char* address = static_cast<const char*>(p);
    for (Arena* arena = heap.arenas; arena != nullptr; arena = arena->next)
    {
        const char* begin = reinterpret_cast<const char*>(arena);
        if (address >= begin && address < begin + arena->size)
            return arena;
    }
    return nullptr;
}

// True when the header checks out as a live block; reads only the block's
// header and the next one's, both inside the block's arena if the first is.
bool IsLive(const Heap& heap, Header* block)
{
    return block->check == CheckWord(heap, block) && InUse(block) && SizeOf(block) >= kMinBlock;
}

bool ValidateArena(const Heap& heap, Arena* arena, u32& freeBlocks)
{
    char* end = reinterpret_cast<char*>(arena) + arena->size - kHeader;
    Header* block = At(arena, kArenaHeader);
    u32 previousSize = 0;
    bool previousFree = false;
    while (reinterpret_cast<char*>(block) < end)
    {
        const u32 size = SizeOf(block);
        if (block->check != CheckWord(heap, block) || block->previousSize != previousSize ||
            size < kMinBlock || reinterpret_cast<char*>(block) + size > end)
            return false;
        const bool free = !InUse(block);
        if (free && previousFree)
            return false; // neighbours should have merged
        freeBlocks += free ? 1 : 0;
        previousFree = free;
        previousSize = size;
        block = At(block, size);
    }
    return reinterpret_cast<char*>(block) == end && block->check == CheckWord(heap, block) &&
           block->previousSize == previousSize && block->sizeAndFlags == kInUse;
}

} // namespace

void* CreatePrivateHeap()
{
    Heap* heap = static_cast<Heap*>(CommitPages(kHeapMapping, false));
    if (heap == nullptr)
        return nullptr;
    // The mapping is zeroed: no arenas, empty bins.
    const u64 now = u64(std::chrono::steady_clock::now().time_since_epoch().count());
    heap->secret = (u64(reinterpret_cast<std::uintptr_t>(heap)) ^ now) * 0x9E3779B97F4A7C15ull;
    heap->nextArenaSize = kFirstArenaSize;
    return heap;
}

void DestroyPrivateHeap(void* handle)
{
    Heap* heap = static_cast<Heap*>(handle);
    while (heap->arenas != nullptr)
        RemoveArena(*heap, heap->arenas);
    ReleasePages(heap, kHeapMapping);
}

void* AllocateFromHeap(void* handle, std::size_t size)
{
    Heap& heap = *static_cast<Heap*>(handle);
    if (size > kMaxBlock - kHeader)
        return nullptr;
    const std::size_t need = size + kHeader <= kMinBlock ? kMinBlock : RoundUp(size + kHeader, 16);
    Header* block = TakeFree(heap, need);
    if (block == nullptr)
    {
        if (!AddArena(heap, need))
            return nullptr;
        block = TakeFree(heap, need);
    }
    block->sizeAndFlags |= kInUse;
    Trim(heap, block, need);
    return PayloadOf(block);
}

bool FreeToHeap(void* handle, void* payload)
{
    Heap& heap = *static_cast<Heap*>(handle);
    Header* block = HeaderOf(payload);
    if (!IsLive(heap, block))
        return false;
    block->sizeAndFlags &= ~kInUse; // a merged-away header must not look live
    u32 size = SizeOf(block);
    Header* after = At(block, size);
    if (!InUse(after))
    {
        Unlink(heap, after);
        size += SizeOf(after);
    }
    if (block->previousSize != 0)
    {
        Header* before =
            reinterpret_cast<Header*>(reinterpret_cast<char*>(block) - block->previousSize);
        if (!InUse(before))
        {
            Unlink(heap, before);
            size += SizeOf(before);
            block = before;
        }
    }
    SetHeader(heap, block, block->previousSize, size, false);
    Header* next = At(block, size);
    next->previousSize = size;

    // An arena left with nothing in use goes back to the system, unless it
    // is the heap's last.
    Arena* arena = reinterpret_cast<Arena*>(reinterpret_cast<char*>(block) - kArenaHeader);
    if (block->previousSize == 0 && SizeOf(next) == 0 && heap.arenas->next != nullptr)
    {
        RemoveArena(heap, arena);
        return true;
    }
    Insert(heap, block);
    return true;
}

void* ReallocateInHeap(void* handle, void* payload, std::size_t size)
{
    Heap& heap = *static_cast<Heap*>(handle);
    Header* block = HeaderOf(payload);
    if (!IsLive(heap, block) || size > kMaxBlock - kHeader)
        return nullptr;
    const std::size_t need = size + kHeader <= kMinBlock ? kMinBlock : RoundUp(size + kHeader, 16);
    const u32 current = SizeOf(block);
    if (need <= current)
    {
        Trim(heap, block, need);
        return payload;
    }
    Header* after = At(block, current);
    if (!InUse(after) && current + std::size_t(SizeOf(after)) >= need)
    {
        Unlink(heap, after);
        const u32 merged = current + SizeOf(after);
        SetHeader(heap, block, block->previousSize, merged, true);
        At(block, merged)->previousSize = merged;
        Trim(heap, block, need);
        return payload;
    }
    void* moved = AllocateFromHeap(handle, size);
    if (moved == nullptr)
        return nullptr;
    std::memcpy(moved, payload, current - kHeader);
    FreeToHeap(handle, payload);
    return moved;
}

bool ValidateHeap(void* handle, const void* payload)
{
    const Heap& heap = *static_cast<const Heap*>(handle);
    if (payload != nullptr)
    {
        const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(payload);
        Arena* arena = ArenaHolding(heap, payload);
        if (arena == nullptr || address % 16 != 0 ||
            address < reinterpret_cast<std::uintptr_t>(arena) + kArenaHeader + kHeader)
            return false;
        Header* block = HeaderOf(payload);
        if (!IsLive(heap, block))
            return false;
        const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(arena) + arena->size - kHeader;
        return address - kHeader + SizeOf(block) <= end &&
               NextOf(block)->previousSize == SizeOf(block);
    }

    u32 freeBlocks = 0;
    for (Arena* arena = heap.arenas; arena != nullptr; arena = arena->next)
        if (!ValidateArena(heap, arena, freeBlocks))
            return false;
    u32 listed = 0;
    for (u32 bin = 0; bin < kBins; ++bin)
        for (FreeBlock* free = heap.bins[bin]; free != nullptr; free = free->next)
        {
            if (InUse(free) || BinOf(SizeOf(free)) != bin || ArenaHolding(heap, free) == nullptr)
                return false;
            ++listed;
        }
    return listed == freeBlocks;
}

} // namespace native
} // namespace qel
