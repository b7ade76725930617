// Tour section: the memory subsystem. Blocks of whole pages from the shared
// page allocator, the owner of an address found from the page records, the
// page manager's statistics dump, the pool of small blocks with its usage
// table and allocation listing, and the general allocator routing a mixed
// workload between the pool and the packed allocator, printed as they are.
#include "tour.h"

#include <qel/allocator.h>
#include <qel/hybridallocator.h>
#include <qel/mem.h>
#include <qel/outputbufferstream.h>
#include <qel/packedallocator.h>
#include <qel/pagemanager.h>
#include <qel/poolallocator.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace qeltool
{

namespace
{

// Runs a dump into a buffer and prints it, CR LF as LF.
template <class Dump>
void PrintDump(Dump dump)
{
    std::vector<char> buffer(1 << 18);
    qel::OutputBufferStream stream(buffer.data(), buffer.data(), buffer.data() + buffer.size());
    dump(&stream);
    stream.Flush();
    for (const char* c = buffer.data(); c != buffer.data() + stream.GetWrittenSize(); ++c)
        if (*c != '\r')
            std::putchar(*c);
}

void PrintPageManagerDump(qel::u32 flags)
{
    PrintDump([flags](qel::OutputStream* out) { qel::Mem::DumpPageManagerStatistics(flags, out); });
}

} // namespace

void TourMemory(const TourContext&)
{
    Banner("memory: pages");
    qel::Allocator* pages = qel::Mem::GetPageAlloc();
    const unsigned sizes[] = {1, 4096, 3 * 4096 + 100, 40000};
    void* blocks[4] = {};
    for (int i = 0; i < 4; ++i)
    {
        blocks[i] = pages->Malloc(sizes[i]);
        const bool owned = qel::Allocator::GetOwner(blocks[i]) == pages;
        std::printf("%6u bytes at 0x%08" PRIXPTR ", owner found from its page record: %s\n",
                    sizes[i], reinterpret_cast<std::uintptr_t>(blocks[i]),
                    owned ? "the page allocator" : "someone else");
    }
    pages->Free(blocks[1]);
    std::printf("freed the 4096-byte block; the page manager now holds:\n");
    PrintPageManagerDump(qel::PageManager::DumpUsage | qel::PageManager::DumpMetapageRows |
                         qel::PageManager::DumpRuns | qel::PageManager::DumpFreeRuns);
    for (void* block : blocks)
        if (block != blocks[1])
            pages->Free(block);

    Banner("memory: the pool of small blocks");
    qel::Allocator* small = qel::Mem::GetSmallAlloc();
    std::vector<void*> smallBlocks;
    for (unsigned i = 0; i < 300; ++i)
        smallBlocks.push_back(small->Malloc(1 + (i * 37) % 64));
    for (unsigned i = 0; i < smallBlocks.size(); i += 3)
        small->Free(smallBlocks[i]); // every third block back: the pages keep holes
    std::printf("300 blocks of 1 to 64 bytes taken, every third given back:\n");
    PrintDump(
        [small](qel::OutputStream* out)
        {
            small->DumpStatistics(qel::PoolAllocator::DumpUsage |
                                      qel::PoolAllocator::DumpAllocations,
                                  nullptr, nullptr, out, nullptr);
        });
    for (unsigned i = 0; i < smallBlocks.size(); ++i)
        if (i % 3 != 0)
            small->Free(smallBlocks[i]);

    Banner("memory: the general allocator");
    qel::Allocator* general = qel::Mem::GetGeneralAlloc();
    // Every other request up to 256 bytes (the pool serves those), the others
    // from 257 bytes to 48 KB (the packed allocator); every fourth block is
    // freed again and one buffer grows by realloc across both.
    std::vector<void*> mixed;
    for (unsigned i = 0; i < 120; ++i)
        mixed.push_back(general->Malloc(i % 2 ? 1 + i * 37 % 256 : 257 + i * 7919 % 48896));
    for (unsigned i = 0; i < mixed.size(); i += 4)
        general->Free(mixed[i]);
    void* grown = general->Malloc(100);
    const qel::Allocator* firstOwner = qel::Allocator::GetOwner(grown);
    grown = general->ReAlloc(grown, 20000);
    std::printf("120 blocks of 1 byte to 48 KB through the general allocator, every fourth freed;"
                "\na 100-byte block grown to 20000 bytes moved from the %s to the %s.\n",
                firstOwner == qel::Mem::GetSmallAlloc() ? "pool" : "packed allocator",
                qel::Allocator::GetOwner(grown) == qel::Mem::GetBigAlloc() ? "packed allocator"
                                                                           : "pool");
    PrintDump(
        [general](qel::OutputStream* out) {
            general->DumpStatistics(qel::PoolAllocator::DumpUsage, nullptr, nullptr, out, nullptr);
        });
    std::printf("\nthe page manager, with the pool's pages and the packed allocator's runs:\n");
    PrintPageManagerDump(qel::PageManager::DumpUsage | qel::PageManager::DumpRuns);
    general->Free(grown);
    for (unsigned i = 0; i < mixed.size(); ++i)
        if (i % 4 != 0)
            general->Free(mixed[i]);
}

} // namespace qeltool
