#include <qel/hybridallocator.h>

#include <qel/mem.h>
#include <qel/pagemanager.h>
#include <qel/report.h>

#include "base/memory/allocatorfactories.h"
#include "base/memory/packedallocatorfast.h"
#include "base/memory/poolallocatorfast.h"

#include <typeinfo>

namespace qel
{

Allocator* memory::NewHybridAllocator(Allocator* small, bool ownsSmall, Allocator* big,
                                      bool ownsBig)
{
    if (small == nullptr || big == nullptr)
        return nullptr;
    return new HybridAllocator(small, ownsSmall, big, ownsBig);
}

HybridAllocator::HybridAllocator(Allocator* small, bool ownsSmall, Allocator* big, bool ownsBig)
    : m_Pages(&PageManager::GetSingletonInstance()), m_Pool(nullptr), m_Packed(nullptr),
      m_PoolOwner(PageManager::NoOwner), m_PackedOwner(PageManager::NoOwner)
{
    m_Pages->AddOwner(this);
    m_Entries[0] = Entry{small, small->GetMaxSupportedAllocSize(), ownsSmall};
    m_Entries[1] = Entry{big, big->GetMaxSupportedAllocSize(), ownsBig};
    // Derived classes may change the paths: only the classes themselves
    // are called directly.
    m_PoolOwner = m_Pages->GetOwnerIndex(small);
    m_PackedOwner = m_Pages->GetOwnerIndex(big);
    if (typeid(*small) == typeid(PoolAllocator) && m_PoolOwner != PageManager::NoOwner)
        m_Pool = static_cast<PoolAllocator*>(small);
    if (typeid(*big) == typeid(PackedAllocator) && m_PackedOwner != PageManager::NoOwner)
        m_Packed = static_cast<PackedAllocator*>(big);
}

HybridAllocator::~HybridAllocator()
{
    for (Entry& entry : m_Entries)
        if (entry.owned)
            delete entry.allocator;
    m_Pages->RemoveOwner(this);
}

u32 HybridAllocator::FirstEntryFor(unsigned int size) const
{
    const u64 rounded = (u64(size) + 15) & ~u64(15);
    u32 i = 0;
    while (i < NumberOfEntries && rounded > m_Entries[i].limit)
        ++i;
    return i;
}

Allocator* HybridAllocator::OwnerOf(const void* p) const
{
    Allocator* owner = m_Pages->FindOwner(p);
    return owner ? owner : Allocator::GetOwner(p); // reports the address
}

// ---- allocation -------------------------------------------------------------

namespace
{

// The warnings are out of line and cold, so that the allocation paths save
// no registers for them; each is a site of its own.
#if defined(__GNUC__)
__attribute__((noinline, cold))
#endif
void* NoRoom(bool debug, unsigned int size)
{
    if (debug)
        QEL_WARNING(Mem::GetErrorCategory(),
                    "HybridAllocator::MallocDebugNoThrow(): Unable to find suitable space for "
                    "allocation! Size: %u. Returning NULL.",
                    size);
    else
        QEL_WARNING(Mem::GetErrorCategory(),
                    "HybridAllocator::Malloc(): Unable to find suitable space for allocation! "
                    "Size: %u. Returning NULL.",
                    size);
    return nullptr;
}

} // namespace

inline void* HybridAllocator::MallocCached(unsigned int size)
{
    // The pool's limit is 256: it is the first entry for 1 to 256 bytes.
    if (m_Pool != nullptr && size - 1 < 256)
        return m_Pool->MallocCached(size);
    if (m_Packed != nullptr &&
        size - PackedAllocator::SmallestCached <=
            PackedAllocator::LargestCached - PackedAllocator::SmallestCached &&
        ((u64(size) + 15) & ~u64(15)) > m_Entries[0].limit)
        return m_Packed->MallocCached(size);
    return nullptr;
}

void* HybridAllocator::MallocFromEntries(unsigned int size)
{
    // FirstEntryFor with its loop unrolled: this is every allocation's path.
    const u64 rounded = (u64(size) + 15) & ~u64(15);
    if (rounded <= m_Entries[0].limit)
    {
        if (void* p = m_Pool != nullptr ? (size != 0 ? m_Pool->MallocFast(size) : nullptr)
                                        : m_Entries[0].allocator->MallocNoThrow(size))
            return p;
    }
    else if (rounded > m_Entries[1].limit)
    {
        return nullptr;
    }
    if (m_Packed != nullptr && size - PackedAllocator::SmallestCached <=
                                   PackedAllocator::LargestCached - PackedAllocator::SmallestCached)
        return m_Packed->MallocFast(size);
    return m_Entries[1].allocator->MallocNoThrow(size);
}

// Out of line, so that the cached paths save no registers for it.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
void* HybridAllocator::MallocOrWarn(unsigned int size, bool debug)
{
    if (void* p = MallocFromEntries(size))
        return p;
    return NoRoom(debug, size);
}

void* HybridAllocator::MallocNoThrow(unsigned int size)
{
    if (void* p = MallocCached(size))
        return p;
    return MallocOrWarn(size, false);
}

void* HybridAllocator::MallocDebugNoThrow(unsigned int size, const char*, const char*, u32)
{
    if (void* p = MallocCached(size))
        return p;
    return MallocOrWarn(size, true);
}

void HybridAllocator::Free(const void* p)
{
    if (p == nullptr)
        return;
    if (const std::atomic<u32>* record = m_Pages->GetRecords().Find(p))
    {
        const u32 value = record->load(std::memory_order_relaxed);
        const u32 owner = PageRecordTable::OwnerOf(value);
        if (owner == m_PoolOwner && m_Pool != nullptr)
            return m_Pool->FreeFast(p, value);
        if (owner == m_PackedOwner && m_Packed != nullptr)
            return m_Packed->FreeFast(p, value);
    }
    FreeToOwner(p);
}

// Out of line, so that the cached paths save no registers for it.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
void HybridAllocator::FreeToOwner(const void* p)
{
    if (Allocator* owner = OwnerOf(p))
        owner->Free(p);
}

void* HybridAllocator::ReAllocNoThrow(void* p, unsigned int size)
{
    // A block of the big entry that keeps its place is answered here, the
    // rest out of line: a buffer grown step by step is mostly the first.
    const u64 rounded = (u64(size) + 15) & ~u64(15);
    if (m_Packed != nullptr && p != nullptr && rounded > m_Entries[0].limit &&
        rounded <= m_Entries[1].limit)
        if (const std::atomic<u32>* record = m_Pages->GetRecords().Find(p))
        {
            const u32 value = record->load(std::memory_order_relaxed);
            if (PageRecordTable::OwnerOf(value) == m_PackedOwner &&
                PackedAllocator::StaysInPlace(p, size, value))
                return p;
        }
    return ReAllocFromOwner(p, size);
}

void* HybridAllocator::ReAllocFromOwner(void* p, unsigned int size)
{
    if (p == nullptr)
        return MallocNoThrow(size);
    Allocator* owner = OwnerOf(p);
    if (owner == nullptr)
        return nullptr;
    // The chosen entry first: in place when it owns the block, else moved
    // there; then moved to each entry after it. With no entry fitting, every
    // entry is tried in order.
    u32 next = 0;
    const u32 first = FirstEntryFor(size);
    if (first < NumberOfEntries)
    {
        Allocator* chosen = m_Entries[first].allocator;
        if (void* q = chosen == owner ? owner->ReAllocNoThrow(p, size)
                                      : owner->Transfert(chosen, p, size))
            return q;
        next = first + 1;
    }
    for (; next < NumberOfEntries; ++next)
        if (void* q = owner->Transfert(m_Entries[next].allocator, p, size))
            return q;
    return nullptr;
}

void* HybridAllocator::Transfert(Allocator*, void*, unsigned int)
{
    return nullptr;
}

// ---- the rest, forwarded ----------------------------------------------------

void HybridAllocator::FreeAll()
{
    for (Entry& entry : m_Entries)
        entry.allocator->FreeAll();
}

void HybridAllocator::DumpStatistics(u32 flags, AllocatorStatMarker* from, AllocatorStatMarker* to,
                                     OutputStream* out, char* buffer)
{
    if (flags & DumpNothing)
        return;
    for (Entry& entry : m_Entries)
        entry.allocator->DumpStatistics(flags, from, to, out, buffer);
}

bool HybridAllocator::ValidateMemory()
{
    bool valid = true;
    for (Entry& entry : m_Entries)
        valid = entry.allocator->ValidateMemory() && valid; // both are asked
    return valid;
}

bool HybridAllocator::IsValidPointer(const void* p)
{
    // An address that no allocator owns is reported, as for Free.
    Allocator* owner = OwnerOf(p);
    return owner != nullptr && owner->IsValidPointer(p);
}

unsigned int HybridAllocator::GetMaxSupportedAllocSize() const
{
    return m_Entries[0].limit > m_Entries[1].limit ? m_Entries[0].limit : m_Entries[1].limit;
}

u32 HybridAllocator::GetErrorCategory() const
{
    return Mem::GetErrorCategory();
}

void HybridAllocator::AddContext(const char* name)
{
    for (Entry& entry : m_Entries)
        entry.allocator->AddContext(name);
}

void HybridAllocator::RemoveContext()
{
    for (Entry& entry : m_Entries)
        entry.allocator->RemoveContext();
}

} // namespace qel
