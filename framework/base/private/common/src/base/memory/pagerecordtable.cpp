#include <qel/pagerecordtable.h>

#include <qel/mem.h>

#include <new>

namespace qel
{

namespace
{

void* NativeMalloc(std::size_t size)
{
    Allocator* native = Mem::GetNativeAlloc();
    return native ? native->MallocNoThrow(static_cast<unsigned int>(size)) : nullptr;
}

void NativeFree(void* p)
{
    if (Allocator* native = Mem::GetNativeAlloc())
        native->Free(p);
}

} // namespace

#if UINTPTR_MAX > 0xFFFFFFFFu

PageRecordTable::PageRecordTable(std::uintptr_t highestAddress)
    : m_RegionLimit(0), m_NumberOfRegions(0)
{
    const std::uintptr_t limit =
        (highestAddress + (std::uintptr_t(1) << RegionShift) - 1) >> RegionShift;
    const std::uintptr_t capacity = std::uintptr_t(DirectorySize) << LeafShift;
    m_RegionLimit = limit < capacity ? limit : capacity;
    for (std::atomic<Slot*>& leaf : m_Directory)
        leaf.store(nullptr, std::memory_order_relaxed);
}

PageRecordTable::~PageRecordTable()
{
    for (std::atomic<Slot*>& entry : m_Directory)
        if (Slot* leaf = entry.exchange(nullptr, std::memory_order_relaxed))
        {
            for (u32 i = 0; i < LeafSize; ++i)
                if (Region* region = leaf[i].load(std::memory_order_relaxed))
                    NativeFree(region);
            NativeFree(leaf);
        }
}

std::uintptr_t PageRecordTable::GetRegionCapacity() const
{
    return m_RegionLimit;
}

PageRecordTable::Slot* PageRecordTable::GetSlot(std::uintptr_t index, bool create)
{
    if (index >= m_RegionLimit)
        return nullptr;
    std::atomic<Slot*>& entry = m_Directory[index >> LeafShift];
    Slot* leaf = entry.load(std::memory_order_acquire);
    if (leaf == nullptr)
    {
        if (!create)
            return nullptr;
        leaf = static_cast<Slot*>(NativeMalloc(sizeof(Slot) * LeafSize));
        if (leaf == nullptr)
            return nullptr;
        for (u32 i = 0; i < LeafSize; ++i)
            new (&leaf[i]) Slot(nullptr);
        entry.store(leaf, std::memory_order_release);
    }
    return &leaf[index & (LeafSize - 1)];
}

#else

PageRecordTable::PageRecordTable(std::uintptr_t) : m_NumberOfRegions(0)
{
    for (Slot& slot : m_Regions)
        slot.store(nullptr, std::memory_order_relaxed);
}

PageRecordTable::~PageRecordTable()
{
    for (Slot& slot : m_Regions)
        if (Region* region = slot.exchange(nullptr, std::memory_order_relaxed))
            NativeFree(region);
}

std::uintptr_t PageRecordTable::GetRegionCapacity() const
{
    return sizeof m_Regions / sizeof m_Regions[0];
}

PageRecordTable::Slot* PageRecordTable::GetSlot(std::uintptr_t index, bool)
{
    return &m_Regions[index];
}

#endif

bool PageRecordTable::Add(void* first, u32 count)
{
    char* page = static_cast<char*>(first);
    for (u32 done = 0; done < count;)
    {
        const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(page);
        Slot* slot = GetSlot(address >> RegionShift, true);
        Region* region = slot ? slot->load(std::memory_order_relaxed) : nullptr;
        if (slot != nullptr && region == nullptr)
        {
            region = static_cast<Region*>(NativeMalloc(sizeof(Region)));
            if (region != nullptr)
            {
                for (std::atomic<u32>& record : region->records)
                    new (&record) std::atomic<u32>(Unowned);
                region->used = 0;
                slot->store(region, std::memory_order_release);
                ++m_NumberOfRegions;
            }
        }
        if (region == nullptr)
        {
            Remove(first, done);
            return false;
        }
        // The pages of this region, up to its end or the run's.
        const u32 index = u32(address >> PageShift) & (RecordsPerRegion - 1);
        const u32 inRegion =
            RecordsPerRegion - index < count - done ? RecordsPerRegion - index : count - done;
        for (u32 i = 0; i < inRegion; ++i)
            region->records[index + i].store(Unowned, std::memory_order_relaxed);
        region->used += inRegion;
        done += inRegion;
        page += std::size_t(inRegion) << PageShift;
    }
    return true;
}

void PageRecordTable::Remove(void* first, u32 count)
{
    char* page = static_cast<char*>(first);
    for (u32 done = 0; done < count;)
    {
        const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(page);
        const u32 index = u32(address >> PageShift) & (RecordsPerRegion - 1);
        const u32 inRegion =
            RecordsPerRegion - index < count - done ? RecordsPerRegion - index : count - done;
        Slot* slot = GetSlot(address >> RegionShift, false);
        if (Region* region = slot ? slot->load(std::memory_order_relaxed) : nullptr)
        {
            for (u32 i = 0; i < inRegion; ++i)
                region->records[index + i].store(Unowned, std::memory_order_relaxed);
            region->used -= inRegion;
            if (region->used == 0)
            {
                slot->store(nullptr, std::memory_order_release);
                NativeFree(region);
                --m_NumberOfRegions;
            }
        }
        done += inRegion;
        page += std::size_t(inRegion) << PageShift;
    }
}

} // namespace qel
