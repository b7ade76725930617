// A metapage: one block of memory committed from the system, whose free
// pages are kept in a chunk tree counted in pages.
#pragma once

#include <qel/memchunktree.h>
#include <qel/pagemanager.h>
#include <qel/pagerecordtable.h>
#include <qel/types.h>

#include <cstdint>

namespace qel
{

// Calls visit(record, i) for the records of the `count` pages from `first`,
// i counting from 0, until it returns false; true when it never did. The
// records of a region lie side by side, so each region is looked up once.
template <class Visit>
bool ForEachRecord(const PageRecordTable& records, void* first, u32 count, Visit visit)
{
    char* page = static_cast<char*>(first);
    for (u32 done = 0; done < count;)
    {
        std::atomic<u32>* record = records.Find(page);
        const u32 offset =
            u32(reinterpret_cast<std::uintptr_t>(page) >> PageRecordTable::PageShift) &
            (PageRecordTable::RecordsPerRegion - 1);
        u32 inRegion = PageRecordTable::RecordsPerRegion - offset;
        if (inRegion > count - done)
            inRegion = count - done;
        for (u32 i = 0; i < inRegion; ++i)
            if (!visit(record[i], done + i))
                return false;
        done += inRegion;
        page += std::size_t(inRegion) * PageManager::PageSize;
    }
    return true;
}

// Gives the first of the `count` pages from `first` the record `head`, the
// others `rest`.
inline void SetRecords(const PageRecordTable& records, void* first, u32 count, u32 head, u32 rest)
{
    ForEachRecord(records, first, count,
                  [head, rest](std::atomic<u32>& record, u32 i)
                  {
                      record.store(i == 0 ? head : rest, std::memory_order_relaxed);
                      return true;
                  });
}

struct Metapage
{
    Metapage(char* begin, u32 numberOfPages, u32 creationAge, bool isFirst)
        : start(begin), end(begin + std::size_t(numberOfPages) * PageManager::PageSize),
          freePages(PageManager::PageSize), pages(numberOfPages), usedPages(0), age(creationAge),
          runs(0), peakUsedPages(0), peakRuns(0), first(isFirst), full(false), next(nullptr),
          previous(nullptr)
    {
    }

    bool Contains(const void* begin, u32 count) const
    {
        const char* p = static_cast<const char*>(begin);
        return p >= start && p < end &&
               std::size_t(end - p) >= std::size_t(count) * PageManager::PageSize;
    }

    char* start;
    char* end; // exclusive
    MemChunkTree freePages;
    u32 pages;
    u32 usedPages;
    u32 age; // creation number, the metapages' order
    u32 runs;
    u32 peakUsedPages;
    u32 peakRuns;
    bool first; // made when nothing was taken yet: kept while a first size is set
    bool full;  // in the list of full metapages
    Metapage* next;
    Metapage* previous;
};

} // namespace qel
