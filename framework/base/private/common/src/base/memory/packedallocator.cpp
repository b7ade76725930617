#include <qel/packedallocator.h>

#include <qel/errormanager.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>
#include <qel/report.h>

#include "base/memory/allocatorfactories.h"
#include "base/memory/dumpwriter.h"
#include "base/memory/packedrun.h"
#include "base/memory/threadcache.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

namespace qel
{

namespace
{

const unsigned char kTag = MemChunkTree::PackedAllocatorTag;

} // namespace

Allocator* memory::NewPackedAllocator(const char* name, u32 fullThreshold)
{
    return new PackedAllocator(name, fullThreshold);
}

PackedAllocator::PackedAllocator(const char* name, u32 fullThreshold)
    : m_Statistics(), m_Pages(&PageManager::GetSingletonInstance()), m_OwnerIndex(0),
      m_FullThreshold(fullThreshold)
{
    packedrun::Reset(m_Room);
    packedrun::Reset(m_SetAside);
    std::snprintf(m_Name, sizeof m_Name, "%s", name ? name : "");
    m_OwnerIndex = m_Pages->AddOwner(this);
    m_ErrorCategory = MEM_InitErrorCategory(Mem::GetErrorCategory(), m_Name);
}

PackedAllocator::~PackedAllocator()
{
    // What is still allocated now is a leak: list it. Blocks in other
    // threads' caches go with the runs.
    DumpStatistics(DumpPages, nullptr, nullptr, nullptr, nullptr);
    ThreadCacheHome::Destroy(m_Caches);
    m_Caches = nullptr;
    FreeAll();
    m_Pages->RemoveOwner(this);
    ErrorManager::GetSingletonInstance().UnRegisterCategory(m_ErrorCategory);
}

// ---- runs and their sets ----------------------------------------------------

PackedRun* PackedAllocator::NewRun(u32 pages)
{
    void* start = m_Pages->AllocatePages(this, pages);
    if (start == nullptr)
        return nullptr;
    PackedRun* run = new (start) PackedRun(pages);
    const bool inserted = run->tree.InsertChunkInTree(run->Space(), run->SpaceSize(), kTag);
    QEL_ASSERT(m_ErrorCategory, inserted);
    if (!inserted)
    {
        m_Pages->ReleasePages(this, start, pages);
        return nullptr;
    }
    run->largest = run->SpaceSize();
    m_Statistics.AddPages(pages);
    return run;
}

void PackedAllocator::ReleaseRun(PackedRun* run)
{
    Unfile(run);
    m_Statistics.RemovePages(run->pages);
    m_Pages->ReleasePages(this, run, run->pages);
}

void PackedAllocator::Unfile(PackedRun* run)
{
    if (run->set == PackedRun::Room)
    {
        packedrun::Remove(m_Room, run);
    }
    else if (run->set == PackedRun::SetAside)
    {
        packedrun::Remove(m_SetAside, run);
        m_Statistics.RemoveFullPages(run->pages);
    }
}

void PackedAllocator::Refile(PackedRun* run)
{
    const u32 largest = run->tree.GetLargestChunk();
    const bool setAside =
        (run->pages >= BigRunPages && run->live != 0) || largest <= m_FullThreshold;
    const u32 set = setAside ? PackedRun::SetAside : PackedRun::Room;
    const u32 bin =
        setAside ? packedrun::BinOf<SetAsideSet>(largest) : packedrun::BinOf<RoomSet>(largest);
    run->largest = largest;
    if (run->set == set && run->bin == bin)
        return; // same bin, same place in the order
    Unfile(run);
    if (setAside)
    {
        packedrun::Insert(m_SetAside, run, PackedRun::SetAside, bin);
        m_Statistics.AddFullPages(run->pages);
    }
    else
    {
        packedrun::Insert(m_Room, run, PackedRun::Room, bin);
    }
}

PackedRun* PackedAllocator::LiveBlockRun(const void* p) const
{
    PackedRun* run = static_cast<PackedRun*>(m_Pages->FindRunStart(p, m_OwnerIndex));
    const unsigned char* user = static_cast<const unsigned char*>(p);
    if (run == nullptr || !run->GuardsHold() || user < run->Space() + BlockHeaderSize ||
        user >= run->End() || PackedBlock::Of(p)->marker != BlockMarker)
        return nullptr;
    return run;
}

PackedRun* PackedAllocator::RunOf(const void* p, const char* operation)
{
    PackedRun* run = LiveBlockRun(p);
    if (run == nullptr)
        ReportBadBlock(operation, p);
    return run;
}

void PackedAllocator::ReportBadBlock(const char* operation, const void* p)
{
    QEL_WARNING(m_ErrorCategory,
                "PackedAllocator::%s(): 0x%08" PRIXPTR
                " is not a live block of this allocator! Allocator: 0x%08" PRIXPTR ". Ignored.\n",
                operation, memory::Address(p), memory::Address(this));
}

// ---- allocation -------------------------------------------------------------

void* PackedAllocator::MallocNoThrow(unsigned int size)
{
    if (m_Caches != nullptr && size - SmallestCached <= LargestCached - SmallestCached)
        if (ThreadCache* cache = m_Caches->Cache())
        {
            const u32 index = ClassAbove(size);
            void* p = cache->Pop(index);
            if (p == nullptr)
                return Refill(*cache, index);
            PackedBlock::Of(p)->marker = BlockMarker;
            return p;
        }
    const u32 need = NeedFor(size);
    if (size == 0 || need == 0)
        return nullptr;
    ScopedLock<CriticalSection> lock(m_Lock);
    return MallocLocked(need);
}

void* PackedAllocator::MallocLocked(u32 need)
{
    PackedRun* run = packedrun::FirstAtLeast(m_Room, need);
    if (run == nullptr && (run = NewRun(RunPagesFor(need))) == nullptr)
        return nullptr;
    // The run's largest free chunk holds `need`: GetChunk cannot fail.
    u32 chunk = need;
    PackedBlock* block = static_cast<PackedBlock*>(run->tree.GetChunk(chunk, kTag));
    block->marker = BlockMarker;
    block->capacity = chunk - BlockHeaderSize;
    ++run->live;
    m_Statistics.AddAllocation(block->capacity, block->capacity);
    Refile(run);
    return block->User();
}

void PackedAllocator::Free(const void* p)
{
    if (p == nullptr)
        return;
    // The cached path's check is lighter than the run's: a block of ours
    // whose header is on its own page (blocks near a page's start take the
    // checked path).
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(p);
    if (m_Caches != nullptr && (address & 7) == 0 &&
        (address & (PageSize - 1)) >= RunHeaderSize + BlockHeaderSize &&
        m_Pages->FindOwner(p) == this && PackedBlock::Of(p)->marker == BlockMarker)
    {
        PackedBlock* block = PackedBlock::Of(p);
        const u32 index = ClassBelow(block->capacity);
        if (index < CacheClasses)
            if (ThreadCache* cache = m_Caches->Cache())
            {
                block->marker = CachedMarker;
                if (cache->Push(index, const_cast<void*>(p)) > CacheLimit(index))
                    m_Caches->Drain(*cache, index, CacheLimit(index) / 2);
                return;
            }
    }
    ScopedLock<CriticalSection> lock(m_Lock);
    FreeLocked(p);
}

void PackedAllocator::FreeLocked(const void* p)
{
    PackedRun* run = RunOf(p, "Free");
    if (run == nullptr)
        return;
    PackedBlock* block = PackedBlock::Of(p);
    const u32 capacity = block->capacity;
    // The tree refuses a chunk that overlaps a free one: a double free.
    if (u64(capacity) + BlockHeaderSize >
            u64(run->End() - reinterpret_cast<unsigned char*>(block)) ||
        !run->tree.InsertChunkInTree(block, capacity + BlockHeaderSize, kTag))
    {
        ReportBadBlock("Free", p);
        return;
    }
    m_Statistics.RemoveAllocation(capacity, capacity);
    if (--run->live == 0)
        ReleaseRun(run);
    else
        Refile(run);
}

void* PackedAllocator::ReAllocNoThrow(void* p, unsigned int size)
{
    if (p == nullptr)
        return MallocNoThrow(size);
    const u32 need = NeedFor(size);
    if (size == 0 || need == 0)
        return nullptr;
    ScopedLock<CriticalSection> lock(m_Lock);
    PackedRun* run = RunOf(p, "ReAllocNoThrow");
    if (run == nullptr)
        return nullptr;
    PackedBlock* block = PackedBlock::Of(p);
    unsigned char* start = reinterpret_cast<unsigned char*>(block);
    const u32 chunk = block->Chunk();
    const u32 capacity = block->capacity;
    u32 resized;

    if (size <= capacity)
    {
        // A big run holds its block alone: when a smaller run would do, the
        // block moves and the run's pages go back.
        if (run->pages >= BigRunPages && RunPagesFor(need) < run->pages)
            if (void* moved = MallocNoThrow(size))
            {
                std::memcpy(moved, p, size);
                Free(p);
                return moved;
            }
        if (u64(need) + MinimumChunk > chunk)
            return p; // no tail worth giving back
        // The tail is part of a live block: the tree cannot hold any of it.
        const bool inserted = run->tree.InsertChunkInTree(start + need, chunk - need, kTag);
        QEL_ASSERT(m_ErrorCategory, inserted);
        if (!inserted)
            return p;
        resized = need;
    }
    else
    {
        u32 extra = need - chunk;
        auto grow = [&]
        {
            return run->tree.GetChunkAt(start + chunk, extra, kTag) != nullptr ||
                   (GrowRun(run, start + chunk, need - chunk) &&
                    run->tree.GetChunkAt(start + chunk, extra, kTag) != nullptr);
        };
        // The blocks this thread caches may hold the runs right behind a big
        // one: they go back before the block moves.
        bool grown = grow();
        if (!grown && m_Caches != nullptr && run->pages >= BigRunPages)
        {
            m_Caches->FlushOwn();
            grown = grow();
        }
        if (!grown)
        {
            Refile(run);
            void* moved = MallocNoThrow(size);
            if (moved == nullptr)
                return nullptr;
            std::memcpy(moved, p, capacity);
            Free(p);
            return moved;
        }
        resized = chunk + extra;
    }
    block->capacity = resized - BlockHeaderSize;
    m_Statistics.RemoveAllocation(capacity, capacity);
    m_Statistics.AddAllocation(block->capacity, block->capacity);
    Refile(run);
    return p;
}

bool PackedAllocator::GrowRun(PackedRun* run, unsigned char* end, u32 missing)
{
    // Only a block with nothing but free space behind it, up to the run's
    // end, can use pages added behind the run.
    u32 free = 0;
    if (end != run->End())
    {
        void* chunk = nullptr;
        if (!run->tree.FindChunk(end, &chunk, &free) || chunk != end || end + free != run->End())
            return false;
    }
    const u32 extra = (missing - free + PageSize - 1) / PageSize;
    if (u64(run->pages) + extra > MaxRunPages || !m_Pages->ExtendRun(this, run, run->pages, extra))
        return false;
    unsigned char* oldEnd = run->End();
    Unfile(run); // the set-aside page count follows the run's pages
    run->pages += extra;
    m_Statistics.AddPages(extra);
    const bool inserted = run->tree.InsertChunkInTree(oldEnd, extra * PageSize, kTag);
    QEL_ASSERT(m_ErrorCategory, inserted);
    return inserted;
}

void PackedAllocator::FreeAll()
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (m_Caches != nullptr)
        m_Caches->VoidAll();
    auto release = [this](PackedRun* run) { m_Pages->ReleasePages(this, run, run->pages); };
    packedrun::ForEach(m_Room, release);
    packedrun::ForEach(m_SetAside, release);
    packedrun::Reset(m_Room);
    packedrun::Reset(m_SetAside);
    m_Statistics.ClearCurrent();
}

// ---- moves and statistics ---------------------------------------------------

void* PackedAllocator::Transfert(Allocator* target, void* p, unsigned int size)
{
    if (p == nullptr)
        return target ? target->MallocNoThrow(size) : nullptr;
    if (target == nullptr)
        return nullptr;
    if (target == this)
        return ReAllocNoThrow(p, size);
    // The block is the caller's, so its capacity is read without the lock,
    // and the lock is not held while the target allocates: a pool moving a
    // block here holds its own lock while it calls us.
    const u32 capacity = PackedBlock::Of(p)->capacity;
    void* moved = target->MallocNoThrow(size);
    if (moved == nullptr)
        return nullptr;
    std::memcpy(moved, p, size < capacity ? size : capacity);
    Free(p);
    return moved;
}

AllocatorStatistics PackedAllocator::GetStatistics() const
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (m_Caches != nullptr)
        m_Caches->FlushOwn();
    return m_Statistics;
}

// ---- thread caches ----------------------------------------------------------

void PackedAllocator::EnableThreadCaches()
{
    if (m_Caches == nullptr)
        m_Caches = ThreadCacheHome::Make<PackedAllocator, &PackedAllocator::GiveBack>(this, m_Lock);
}

u32 PackedAllocator::ClassAbove(u32 size)
{
    const u32 doubling = u32(31 - __builtin_clz(size)) - 8;
    const u32 base = SmallestCached << doubling, shift = 5 + doubling;
    return (doubling << 3) + ((size - base + (1u << shift) - 1) >> shift);
}

u32 PackedAllocator::ClassBelow(u32 capacity)
{
    if (capacity < SmallestCached)
        return CacheClasses;
    const u32 doubling = u32(31 - __builtin_clz(capacity)) - 8;
    const u32 index =
        (doubling << 3) + ((capacity - (SmallestCached << doubling)) >> (5 + doubling));
    return index < CacheClasses ? index : u32(CacheClasses);
}

void* PackedAllocator::Refill(ThreadCache& cache, u32 index)
{
    const u32 need = ClassCapacity(index) + BlockHeaderSize;
    ScopedLock<CriticalSection> lock(m_Lock);
    void* first = MallocLocked(need);
    for (u32 i = CacheLimit(index) / 2; first != nullptr && i > 1; --i)
    {
        void* p = MallocLocked(need);
        if (p == nullptr)
            break;
        PackedBlock::Of(p)->marker = CachedMarker;
        cache.Push(index, p);
    }
    return first;
}

void PackedAllocator::GiveBack(const void* p)
{
    PackedBlock::Of(p)->marker = BlockMarker;
    FreeLocked(p);
}

} // namespace qel
