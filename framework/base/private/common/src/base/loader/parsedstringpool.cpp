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
            Free(RecordIn<Record>(m_Slots[i]));
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

ParsedStringPool::Slot* ParsedStringPool::Find(const char* text, u32 length, u32 hash)
{
    const u64 key = KeyOf(hash, length);
    Slot* reusable = nullptr;
    for (u32 i = HomeOf(hash, m_Capacity);; i = i + 1 == m_Capacity ? 0 : i + 1)
    {
        Slot& slot = m_Slots[i];
        if (slot == kEmpty)
            return reusable ? reusable : &slot;
        if (slot == kRemoved)
        {
            if (!reusable)
                reusable = &slot;
        }
        else if (RecordHolding<Record>(slot, key, text, length))
        {
            return &slot;
        }
    }
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
    Slot* slots = static_cast<Slot*>(Mem::GetGeneralAlloc()->Malloc(u32(capacity * sizeof(Slot))));
    if (slots == nullptr)
        return false; // reported by the allocator
    std::memset(slots, 0, capacity * sizeof(Slot));
    Slot* old = m_Slots;
    const u32 oldCapacity = m_Capacity;
    m_Slots = slots;
    m_Capacity = capacity;
    m_Used = m_Count;
    // The texts are all different: each goes to the first empty slot of
    // its probe.
    for (u32 i = 0; i < oldCapacity; ++i)
        if (Holds(old[i]))
        {
            u32 length;
            u32 at = HomeOf(HashTerminated(RecordIn<Record>(old[i])->Text(), length), capacity);
            while (slots[at] != kEmpty)
                at = at + 1 == capacity ? 0 : at + 1;
            slots[at] = old[i];
        }
    if (old)
        Mem::GetGeneralAlloc()->Free(old);
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
        if (Record* record = RecordHolding<Record>(pool.m_Slots[HomeOf(hash, pool.m_Capacity)],
                                                   KeyOf(hash, length), text, length))
            return TakeRecord(record) ? record : nullptr;
    if ((u64(pool.m_Used) + 1) * 4 > u64(pool.m_Capacity) * 3 && !pool.Grow())
        return nullptr;
    Slot* slot = pool.Find(text, length, hash);
    if (Holds(*slot))
    {
        // A text pooled already keeps its pointer, also when the caller
        // offers its own: trees and handles may hold the pooled one.
        Record* record = RecordIn<Record>(*slot);
        return TakeRecord(record) ? record : nullptr;
    }
    const u32 size = u32(sizeof(Record)) + (copy ? length + 1 : u32(sizeof text));
    Record* record = static_cast<Record*>(Mem::GetGeneralAlloc()->Malloc(size));
    if (record == nullptr)
        return nullptr; // reported by the allocator
    QEL_ASSERT(ErrorManager::BaseCategory, (std::uintptr_t(record) & ~kAddressMask) == 0);
    if (!copy && !pool.NoteAdopted(text))
    {
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
    if (*slot == kEmpty)
        ++pool.m_Used;
    *slot = u64(std::uintptr_t(record)) | KeyOf(hash, length);
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
    const Slot* slot = pool.Find(text, length, hash);
    return Holds(*slot) ? RecordIn<Record>(*slot)->Text() : nullptr;
}

void ParsedStringPool::Release(const char* text)
{
    ParsedStringPool& pool = GetSingletonInstance();
    if (pool.m_Count == 0)
        return;
    u32 length;
    const u32 hash = HashTerminated(text, length);
    Slot* slot = pool.Find(text, length, hash);
    if (Holds(*slot))
        pool.Drop(RecordIn<Record>(*slot));
}

ParsedStringPool::Record* ParsedStringPool::HeldRecord(const char* pooled)
{
    if (m_AdoptedCount != 0 && IsAdopted(pooled))
    {
        u32 length;
        const u32 hash = HashTerminated(pooled, length);
        const Slot* slot = Find(pooled, length, hash);
        QEL_ASSERT(ErrorManager::BaseCategory, Holds(*slot));
        return RecordIn<Record>(*slot);
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

void ParsedStringPool::Remove(Slot* slot)
{
    Record* record = RecordIn<Record>(*slot);
    if (record->adopted)
        ForgetAdopted(record->Text());
    *slot = kRemoved;
    --m_Count;
    Free(record);
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

} // namespace qel
