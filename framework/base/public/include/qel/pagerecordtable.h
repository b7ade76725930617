// The page manager's page records: one 32-bit record for every 4096-byte
// page it manages, grouped in regions of 4 MB (1024 records).
//
// A record's byte 3 is the index of the page's owner in the page manager's
// owner list, 255 for no owner; bit 22 marks the first page of a run handed
// out in one request; byte 0 is a tag the owner may keep for the page (the
// pool allocator keeps its page's size class there, so that a release finds
// it without reading the page); the other bits are clear.
//
// Regions are found by address >> 22. On 32-bit hosts that is a flat table of
// exactly 1024 regions. On 64-bit hosts a flat table would be far too big, so
// the region index goes through a two-level directory: a fixed top level of
// 2^14 entries and leaves of 2^12 regions (16 GB of address space each)
// allocated on demand, which covers 48-bit user address spaces. Either way
// Find is lock-free and constant time: a shift, a compare and a few loads.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

#include <atomic>
#include <cstdint>

namespace qel
{

class QEL_API PageRecordTable
{
public:
    QEL_ALLOCATION_OPERATORS

    enum : u32
    {
        PageShift = 12,
        RegionShift = 22,
        RecordsPerRegion = 1u << (RegionShift - PageShift),
        OwnerShift = 24,
        NoOwner = 255,
        RunStart = 1u << 22,
        TagMask = 0xFF,
        // A record of a page that belongs to nobody.
        Unowned = u32(NoOwner) << OwnerShift,
    };

    struct Region
    {
        std::atomic<u32> records[RecordsPerRegion];
        u32 used; // records of managed pages
    };

    // `highestAddress`: the end of the host's user address range; no page at
    // or above it is ever recorded.
    explicit PageRecordTable(std::uintptr_t highestAddress);
    ~PageRecordTable();

    PageRecordTable(const PageRecordTable&) = delete;
    PageRecordTable& operator=(const PageRecordTable&) = delete;

    // The record of the page holding `p`, or null when no region covers it.
    std::atomic<u32>* Find(const void* p) const
    {
        const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(p);
        const std::uintptr_t index = address >> RegionShift;
#if UINTPTR_MAX > 0xFFFFFFFFu
        if (index >= m_RegionLimit)
            return nullptr;
        const Slot* leaf = m_Directory[index >> LeafShift].load(std::memory_order_acquire);
        if (leaf == nullptr)
            return nullptr;
        Region* region = leaf[index & (LeafSize - 1)].load(std::memory_order_acquire);
#else
        Region* region = m_Regions[index].load(std::memory_order_acquire);
#endif
        if (region == nullptr)
            return nullptr;
        return &region->records[(address >> PageShift) & (RecordsPerRegion - 1)];
    }

    static u32 OwnerOf(u32 record)
    {
        return record >> OwnerShift;
    }

    // Records `count` pages from `first` (page-aligned) as managed, with no
    // owner. False when a region could not be allocated; nothing is then
    // left recorded.
    bool Add(void* first, u32 count);
    // Forgets the records; a region left without records is freed.
    void Remove(void* first, u32 count);

    u32 GetNumberOfRegions() const
    {
        return m_NumberOfRegions;
    }
    // How many 4 MB regions the table can hold.
    std::uintptr_t GetRegionCapacity() const;

private:
    typedef std::atomic<Region*> Slot;

    // The slot of region `index`, made (with its leaf) when `create` is set;
    // null when it does not exist or cannot be made.
    Slot* GetSlot(std::uintptr_t index, bool create);

#if UINTPTR_MAX > 0xFFFFFFFFu
    enum : u32
    {
        LeafShift = 12,
        LeafSize = 1u << LeafShift,
        DirectorySize = 1u << (48 - RegionShift - LeafShift),
    };
    std::uintptr_t m_RegionLimit;
    std::atomic<Slot*> m_Directory[DirectorySize];
#else
    Slot m_Regions[1u << (32 - RegionShift)];
#endif
    u32 m_NumberOfRegions;
};

} // namespace qel
