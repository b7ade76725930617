#include <qel/parsedstringpool.h>

#include <qel/allocator.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>

#include "base/core/singleton.h"

#include <cstdint>
#include <cstring>

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

namespace
{

char* const kRemoved = reinterpret_cast<char*>(std::uintptr_t(1));

bool Holds(const char* text)
{
    return text != nullptr && text != kRemoved;
}

// FNV-1a: the texts are short identifiers and numbers.
const u32 kHashSeed = 2166136261u;
u32 HashStep(u32 hash, char c)
{
    return (hash ^ static_cast<unsigned char>(c)) * 16777619u;
}
u32 Hash(const char* text, u32 length)
{
    u32 hash = kHashSeed;
    for (u32 i = 0; i < length; ++i)
        hash = HashStep(hash, text[i]);
    return hash;
}
// The hash and the length of a terminated text, in one pass.
u32 HashTerminated(const char* text, u32& length)
{
    u32 hash = kHashSeed;
    const char* at = text;
    for (; *at; ++at)
        hash = HashStep(hash, *at);
    length = u32(at - text);
    return hash;
}
bool SameText(const char* a, const char* b, u32 length)
{
    // Most texts are a few characters long: a call to memcmp costs more
    // than comparing them here.
    if (length > 16)
        return std::memcmp(a, b, length) == 0;
    for (u32 i = 0; i < length; ++i)
        if (a[i] != b[i])
            return false;
    return true;
}

} // namespace

ParsedStringPool::~ParsedStringPool()
{
    for (u32 i = 0; i < m_Capacity; ++i)
        if (Holds(m_Slots[i].text))
            Free(m_Slots[i]);
    if (m_Slots)
        Mem::GetGeneralAlloc()->Free(m_Slots);
}

void ParsedStringPool::Free(const Slot& slot)
{
    // A text the pool was handed goes back to the allocator that owns it,
    // if one does: a literal handed over is left alone.
    Allocator* owner = slot.copied ? Mem::GetGeneralAlloc()
                                   : PageManager::GetSingletonInstance().FindOwner(slot.text);
    if (owner != nullptr)
        owner->Free(slot.text);
}

ParsedStringPool::Slot* ParsedStringPool::Find(const char* text, u32 length, u32 hash)
{
    Slot* reusable = nullptr;
    for (u32 i = hash & (m_Capacity - 1);; i = (i + 1) & (m_Capacity - 1))
    {
        Slot& slot = m_Slots[i];
        if (slot.text == nullptr)
            return reusable ? reusable : &slot;
        if (slot.text == kRemoved)
        {
            if (!reusable)
                reusable = &slot;
        }
        else if (slot.text == text ||
                 (slot.hash == hash && slot.length == length && SameText(slot.text, text, length)))
        {
            return &slot;
        }
    }
}

bool ParsedStringPool::Grow()
{
    // Removals leave tombstones that count as used: a table that is mostly
    // tombstones is rebuilt at its size rather than doubled, so that a
    // program parsing and releasing files in turn keeps a table of the size
    // its live texts need.
    u32 capacity = m_Capacity ? m_Capacity : 1024;
    if (u64(m_Count + 1) * 4 > capacity)
        capacity *= 2;
    Slot* slots = static_cast<Slot*>(Mem::GetGeneralAlloc()->Malloc(u32(capacity * sizeof(Slot))));
    if (slots == nullptr)
        return false; // reported by the allocator
    std::memset(slots, 0, capacity * sizeof(Slot));
    Slot* old = m_Slots;
    const u32 oldCapacity = m_Capacity;
    m_Slots = slots;
    m_Capacity = capacity;
    m_Used = m_Count;
    for (u32 i = 0; i < oldCapacity; ++i)
        if (Holds(old[i].text))
            *Find(old[i].text, old[i].length, old[i].hash) = old[i];
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
    ParsedStringPool& pool = GetSingletonInstance();
    const u32 hash = Hash(text, length);
    if ((pool.m_Used + 1) * 2 > pool.m_Capacity && !pool.Grow())
        return nullptr;
    Slot* slot = pool.Find(text, length, hash);
    if (Holds(slot->text))
    {
        // A text pooled already keeps its pointer, also when the caller
        // offers its own: trees and handles may hold the pooled one.
        ++slot->references;
        return slot->text;
    }
    char* stored = const_cast<char*>(text);
    if (copy)
    {
        stored = static_cast<char*>(Mem::GetGeneralAlloc()->Malloc(length + 1));
        if (stored == nullptr)
            return nullptr; // reported by the allocator
        std::memcpy(stored, text, length);
        stored[length] = 0;
    }
    if (slot->text == nullptr)
        ++pool.m_Used;
    *slot = Slot{stored, hash, length, 1, copy};
    ++pool.m_Count;
    return stored;
}

const char* ParsedStringPool::Search(const char* text)
{
    ParsedStringPool& pool = GetSingletonInstance();
    if (pool.m_Count == 0)
        return nullptr;
    u32 length;
    const u32 hash = HashTerminated(text, length);
    const Slot* slot = pool.Find(text, length, hash);
    return Holds(slot->text) ? slot->text : nullptr;
}

void ParsedStringPool::Release(const char* text)
{
    ParsedStringPool& pool = GetSingletonInstance();
    if (pool.m_Count == 0)
        return;
    u32 length;
    const u32 hash = HashTerminated(text, length);
    Slot* slot = pool.Find(text, length, hash);
    if (!Holds(slot->text) || --slot->references != 0)
        return;
    const Slot removed = *slot;
    slot->text = kRemoved;
    --pool.m_Count;
    Free(removed);
}

u32 ParsedStringPool::GetCount()
{
    return GetSingletonInstance().m_Count;
}

} // namespace qel
