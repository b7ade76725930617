#include <qel/packedallocator.h>

#include <qel/errormanager.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>
#include <qel/report.h>

#include "base/memory/allocatorfactories.h"
#include "base/memory/dumpwriter.h"
#include "base/memory/packedallocatorfast.h"
#include "base/memory/packedrun.h"
#include "base/memory/threadcache.h"

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <thread>

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
    : m_Pages(&PageManager::GetSingletonInstance()), m_OwnerIndex(0),
      m_FullThreshold(fullThreshold), m_Arenas(), m_Separation(), m_First()
{
    packedrun::Reset(m_First.room);
    packedrun::Reset(m_First.setAside);
    m_Arenas[0] = &m_First;
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
    for (u32 i = 1; i < m_ArenaCount.load(std::memory_order_acquire); ++i)
    {
        m_Arenas[i]->~Arena();
        threadcache::FreeLines(m_Arenas[i]);
    }
    m_Pages->RemoveOwner(this);
    ErrorManager::GetSingletonInstance().UnRegisterCategory(m_ErrorCategory);
}

// ---- runs and their sets ----------------------------------------------------

PackedRun* PackedAllocator::NewRun(Arena& arena, u32 pages, Place place)
{
    // The arena's spare serves big runs and runs to grow first; any other
    // run takes it, cut to size, rather than a new metapage.
    const bool toGrow = place == Place::Grow;
    void* start = nullptr;
    if (place == Place::Spare || pages >= BigRunPages || toGrow)
        start = TakeSpare(arena, pages, toGrow);
    if (place != Place::Spare)
    {
        if (start == nullptr && arena.spare.load(std::memory_order_relaxed) != nullptr &&
            (start = m_Pages->AllocatePages(this, pages, toGrow, false)) == nullptr)
            start = TakeSpare(arena, pages, false);
        if (start == nullptr)
            start = m_Pages->AllocatePages(this, pages, toGrow);
    }
    if (start == nullptr)
        return nullptr;
    PackedRun* run = new (start) PackedRun(pages, arena.index);
    const bool inserted = run->tree.InsertChunkInTree(run->Space(), run->SpaceSize(), kTag);
    QEL_ASSERT(m_ErrorCategory, inserted);
    if (!inserted)
    {
        m_Pages->ReleasePages(this, start, pages);
        return nullptr;
    }
    run->largest = run->SpaceSize();
    arena.statistics.AddPages(pages);
    return run;
}

void PackedAllocator::ReleaseRun(PackedRun* run)
{
    Unfile(run);
    ArenaOf(run).statistics.RemovePages(run->pages);
    m_Pages->ReleasePages(this, run, run->pages);
}

void PackedAllocator::RunEmptied(Arena& arena, PackedRun* run)
{
    if (m_Caches == nullptr || run->pages < BigRunPages || run->pages > SpareRunPages)
        return ReleaseRun(run);
    Unfile(run);
    arena.statistics.RemovePages(run->pages);
    ReleaseSpare(arena);
    arena.spare.store(run, std::memory_order_relaxed);
}

void PackedAllocator::ReleaseSpare(Arena& arena)
{
    if (PackedRun* spare = arena.spare.exchange(nullptr, std::memory_order_relaxed))
        m_Pages->ReleasePages(this, spare, spare->pages);
}

void PackedAllocator::ReleaseKeptRuns()
{
    AllArenas locked(*this);
    locked.ForEach([this](Arena& arena) { ReleaseSpare(arena); });
}

void* PackedAllocator::TakeSpare(Arena& arena, u32& pages, bool toGrow)
{
    PackedRun* spare = arena.spare.load(std::memory_order_relaxed);
    if (spare == nullptr || (toGrow && spare->pages / SpareRoom > pages))
        return nullptr;
    // A kept run too small for the request goes back: its pages may then
    // join the stretch that the request takes.
    const u32 had = spare->pages;
    if (had < pages && !m_Pages->ExtendRun(this, spare, had, pages - had))
    {
        ReleaseSpare(arena);
        return nullptr;
    }
    if (had > pages && toGrow)
        pages = had;
    else if (had > pages)
        m_Pages->ReleasePages(this, spare->Base() + std::uintptr_t(pages) * PageSize, had - pages);
    arena.spare.store(nullptr, std::memory_order_relaxed);
    return spare;
}

void PackedAllocator::Unfile(PackedRun* run)
{
    Arena& arena = ArenaOf(run);
    if (run->set == PackedRun::Room)
    {
        packedrun::Remove(arena.room, run);
    }
    else if (run->set == PackedRun::SetAside)
    {
        packedrun::Remove(arena.setAside, run);
        arena.statistics.RemoveFullPages(run->pages);
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
    Arena& arena = ArenaOf(run);
    if (setAside)
    {
        packedrun::Insert(arena.setAside, run, PackedRun::SetAside, bin);
        arena.statistics.AddFullPages(run->pages);
    }
    else
    {
        packedrun::Insert(arena.room, run, PackedRun::Room, bin);
    }
}

PackedRun* PackedAllocator::LiveBlockRun(const void* p) const
{
    PackedRun* run = static_cast<PackedRun*>(m_Pages->FindRunStart(p, m_OwnerIndex));
    const unsigned char* user = static_cast<const unsigned char*>(p);
    if (run == nullptr || !run->GuardsHold() || user < run->Space() + BlockHeaderSize)
        return nullptr;
    // Without the lock: another block's reallocation may grow the run meanwhile.
    const u32 pages = __atomic_load_n(&run->pages, __ATOMIC_RELAXED);
    if (user >= run->Base() + std::uintptr_t(pages) * PageSize ||
        PackedBlock::Of(p)->marker != BlockMarker)
        return nullptr;
    return run;
}

PackedAllocator::Arena& PackedAllocator::ArenaOf(const PackedRun* run) const
{
    return *m_Arenas[run->arena];
}

PackedAllocator::Arena& PackedAllocator::ArenaOf(const void* p) const
{
    const PackedRun* run = static_cast<const PackedRun*>(m_Pages->FindRunStart(p, m_OwnerIndex));
    const u32 count = m_ArenaCount.load(std::memory_order_acquire);
    return run != nullptr && run->GuardsHold() && run->arena < count ? ArenaOf(run) : *m_Arenas[0];
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

// ---- arenas -----------------------------------------------------------------

PackedAllocator::Arena& PackedAllocator::ThreadArena()
{
    if (m_Caches != nullptr)
        if (ThreadCache* cache = m_Caches->Cache())
            return ArenaOf(*cache);
    return m_First;
}

PackedAllocator::Arena& PackedAllocator::ArenaOf(ThreadCache& cache)
{
    if (cache.owner == 0)
    {
        // A new thread: the next arena in turn, made when it is first given.
        u32 index = m_NextArena.fetch_add(1, std::memory_order_relaxed) % m_ArenaLimit;
        ScopedLock<CriticalSection> lock(m_HomeLock);
        for (u32 count = m_ArenaCount.load(std::memory_order_relaxed); count <= index; ++count)
        {
            void* storage = threadcache::AllocateLines(sizeof(Arena));
            if (storage == nullptr)
            {
                index = 0;
                break;
            }
            Arena* arena = new (storage) Arena();
            arena->index = count;
            packedrun::Reset(arena->room);
            packedrun::Reset(arena->setAside);
            m_Arenas[count] = arena;
            m_ArenaCount.store(count + 1, std::memory_order_release);
        }
        cache.owner = index + 1;
    }
    return *m_Arenas[cache.owner - 1];
}

AllocatorStatistics PackedAllocator::Totals() const
{
    AllocatorStatistics totals = {};
    for (u32 i = 0; i < m_ArenaCount.load(std::memory_order_acquire); ++i)
    {
        const AllocatorStatistics& s = m_Arenas[i]->statistics;
        totals.peakFullPages += s.peakFullPages;
        totals.peakPages += s.peakPages;
        totals.peakAllocations += s.peakAllocations;
        totals.peakRequestedSize += s.peakRequestedSize;
        totals.peakUsedSize += s.peakUsedSize;
        totals.currentFullPages += s.currentFullPages;
        totals.currentPages += s.currentPages;
        totals.currentAllocations += s.currentAllocations;
        totals.currentRequestedSize += s.currentRequestedSize;
        totals.currentUsedSize += s.currentUsedSize;
    }
    return totals;
}

// ---- allocation -------------------------------------------------------------

void* PackedAllocator::MallocNoThrow(unsigned int size)
{
    if (m_Caches != nullptr && size - SmallestCached <= LargestCached - SmallestCached)
        return MallocFast(size);
    const u32 need = NeedFor(size);
    if (size == 0 || need == 0)
        return nullptr;
    Arena& arena = ThreadArena();
    ScopedLock<CriticalSection> lock(arena.lock);
    return MallocLocked(arena, need);
}

void* PackedAllocator::MallocLocked(Arena& arena, u32 need, Place place)
{
    PackedRun* run = place == Place::Spare ? nullptr : packedrun::FirstAtLeast(arena.room, need);
    if (run == nullptr && (run = NewRun(arena, RunPagesFor(need), place)) == nullptr)
        return nullptr;
    // The run's largest free chunk holds `need`: GetChunk cannot fail.
    u32 chunk = need;
    PackedBlock* block = static_cast<PackedBlock*>(run->tree.GetChunk(chunk, kTag));
    block->marker = BlockMarker;
    block->capacity = chunk - BlockHeaderSize;
    ++run->live;
    arena.statistics.AddAllocation(block->capacity, block->capacity);
    Refile(run);
    return block->User();
}

void PackedAllocator::Free(const void* p)
{
    if (p == nullptr)
        return;
    if (m_Caches != nullptr)
    {
        const std::atomic<u32>* record = m_Pages->GetRecords().Find(p);
        const u32 value = record ? record->load(std::memory_order_relaxed) : 0;
        if (record != nullptr && PageRecordTable::OwnerOf(value) == m_OwnerIndex &&
            m_OwnerIndex != PageRecordTable::NoOwner)
            return FreeFast(p, value);
    }
    FreeSlow(p);
}

void* PackedAllocator::MallocMiss(unsigned int size)
{
    if (m_Caches != nullptr)
        if (ThreadCache* cache = m_Caches->Cache())
        {
            const u32 index = ClassAbove(size);
            void* p = cache->Pop(index);
            // A block of the class freed a moment ago, still waiting to be
            // sorted, comes before a refill: a block freed and asked for
            // again at once is the same block, as without the wait.
            if (p == nullptr)
                p = cache->TakePendingFor(
                    [index](void* q)
                    {
                        const PackedBlock* block = PackedBlock::Of(q);
                        return block->marker == BlockMarker && ClassBelow(block->capacity) == index;
                    });
            if (p == nullptr)
                return Refill(*cache, index);
            __atomic_store_n(&PackedBlock::Of(p)->marker, BlockMarker, __ATOMIC_RELAXED);
            return p;
        }
    Arena& arena = ThreadArena();
    ScopedLock<CriticalSection> lock(arena.lock);
    return MallocLocked(arena, NeedFor(size));
}

void PackedAllocator::FreeMiss(const void* p, u32 record)
{
    if (m_Caches != nullptr && HeaderOnPage(p, record))
        if (ThreadCache* cache = m_Caches->Cache())
            return FreeCached(*cache, p, record);
    FreeSlow(p);
}

void PackedAllocator::FreeSlow(const void* p)
{
    Arena& arena = ArenaOf(p);
    ScopedLock<CriticalSection> lock(arena.lock);
    FreeLocked(arena, p);
}

void PackedAllocator::FreeLocked(Arena& arena, const void* p)
{
    PackedRun* run = RunOf(p, "Free");
    if (run == nullptr)
        return;
    PackedBlock* block = PackedBlock::Of(p);
    const u32 capacity = block->capacity;
    // The tree refuses a chunk that overlaps a free one: a double free.
    if (run->arena != arena.index ||
        u64(capacity) + BlockHeaderSize >
            u64(run->End() - reinterpret_cast<unsigned char*>(block)) ||
        !run->tree.InsertChunkInTree(block, capacity + BlockHeaderSize, kTag))
    {
        ReportBadBlock("Free", p);
        return;
    }
    arena.statistics.RemoveAllocation(capacity, capacity);
    if (--run->live == 0)
        RunEmptied(arena, run);
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
    if (const std::atomic<u32>* record = m_Pages->GetRecords().Find(p))
    {
        const u32 value = record->load(std::memory_order_relaxed);
        if (PageRecordTable::OwnerOf(value) == m_OwnerIndex && StaysInPlace(p, size, value))
            return p;
    }
    u32 capacity = 0;
    const Resize resized = ResizeInPlace(p, size, true, capacity);
    if (resized == Resize::Done)
        return p;
    if (resized == Resize::Bad)
        return nullptr;
    if (resized == Resize::StuckBig)
        if (void* moved = MoveRunToGrow(p, size))
            return moved;
    if (resized == Resize::Lone)
    {
        // A big run holds its block alone: when a smaller run would do, the
        // block moves and the run's pages go back.
        if (void* moved = MallocNoThrow(size))
        {
            std::memcpy(moved, p, size);
            Free(p);
            return moved;
        }
        return ResizeInPlace(p, size, false, capacity) == Resize::Done ? p : nullptr;
    }
    // A block of 1 KB or more that must move to grow takes a quarter more
    // room, one of 16 KB or more twice its size: the next growths are then
    // in place. A buffer grown in small steps past a few pages in memory
    // whose free stretches are short would otherwise move, and be copied
    // whole, every quarter of its size; the room it does not use yet is
    // mostly pages it has not touched. Where the thread's cache
    // serves the new size, the block comes from there, without a lock: it
    // is the block of that class the thread freed last, whose memory the
    // processor's caches likely still hold for the copy, where the best
    // fitting free chunk is often memory untouched for long. Otherwise it
    // takes the best fitting free chunk. A block that needs a big run of its
    // own takes one where it can grow the longest (the arena's spare first):
    // copying it again would cost more than the stretch of free pages it
    // breaks. Blocks that large seldom move. With caches on, a block of a
    // page or more takes the arena's spare, when it has one, before the
    // thread's cache: cut to the block's run, with the spare's other pages
    // free right behind it, it grows in place from there on.
    const unsigned int roomy = size >= 16384 && size <= 0x7FFF0000u  ? size * 2
                               : size >= 1024 && size <= 0xCCCC0000u ? size + size / 4
                                                                     : size;
    const Place place = need > MaxRoomKey ? Place::Grow : Place::Fit;
    void* moved = nullptr;
    if (m_Caches != nullptr && roomy - SmallestCached <= LargestCached - SmallestCached)
    {
        if (size >= PageSize)
        {
            Arena& arena = ThreadArena();
            if (arena.spare.load(std::memory_order_relaxed) != nullptr)
            {
                ScopedLock<CriticalSection> lock(arena.lock);
                moved = MallocLocked(arena, NeedFor(roomy), Place::Spare);
            }
        }
        if (moved == nullptr)
            moved = MallocFast(roomy);
        if (moved == nullptr && roomy != size)
            moved = MallocFast(size);
    }
    else
    {
        Arena& arena = ThreadArena();
        ScopedLock<CriticalSection> lock(arena.lock);
        if (const u32 roomyNeed = NeedFor(roomy))
            moved = MallocLocked(arena, roomyNeed, place);
        if (moved == nullptr && roomy != size)
            moved = MallocLocked(arena, need, place);
    }
    if (moved == nullptr)
        return nullptr;
    std::memcpy(moved, p, capacity);
    Free(p);
    return moved;
}

PackedAllocator::Resize PackedAllocator::ResizeInPlace(void* p, unsigned int size, bool lone,
                                                       u32& capacity)
{
    const u32 need = NeedFor(size);
    PackedRun* run = RunOf(p, "ReAllocNoThrow");
    if (run == nullptr)
        return Resize::Bad;
    Arena& arena = ArenaOf(run);
    ScopedLock<CriticalSection> lock(arena.lock);
    PackedBlock* block = PackedBlock::Of(p);
    unsigned char* start = reinterpret_cast<unsigned char*>(block);
    const u32 chunk = block->Chunk();
    capacity = block->capacity;
    u32 resized;

    if (size <= capacity)
    {
        if (Stays(need, chunk))
            return Resize::Done;
        if (lone && run->pages >= BigRunPages && RunPagesFor(need) < run->pages)
            return Resize::Lone;
        // The tail is part of a live block: the tree cannot hold any of it.
        const bool inserted = run->tree.InsertChunkInTree(start + need, chunk - need, kTag);
        QEL_ASSERT(m_ErrorCategory, inserted);
        if (!inserted)
            return Resize::Done;
        resized = need;
    }
    else
    {
        // A block that grows tends to grow again: one of 1 KB or more takes
        // a quarter of its size more than it needs, one of 16 KB or more
        // three quarters (not all of it, so that it shrinks in place only
        // below about seven eighths of the size that made it grow: sizes
        // that go to and fro do not move its tail each time). That room,
        // else what it needs, comes from the free chunk behind the block;
        // failing that, from pages added behind the run.
        const u64 more = chunk >= 16384 ? chunk / 4 * 3 : chunk >= 1024 ? chunk / 4 : 0;
        const u32 wants[2] = {u32(std::min<u64>((need + more + 15) & ~u64(15), MaxNeed)) - chunk,
                              need - chunk};
        auto behind = [&](u32 wanted)
        {
            u32 taken = wanted;
            return run->tree.GetChunkAt(start + chunk, taken, kTag) != nullptr ? taken : 0;
        };
        u32 extra = 0;
        for (u32 wanted : wants)
            if (extra == 0)
                extra = behind(wanted);
        for (u32 wanted : wants)
            if (extra == 0 && GrowRun(run, start + chunk, wanted))
                extra = behind(wanted);
        if (extra == 0)
        {
            Refile(run);
            return run->pages >= BigRunPages ? Resize::StuckBig : Resize::Stuck;
        }
        resized = chunk + extra;
    }
    block->capacity = resized - BlockHeaderSize;
    arena.statistics.RemoveAllocation(capacity, capacity);
    arena.statistics.AddAllocation(block->capacity, block->capacity);
    Refile(run);
    return Resize::Done;
}

void* PackedAllocator::MoveRunToGrow(void* p, unsigned int size)
{
    PackedRun* run = RunOf(p, "ReAllocNoThrow");
    if (run == nullptr)
        return nullptr;
    Arena& arena = ArenaOf(run);
    ScopedLock<CriticalSection> lock(arena.lock);
    if (run->live != 1)
        return nullptr;
    PackedBlock* block = PackedBlock::Of(p);
    const std::uintptr_t offset = reinterpret_cast<unsigned char*>(block) - run->Base();
    // A quarter more room, as for any move, costs nothing until it is used.
    const u32 chunk = NeedFor(size <= 0xCCCC0000u ? size + size / 4 : size);
    const u64 pages = (offset + chunk + PageSize - 1) / PageSize;
    if (chunk == 0 || pages > MaxRunPages || pages <= run->pages)
        return nullptr;
    const u32 oldPages = run->pages;
    Unfile(run);
    void* moved = m_Pages->MoveRun(this, run, oldPages, u32(pages));
    if (moved == nullptr)
    {
        Refile(run);
        return nullptr;
    }
    // The free chunks' nodes hold addresses of the old place: the tree is
    // made again around the block.
    run = static_cast<PackedRun*>(moved);
    run->pages = u32(pages);
    block = reinterpret_cast<PackedBlock*>(run->Base() + offset);
    const u32 capacity = block->capacity;
    run->tree.Reset();
    unsigned char* start = reinterpret_cast<unsigned char*>(block);
    if (start > run->Space())
        run->tree.InsertChunkInTree(run->Space(), u32(start - run->Space()), kTag);
    const u32 tail = u32(run->End() - start) - chunk;
    block->capacity = chunk - BlockHeaderSize;
    if (tail < MinimumChunk)
        block->capacity += tail;
    else
        run->tree.InsertChunkInTree(start + chunk, tail, kTag);
    arena.statistics.AddPages(u32(pages) - oldPages);
    arena.statistics.RemoveAllocation(capacity, capacity);
    arena.statistics.AddAllocation(block->capacity, block->capacity);
    Refile(run);
    return block->User();
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
    __atomic_store_n(&run->pages, run->pages + extra, __ATOMIC_RELAXED);
    ArenaOf(run).statistics.AddPages(extra);
    const bool inserted = run->tree.InsertChunkInTree(oldEnd, extra * PageSize, kTag);
    QEL_ASSERT(m_ErrorCategory, inserted);
    return inserted;
}

void PackedAllocator::FreeAll()
{
    AllArenas locked(*this);
    if (m_Caches != nullptr)
        m_Caches->VoidAll();
    auto release = [this](PackedRun* run) { m_Pages->ReleasePages(this, run, run->pages); };
    locked.ForEach(
        [this, &release](Arena& arena)
        {
            packedrun::ForEach(arena.room, release);
            packedrun::ForEach(arena.setAside, release);
            packedrun::Reset(arena.room);
            packedrun::Reset(arena.setAside);
            ReleaseSpare(arena);
            arena.statistics.ClearCurrent();
        });
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
    // The block is the caller's, so its capacity is read without a lock,
    // and none is held while the target allocates.
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
    if (m_Caches != nullptr)
        m_Caches->FlushOwn();
    AllArenas locked(*this);
    return Totals();
}

// ---- thread caches ----------------------------------------------------------

void PackedAllocator::EnableThreadCaches()
{
    if (m_Caches != nullptr)
        return;
    const unsigned processors = std::thread::hardware_concurrency();
    m_ArenaLimit = processors == 0 || processors > MaxArenas ? u32(MaxArenas) : u32(processors);
    m_Caches = ThreadCacheHome::Make<PackedAllocator, &PackedAllocator::GiveBack>(this, m_HomeLock,
                                                                                  m_CacheLookup);
    if (m_Caches != nullptr)
        m_Caches->SetClasses(
            CacheClasses, CacheBudget, &ClassCapacity,
            [](u32 i) { return 2048 / ClassCapacity(i); },
            [](u32 i) { return 131072 / ClassCapacity(i) > 4 ? 131072 / ClassCapacity(i) : 4; });
}

u32 PackedAllocator::CacheRunPages(u32 need)
{
    // The fewest pages that leave the least unused, as a share of the run.
    const u32 fewest = RunPagesFor(need);
    const u32 most = fewest > 16 ? BigRunPages - 1 : 16;
    u32 best = fewest;
    u64 bestWaste = ~u64(0);
    for (u32 pages = fewest; pages <= most; ++pages)
    {
        const u32 space = pages * PageSize - RunHeaderSize;
        // waste / pages, compared without a division
        const u64 waste = u64(space % need) * most;
        if (waste * best < bestWaste * pages)
        {
            best = pages;
            bestWaste = waste;
        }
    }
    return best;
}

unsigned char* PackedAllocator::CarveLocked(Arena& arena, u32 need, u32& blocks)
{
    PackedRun* run = packedrun::FirstAtLeast(arena.room, need * blocks);
    if (run == nullptr)
        run = packedrun::FirstAtLeast(arena.room, need);
    if (run == nullptr && (run = NewRun(arena, CacheRunPages(need))) == nullptr)
        return nullptr;
    const u32 fit = run->tree.GetLargestChunk() / need;
    if (blocks > fit)
        blocks = fit;
    u32 chunk = need * blocks;
    unsigned char* start = static_cast<unsigned char*>(run->tree.GetChunk(chunk, kTag));
    // A remainder too small to stay free goes to the last block.
    for (u32 i = 0; i < blocks; ++i)
    {
        PackedBlock* block = reinterpret_cast<PackedBlock*>(start + i * need);
        block->marker = CachedMarker;
        block->capacity = need - BlockHeaderSize;
    }
    reinterpret_cast<PackedBlock*>(start + (blocks - 1) * need)->capacity += chunk - need * blocks;
    run->live += blocks;
    arena.statistics.AddAllocations(blocks, chunk - blocks * BlockHeaderSize);
    Refile(run);
    return start;
}

void* PackedAllocator::Refill(ThreadCache& cache, u32 index)
{
    // Done before the arena's lock: it may give other lists back.
    u32 count = m_Caches->Refilling(cache, index);
    const u32 need = ClassCapacity(index) + BlockHeaderSize;
    // Blocks of a page or more are carved one at a time: a batch would
    // first-touch a page for each block that waits in the list, and the
    // lock costs little beside a block that size.
    if (need > PageSize)
        count = 1;
    Arena& arena = ArenaOf(cache);
    ScopedLock<CriticalSection> lock(arena.lock);
    void* first = nullptr;
    while (count != 0)
    {
        u32 blocks = count;
        unsigned char* start = CarveLocked(arena, need, blocks);
        if (start == nullptr)
            break;
        count -= blocks;
        for (u32 i = 0; i < blocks; ++i)
        {
            PackedBlock* block = reinterpret_cast<PackedBlock*>(start + i * need);
            if (first == nullptr)
            {
                block->marker = BlockMarker;
                first = block->User();
            }
            else
            {
                cache.Push(index, block->User());
            }
        }
    }
    return first;
}

void PackedAllocator::GiveBack(void* chain, bool sorted)
{
    if (!sorted)
    {
        while (chain != nullptr)
        {
            void* p = chain;
            chain = *static_cast<void**>(p);
            FreeSlow(p);
        }
        return;
    }
    // Blocks go back to their runs' arenas, each arena's lock taken once for
    // a sequence of its blocks. A cached block was checked when it was
    // cached: its run is found without checking it again.
    Arena* held = nullptr;
    while (chain != nullptr)
    {
        void* p = chain;
        chain = *static_cast<void**>(p);
        PackedRun* run = static_cast<PackedRun*>(m_Pages->FindRunStart(p, m_OwnerIndex));
        Arena& arena = ArenaOf(run);
        if (&arena != held)
        {
            if (held != nullptr)
                held->lock.Leave();
            arena.lock.Enter();
            held = &arena;
        }
        PackedBlock* block = PackedBlock::Of(p);
        block->marker = BlockMarker;
        const u32 capacity = block->capacity;
        const bool inserted = run->tree.InsertChunkInTree(block, capacity + BlockHeaderSize, kTag);
        QEL_ASSERT(m_ErrorCategory, inserted);
        arena.statistics.RemoveAllocation(capacity, capacity);
        if (--run->live == 0)
            RunEmptied(arena, run);
        else
            Refile(run);
    }
    if (held != nullptr)
        held->lock.Leave();
}

} // namespace qel
