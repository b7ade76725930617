#include <qel/parsedstringpool.h>

#include <qel/allocator.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>
#include <qel/report.h>

#include "base/core/singleton.h"
#include "base/loader/parsedrecord.h"
#include "base/loader/texthash.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>

namespace qel
{

std::atomic<ParsedStringPool*> ParsedStringPool::ms_SingletonInstance{nullptr};

ParsedStringPool* ParsedStringPool::CreateSingletonInstance()
{
    // The general allocator first, so that it outlives the pool at exit.
    Mem::GetGeneralAlloc();
    return Singleton<ParsedStringPool, HeapStorage<ParsedStringPool>>::Create(ms_SingletonInstance,
                                                                              "ParsedStringPool");
}

using namespace pooledtext;

u32 ParsedStringPool::HashTerminated(const char* text, u32& length)
{
    length = u32(std::strlen(text));
    return TextHash::Of<false>(text, length);
}

ParsedStringPool::~ParsedStringPool()
{
    for (u32 i = 0; i < m_Capacity; ++i)
        if (Holds(m_Slots[i]))
            Free(RecordAt(m_Slots[i]));
    if (m_Slots)
        Mem::GetGeneralAlloc()->Free(m_Slots);
    if (m_Adopted)
        Mem::GetGeneralAlloc()->Free(m_Adopted);
}

void ParsedStringPool::Free(Record* record)
{
    // A text the pool was handed goes back to the allocator that owns it,
    // if one does: a literal handed over is left alone.
    if (record->adopted)
    {
        const char* text = record->Text();
        if (Allocator* owner = PageManager::GetSingletonInstance().FindOwner(text))
            owner->Free(text);
    }
    Mem::GetGeneralAlloc()->Free(record);
}

u32 ParsedStringPool::Find(const char* text, u32 length, u32 hash) const
{
    const std::uint8_t tag = TagOf(hash, length);
    u32 reusable = m_Capacity; // none
    for (u32 i = HomeOf(hash, m_Capacity);; i = i + 1 == m_Capacity ? 0 : i + 1)
    {
        const u32 slot = m_Slots[i];
        if (slot == kEmpty)
            return reusable != m_Capacity ? reusable : i;
        if (slot == kRemoved)
        {
            if (reusable == m_Capacity)
                reusable = i;
        }
        else if (m_Tags[i] == tag && HoldsText(RecordAt(slot), text, length))
        {
            return i;
        }
    }
}

ParsedStringPool::Record* ParsedStringPool::RecordAt(u32 slot) const
{
    return IsNear(slot) ? NearRecord<Record>(m_Base, slot) : m_Far[slot - kFirstFar];
}

inline bool ParsedStringPool::Place(Record* record, std::uintptr_t base, FarList& far, u32& slot)
{
    const std::uintptr_t address = std::uintptr_t(record);
    QEL_ASSERT(ErrorManager::BaseCategory, address % kUnit == 0);
    const std::uintptr_t units = (address - base) / kUnit;
    if (address >= base && units - (kRemoved + 1) < kFirstFar - (kRemoved + 1))
    {
        slot = u32(units);
        return true;
    }
    return PlaceFar(record, far, slot);
}

bool ParsedStringPool::PlaceFar(Record* record, FarList& far, u32& slot)
{
    QEL_ASSERT(ErrorManager::BaseCategory, far.size() < u64(0xFFFFFFFFu - kFirstFar));
    try
    {
        far.push_back(record);
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    slot = kFirstFar + u32(far.size() - 1);
    return true;
}

bool ParsedStringPool::Grow()
{
    // The table fills up to three quarters and grows by half (a file of
    // unique names holds nearly as many texts as nodes: a table doubled,
    // as much as five-eighths empty, would cost it a fifth of its size).
    // Removals leave tombstones that count as used: a table whose live
    // texts fill no more than half of it is rebuilt at its size rather
    // than grown, so that a program parsing and releasing files in turn
    // keeps a table of the size its live texts need.
    u32 capacity = m_Capacity ? m_Capacity : 1024;
    if (u64(m_Count + 1) * 2 > capacity)
        capacity += capacity / 2;
    if (!Rebuild(capacity))
        return false;
    if (!m_Placed)
    {
        // Half the window on either side of the first table: the records
        // come from the same pages.
        const u64 half = u64(kFirstFar) * kUnit / 2;
        const u64 address = std::uintptr_t(m_Slots);
        m_Base = address > half ? std::uintptr_t(address - half) / kUnit * kUnit : 0;
        m_Placed = true;
    }
    return true;
}

bool ParsedStringPool::Rebuild(u32 capacity)
{
    const u32 bytes = u32(capacity * (sizeof(u32) + sizeof(std::uint8_t)));
    u32* slots = static_cast<u32*>(Mem::GetGeneralAlloc()->Malloc(bytes));
    if (slots == nullptr)
        return false; // reported by the allocator
    std::memset(slots, 0, bytes);
    std::uint8_t* tags = reinterpret_cast<std::uint8_t*>(slots + capacity);
    // The texts are all different: each goes to the first empty slot of
    // its probe.
    const u32* oldSlots = m_Slots;
    const std::uint8_t* oldTags = m_Tags;
    const u32 oldCapacity = m_Capacity;
    for (u32 i = 0; i < oldCapacity; ++i)
        if (Holds(oldSlots[i]))
        {
            u32 length;
            u32 at = HomeOf(HashTerminated(RecordAt(oldSlots[i])->Text(), length), capacity);
            while (slots[at] != kEmpty)
                at = at + 1 == capacity ? 0 : at + 1;
            slots[at] = oldSlots[i];
            tags[at] = oldTags[i];
        }
    if (m_Slots)
        Mem::GetGeneralAlloc()->Free(m_Slots);
    m_Slots = slots;
    m_Tags = tags;
    m_Capacity = capacity;
    m_Used = m_Count;
    return true;
}

bool ParsedStringPool::MoveWindow(std::uintptr_t base, std::uintptr_t& former)
{
    ParsedStringPool& pool = GetSingletonInstance();
    former = pool.m_Base;
    base -= base % kUnit;
    // Every record is placed again where its slot is, on a far list made
    // room for first, so that nothing fails half-way.
    FarList far;
    try
    {
        far.reserve(pool.m_Count);
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    for (u32 i = 0; i < pool.m_Capacity; ++i)
        if (Holds(pool.m_Slots[i]))
            Place(pool.RecordAt(pool.m_Slots[i]), base, far, pool.m_Slots[i]);
    pool.m_Far.swap(far);
    pool.m_Base = base;
    pool.m_Placed = true;
    return true;
}

const char* ParsedStringPool::Create(const char* text, bool copy)
{
    return Create(text, u32(std::strlen(text)), copy);
}

const char* ParsedStringPool::Create(const char* text, u32 length, bool copy)
{
    return Intern(text, length, TextHash::Of<false>(text, length), copy);
}

const char* ParsedStringPool::Intern(const char* text, u32 length, u32 hash, bool copy)
{
    const Record* record = InternRecord(text, length, hash, copy);
    return record ? record->Text() : nullptr;
}

ParsedStringPool::Record* ParsedStringPool::InternRecord(const char* text, u32 length, u32 hash,
                                                         bool copy)
{
    ParsedStringPool& pool = GetSingletonInstance();
    // Most texts are pooled already, in the first slot they hash to: that
    // case goes without a call.
    if (pool.m_Capacity != 0)
    {
        const u32 home = HomeOf(hash, pool.m_Capacity);
        if (Record* record =
                RecordHolding<Record>(pool.m_Base, pool.m_Slots[home], pool.m_Tags[home],
                                      TagOf(hash, length), text, length))
            return TakeRecord(record) ? record : nullptr;
    }
    if ((u64(pool.m_Used) + 1) * 4 > u64(pool.m_Capacity) * 3 && !pool.Grow())
        return nullptr;
    const u32 at = pool.Find(text, length, hash);
    if (Holds(pool.m_Slots[at]))
    {
        // A text pooled already keeps its pointer, also when the caller
        // offers its own: trees and handles may hold the pooled one.
        Record* record = pool.RecordAt(pool.m_Slots[at]);
        return TakeRecord(record) ? record : nullptr;
    }
    const u32 size = u32(sizeof(Record)) + (copy ? length + 1 : u32(sizeof text));
    Record* record = static_cast<Record*>(Mem::GetGeneralAlloc()->Malloc(size));
    if (record == nullptr)
        return nullptr; // reported by the allocator
    u32 slot;
    if (!Place(record, pool.m_Base, pool.m_Far, slot))
    {
        Mem::GetGeneralAlloc()->Free(record);
        return nullptr; // reported by the allocator
    }
    if (!copy && !pool.NoteAdopted(text))
    {
        if (!IsNear(slot))
            pool.m_Far.pop_back();
        Mem::GetGeneralAlloc()->Free(record);
        return nullptr; // reported by the allocator
    }
    record->references = 1;
    record->carried = 0;
    record->adopted = !copy;
    char* behind = reinterpret_cast<char*>(record + 1);
    if (copy)
    {
        std::memcpy(behind, text, length);
        behind[length] = 0;
    }
    else
    {
        std::memcpy(behind, &text, sizeof text);
    }
    if (pool.m_Slots[at] == kEmpty)
        ++pool.m_Used;
    pool.m_Slots[at] = slot;
    pool.m_Tags[at] = TagOf(hash, length);
    ++pool.m_Count;
    return record;
}

ParsedStringPool::Record* ParsedStringPool::CreateRecord(const char* text)
{
    u32 length;
    const u32 hash = HashTerminated(text, length);
    return InternRecord(text, length, hash, true);
}

const char* ParsedStringPool::Search(const char* text)
{
    ParsedStringPool& pool = GetSingletonInstance();
    if (pool.m_Count == 0)
        return nullptr;
    u32 length;
    const u32 hash = HashTerminated(text, length);
    const u32 slot = pool.m_Slots[pool.Find(text, length, hash)];
    return Holds(slot) ? pool.RecordAt(slot)->Text() : nullptr;
}

void ParsedStringPool::Release(const char* text)
{
    ParsedStringPool& pool = GetSingletonInstance();
    if (pool.m_Count == 0)
        return;
    u32 length;
    const u32 hash = HashTerminated(text, length);
    const u32 slot = pool.m_Slots[pool.Find(text, length, hash)];
    if (Holds(slot))
        pool.Drop(pool.RecordAt(slot));
}

ParsedStringPool::Record* ParsedStringPool::HeldRecord(const char* pooled)
{
    if (m_AdoptedCount != 0 && IsAdopted(pooled))
    {
        u32 length;
        const u32 hash = HashTerminated(pooled, length);
        const u32 slot = m_Slots[Find(pooled, length, hash)];
        QEL_ASSERT(ErrorManager::BaseCategory, Holds(slot));
        return RecordAt(slot);
    }
    Record* record = reinterpret_cast<Record*>(const_cast<char*>(pooled)) - 1;
    QEL_ASSERT(ErrorManager::BaseCategory,
               (record->references != 0 || record->carried) && !record->adopted);
    return record;
}

void ParsedStringPool::AddHeld(const char* pooled)
{
    if (!TakeRecord(GetSingletonInstance().HeldRecord(pooled)))
        throw std::bad_alloc(); // reported by the allocator
}

void ParsedStringPool::ReleaseHeld(const char* pooled)
{
    ParsedStringPool& pool = GetSingletonInstance();
    if (pool.m_Count != 0) // else the pool was emptied at exit
        pool.Drop(pool.HeldRecord(pooled));
}

void ParsedStringPool::ReleaseRecord(Record* record)
{
    ParsedStringPool& pool = GetSingletonInstance();
    if (pool.m_Count != 0)
        pool.Drop(record);
}

void ParsedStringPool::Drop(Record* record)
{
    if (record->references > 1)
    {
        --record->references;
        return;
    }
    if (record->references == 0) // a carried count goes back below its head
    {
        Carried* carried = CarriedPlace(record);
        QEL_ASSERT(ErrorManager::BaseCategory, record->carried && carried->record == record);
        if (--carried->carries == 0)
        {
            m_Carried.erase(m_Carried.begin() + (carried - m_Carried.data()));
            record->carried = 0;
        }
        record->references = Record::kMostHeld;
        return;
    }
    record->references = 0;
    if (record->carried)
        return;
    u32 length;
    const char* text = record->Text();
    const u32 hash = HashTerminated(text, length);
    Remove(Find(text, length, hash));
}

void ParsedStringPool::Remove(u32 at)
{
    const u32 slot = m_Slots[at];
    Record* record = RecordAt(slot);
    if (record->adopted)
        ForgetAdopted(record->Text());
    m_Slots[at] = kRemoved;
    if (!IsNear(slot))
        Unlist(slot);
    --m_Count;
    Free(record);
}

void ParsedStringPool::Unlist(u32 slot)
{
    const u32 index = slot - kFirstFar;
    const u32 last = u32(m_Far.size() - 1);
    if (index != last)
    {
        // The last one's slot is found while the list still holds it.
        const char* text = m_Far[last]->Text();
        u32 length;
        const u32 hash = HashTerminated(text, length);
        const u32 at = Find(text, length, hash);
        m_Far[index] = m_Far[last];
        m_Slots[at] = slot;
    }
    m_Far.pop_back();
}

// ---- counts past a record's head ---------------------------------------------

ParsedStringPool::Carried* ParsedStringPool::CarriedPlace(Record* record)
{
    return std::lower_bound(m_Carried.data(), m_Carried.data() + m_Carried.size(), record,
                            [](const Carried& carried, Record* r)
                            { return std::less<Record*>()(carried.record, r); });
}

bool ParsedStringPool::Carry(Record* record)
{
    ParsedStringPool& pool = GetSingletonInstance();
    Carried* at = pool.CarriedPlace(record);
    if (!record->carried)
    {
        // Inserted first: without memory the count stays as it was.
        try
        {
            pool.m_Carried.insert(pool.m_Carried.begin() + (at - pool.m_Carried.data()),
                                  Carried{record, 1});
        }
        catch (const std::bad_alloc&)
        {
            return false;
        }
        record->carried = 1;
    }
    else
    {
        ++at->carries;
    }
    record->references = 0;
    return true;
}

// ---- adopted texts ----------------------------------------------------------

bool ParsedStringPool::IsAdopted(const char* text) const
{
    const char* const* begin = m_Adopted;
    const char* const* end = begin + m_AdoptedCount;
    const char* const* at = std::lower_bound(begin, end, text, std::less<const char*>());
    return at != end && *at == text;
}

bool ParsedStringPool::NoteAdopted(const char* text)
{
    if (m_AdoptedCount == m_AdoptedCapacity)
    {
        const u32 capacity = m_AdoptedCapacity ? m_AdoptedCapacity * 2 : 16;
        void* grown = Mem::GetGeneralAlloc()->Malloc(u32(capacity * sizeof(const char*)));
        if (grown == nullptr)
            return false; // reported by the allocator
        const char** adopted = static_cast<const char**>(grown);
        if (m_AdoptedCount != 0)
            std::memcpy(adopted, m_Adopted, m_AdoptedCount * sizeof(const char*));
        if (m_Adopted)
            Mem::GetGeneralAlloc()->Free(m_Adopted);
        m_Adopted = adopted;
        m_AdoptedCapacity = capacity;
    }
    const char** end = m_Adopted + m_AdoptedCount;
    const char** at = std::lower_bound(m_Adopted, end, text, std::less<const char*>());
    std::move_backward(at, end, end + 1);
    *at = text;
    ++m_AdoptedCount;
    return true;
}

void ParsedStringPool::ForgetAdopted(const char* text)
{
    const char** end = m_Adopted + m_AdoptedCount;
    const char** at = std::lower_bound(m_Adopted, end, text, std::less<const char*>());
    if (at != end && *at == text)
    {
        std::move(at + 1, end, at);
        --m_AdoptedCount;
    }
}

u32 ParsedStringPool::GetCount()
{
    return GetSingletonInstance().m_Count;
}

u32 ParsedStringPool::GetFarCount()
{
    return u32(GetSingletonInstance().m_Far.size());
}

} // namespace qel
