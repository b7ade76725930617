// Tour section: the memory subsystem. Blocks of whole pages from the shared
// page allocator, the owner of an address found from the page records, and
// the page manager's statistics dump printed as it is.
#include "tour.h"

#include <qel/allocator.h>
#include <qel/mem.h>
#include <qel/outputbufferstream.h>
#include <qel/pagemanager.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace qeltool
{

namespace
{

// Dumps the page manager into a buffer and prints it, CR LF as LF.
void PrintPageManagerDump(qel::u32 flags)
{
    std::vector<char> buffer(1 << 16);
    qel::OutputBufferStream stream(buffer.data(), buffer.data(), buffer.data() + buffer.size());
    qel::Mem::DumpPageManagerStatistics(flags, &stream);
    std::string text(buffer.data(), stream.GetWrittenSize());
    for (std::size_t at; (at = text.find("\r\n")) != std::string::npos;)
        text.erase(at, 1);
    std::fputs(text.c_str(), stdout);
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
}

} // namespace qeltool
