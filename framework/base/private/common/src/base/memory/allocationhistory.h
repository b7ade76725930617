// The records of a tracking allocator: one per live block (address, size
// asked for, position, call site), and the call sites of its debug
// allocations with copies of their texts.
//
// Both tables live on the Native allocator, behind one lock that is never
// held while another allocator is called. Records are found by address in
// an open-addressed table (linear probing, deletion by shifting back), so
// every operation is constant time on average. When the Native allocator
// has no room for a bigger table, blocks go on untracked.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/types.h>

#include <cstdint>

namespace qel
{

class Allocator;

class AllocationHistory
{
public:
    QEL_NATIVE_ALLOCATION_OPERATORS

    struct Record
    {
        std::uintptr_t address; // 0: an empty slot
        u32 size;
        u32 position;
        u32 site; // 0: none
    };

    // A record as a dump lists it.
    struct Listed
    {
        std::uintptr_t address;
        u32 size;
        u32 position;
        const char* tag;
        const char* file;
        u32 line;
    };

    struct Totals
    {
        u32 allocations;
        u32 requested;
        u32 peakAllocations;
        u32 peakRequested;
    };

    AllocationHistory();
    ~AllocationHistory();
    AllocationHistory(const AllocationHistory&) = delete;
    AllocationHistory& operator=(const AllocationHistory&) = delete;

    // The allocators whose blocks are recorded.
    void SetOwners(Allocator* small, Allocator* big);
    bool Owns(const Allocator* allocator) const;

    // Records `p` at the next position, replacing a record it had.
    void Put(const void* p, u32 size, u32 site);
    void Remove(const void* p);
    // Removes the record of `p` into `record`; false when it has none.
    bool Take(const void* p, Record& record);
    // Puts back a record taken.
    void Restore(const Record& record);
    void SetSite(const void* p, u32 site);
    // Removes the records of the blocks `owner` holds.
    void RemoveOwned(const Allocator* owner);

    // The site of (tag, file, line), made at its first call; 0 when there
    // is no room for it.
    u32 Site(const char* tag, const char* file, u32 line);

    u32 GetPosition() const;
    Totals GetTotals() const;

    // The live records whose position is in [from, to), in position order,
    // in an array of the Native allocator for FreeList (null, with `count`
    // 0, when there is no room).
    Listed* List(u32 from, u32 to, u32& count) const;
    static void FreeList(Listed* list);

private:
    struct CallSite
    {
        const char* tagKey;
        const char* fileKey;
        u32 line;
        char* tag;
        char* file;
    };

    Record* Find(std::uintptr_t address) const;
    bool Grow();
    void Erase(Record* slot);
    void Insert(const Record& record);

    mutable CriticalSection m_Lock;
    Record* m_Records = nullptr;
    u32 m_Capacity = 0; // a power of two
    u32 m_Count = 0;
    u32 m_Next = 0;
    Totals m_Totals = {};

    CallSite* m_Sites = nullptr; // site n is m_Sites[n - 1]
    u32 m_SiteCount = 0;
    u32 m_SiteCapacity = 0;
    u32* m_SiteIndex = nullptr; // open-addressed: site numbers, 0 empty
    u32 m_SiteIndexCapacity = 0;

    Allocator* m_Owners[2] = {nullptr, nullptr};
};

} // namespace qel
