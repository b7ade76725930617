// A metapage: one block of memory committed from the system, whose free
// pages are kept in a chunk tree counted in pages.
#pragma once

#include <qel/memchunktree.h>
#include <qel/pagemanager.h>
#include <qel/types.h>

namespace qel
{

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
