// The packed allocator's statistics dumps and its checks.
#include <qel/debuggerstream.h>
#include <qel/outputstream.h>
#include <qel/packedallocator.h>
#include <qel/pagemanager.h>
#include <qel/report.h>

#include "base/memory/dumpwriter.h"
#include "base/memory/packedrun.h"
#include "base/memory/threadcache.h"

#include <cinttypes>
#include <cstdint>

namespace qel
{

namespace
{

using memory::Address;

const unsigned char kTag = MemChunkTree::PackedAllocatorTag;

// Calls visit(block) for the run's blocks in address order: they fill the
// gaps between the free chunks. False when they do not tile the gaps (a
// damaged marker or capacity); the walk stops there.
template <class Visit>
bool ForEachBlock(PackedRun* run, Visit visit)
{
    struct Walk
    {
        Visit* visit;
        unsigned char* cursor;
        bool ok;

        void Gap(unsigned char* end)
        {
            while (ok && cursor < end)
            {
                const PackedBlock* block = reinterpret_cast<const PackedBlock*>(cursor);
                // Threads flip the markers of their cached blocks without the lock.
                const bool room = std::uintptr_t(end - cursor) >= PackedAllocator::MinimumChunk;
                const u32 marker = room ? __atomic_load_n(&block->marker, __ATOMIC_RELAXED) : 0;
                ok = room &&
                     (marker == PackedAllocator::BlockMarker ||
                      marker == PackedAllocator::CachedMarker) &&
                     u64(block->capacity) + PackedAllocator::BlockHeaderSize <= u64(end - cursor);
                if (ok)
                {
                    (*visit)(const_cast<PackedBlock*>(block));
                    cursor += block->Chunk();
                }
            }
        }
    } walk = {&visit, run->Space(), true};
    run->tree.ForEachChunk(
        [](void* start, u32 count, void* context)
        {
            Walk& w = *static_cast<Walk*>(context);
            unsigned char* chunk = static_cast<unsigned char*>(start);
            if (chunk < w.cursor)
                w.ok = false;
            w.Gap(chunk);
            w.cursor = chunk + count;
        },
        &walk);
    walk.Gap(run->End());
    return walk.ok && walk.cursor == run->End();
}

void PrintChunk(void* start, u32 count, void* context)
{
    memory::Print(*static_cast<OutputStream*>(context), "0x%08" PRIXPTR "\t%16u\r\n",
                  Address(start), unsigned(count));
}

} // namespace

void PackedAllocator::DumpRuns(OutputStream& out, bool blocks)
{
    auto dump = [&out, blocks](PackedRun* run)
    {
        const unsigned pages = unsigned(run->pages), bytes = unsigned(run->pages * PageSize);
        if (!blocks)
        {
            memory::Print(out,
                          "\r\nFreelist PackedAllocatorPage: 0x%08" PRIXPTR
                          " PageCount: %u PageSize: %u\r\n%-12s\t%12s\r\n",
                          Address(run), pages, bytes, "Address", "Size");
            run->tree.ForEachChunk(&PrintChunk, &out);
            memory::Print(out, "Number of nodes: %u\r\n", unsigned(run->tree.GetNumberOfChunks()));
            return;
        }
        unsigned count = 0;
        if (!ForEachBlock(run, [&count](PackedBlock*) { ++count; }))
            return; // a damaged run is left out
        memory::Print(out,
                      "\r\nPackedAllocatorPage: 0x%08" PRIXPTR
                      " PageCount: %u PageSize: %u\r\n%-12s\t%12s\r\n",
                      Address(run), pages, bytes, "Address", "Used size");
        ForEachBlock(run,
                     [&out](PackedBlock* block)
                     {
                         memory::Print(out, "0x%08" PRIXPTR "\t%16u\r\n", Address(block->User()),
                                       unsigned(block->capacity));
                     });
        memory::Print(out, "Number of allocations: %u\tLargest free chunk: %u\r\n", count,
                      unsigned(run->largest));
    };
    for (u32 i = 0; i < m_ArenaCount.load(std::memory_order_acquire); ++i)
    {
        packedrun::ForEach(m_Arenas[i]->room, dump);
        packedrun::ForEach(m_Arenas[i]->setAside, dump);
    }
}

void PackedAllocator::DumpStatistics(u32 flags, AllocatorStatMarker*, AllocatorStatMarker*,
                                     OutputStream* stream, char* title)
{
    // No history is kept: the markers bound nothing.
    u32 held = 0;
    if (m_Caches != nullptr)
    {
        m_Caches->FlushOwn();
        held = m_Caches->HeldByOtherThreads();
    }
    AllArenas locked(*this);
    const AllocatorStatistics totals = Totals();
    OutputStream& out = stream ? *stream : DebuggerStream::GetDefaultInstance();
    if (title)
        memory::WriteText(out, title);
    if (flags & DumpUsage)
    {
        memory::Print(out,
                      "\r\nDumping memory usage statistics for PackedAllocator 0x%08" PRIXPTR
                      "\tOverhead per alloc: %u\r\n",
                      Address(this), unsigned(BlockHeaderSize));
        AllocatorStatistics::DumpHeader(out, "Allocator");
        totals.DumpRow(out, m_Name);
        if (held != 0)
            memory::Print(out, "Blocks held in other threads' caches: %u\r\n", unsigned(held));
        memory::Print(out, "\r\n");
    }
    if (flags & DumpTags)
        memory::Print(out,
                      "\r\nDumping tags statistics for PackedAllocator 0x%08" PRIXPTR
                      "\tOverhead per alloc: %u\r\n",
                      Address(this), unsigned(BlockHeaderSize));
    u32 runs = 0;
    locked.ForEach([&runs](Arena& arena) { runs += arena.room.count + arena.setAside.count; });
    if ((flags & DumpPages) && runs != 0)
    {
        memory::Print(out, "\r\nDumping page statistics for PackedAllocator 0x%08" PRIXPTR "\r\n",
                      Address(this));
        DumpRuns(out, true);
        memory::Print(out, "\r\nEnd of page statistics for PackedAllocator 0x%08" PRIXPTR "\r\n",
                      Address(this));
    }
    if (flags & DumpFreeLists)
        DumpRuns(out, false);
    out.Flush();
}

// ---- checks -----------------------------------------------------------------

bool PackedAllocator::CheckRun(const Arena& arena, PackedRun* run, AllocatorStatistics& sums)
{
    const char* damage = nullptr;
    u32 blocks = 0, used = 0;
    const bool big = run->pages >= BigRunPages && run->live != 0;
    const bool setAside = big || run->largest <= m_FullThreshold;
    if (!run->GuardsHold())
        damage = "guards";
    else if (m_Pages->FindRunStart(run, m_OwnerIndex) != run)
        damage = "page records";
    else if (run->arena != arena.index)
        damage = "arena";
    else if (!run->tree.Validate(kTag))
        damage = "free chunk tree";
    else if (run->largest != run->tree.GetLargestChunk())
        damage = "cached largest free chunk";
    else if (run->set != (setAside ? PackedRun::SetAside : PackedRun::Room))
        damage = "set";
    else if (!ForEachBlock(run,
                           [&](PackedBlock* block)
                           {
                               ++blocks;
                               used += block->capacity;
                           }))
        damage = "block headers";
    else if (blocks != run->live || blocks == 0)
        damage = "live block count";
    if (damage)
    {
        QEL_WARNING(m_ErrorCategory,
                    "PackedAllocator::ValidateMemory(): damaged %s in run 0x%08" PRIXPTR
                    "! Allocator: 0x%08" PRIXPTR "\n",
                    damage, Address(run), Address(this));
        return false;
    }
    sums.currentAllocations += blocks;
    sums.currentUsedSize += used;
    sums.currentPages += run->pages;
    if (setAside)
        sums.currentFullPages += run->pages;
    return true;
}

bool PackedAllocator::ValidateMemory()
{
    if (m_Caches != nullptr)
        m_Caches->FlushOwn();
    AllArenas locked(*this);
    bool ok = true;
    locked.ForEach(
        [this, &ok](Arena& arena)
        {
            AllocatorStatistics sums = {};
            auto check = [this, &ok, &sums, &arena](PackedRun* run)
            { ok = ok && CheckRun(arena, run, sums); };
            packedrun::ForEach(arena.room, check);
            packedrun::ForEach(arena.setAside, check);
            const AllocatorStatistics& kept = arena.statistics;
            if (ok && (sums.currentAllocations != kept.currentAllocations ||
                       sums.currentUsedSize != kept.currentUsedSize ||
                       sums.currentUsedSize != kept.currentRequestedSize ||
                       sums.currentPages != kept.currentPages ||
                       sums.currentFullPages != kept.currentFullPages))
            {
                QEL_WARNING(m_ErrorCategory,
                            "PackedAllocator::ValidateMemory(): the statistics do not match the "
                            "runs! Allocator: 0x%08" PRIXPTR "\n",
                            Address(this));
                ok = false;
            }
        });
    return ok;
}

bool PackedAllocator::IsValidPointer(const void* p)
{
    if (p == nullptr)
        return false;
    Arena& arena = ArenaOf(p);
    ScopedLock<CriticalSection> lock(arena.lock);
    PackedRun* run = static_cast<PackedRun*>(m_Pages->FindRunStart(p, m_OwnerIndex));
    const unsigned char* user = static_cast<const unsigned char*>(p);
    if (run == nullptr || !run->GuardsHold() || user < run->Space() + BlockHeaderSize ||
        user >= run->End())
        return false;
    const PackedBlock* block = PackedBlock::Of(p);
    return block->marker == BlockMarker && u64(block->capacity) <= u64(run->End() - user) &&
           !run->tree.FindChunk(block, nullptr, nullptr);
}

} // namespace qel
