#include <qel/pageallocator.h>

#include <qel/debuggerstream.h>
#include <qel/mem.h>
#include <qel/outputstream.h>
#include <qel/pagemanager.h>
#include <qel/report.h>

#include "base/memory/dumpwriter.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace qel
{

namespace
{

u32 PagesFor(unsigned int size)
{
    return u32((u64(size) + PageManager::PageSize - 1) / PageManager::PageSize);
}

void CountRun(void*, u32 pages, void* context)
{
    u32* counts = static_cast<u32*>(context);
    counts[0] += 1;
    counts[1] += pages;
}

void PrintRun(void* start, u32 pages, void* context)
{
    const std::uintptr_t first = memory::Address(start);
    memory::Print(*static_cast<OutputStream*>(context),
                  "[0x%08" PRIXPTR ", 0x%08" PRIXPTR "[\t%12u\r\n", first,
                  std::uintptr_t(first + std::uintptr_t(pages) * PageManager::PageSize),
                  unsigned(pages));
}

} // namespace

PageAllocator::PageAllocator() : m_Allocations(0), m_Pages(0)
{
    PageManager::GetSingletonInstance().AddOwner(this);
}

PageAllocator::~PageAllocator()
{
    if (PageManager* manager = PageManager::GetSingletonInstancePointer())
    {
        manager->ReleaseAllPages(this);
        manager->RemoveOwner(this);
    }
}

u32 PageAllocator::BlockPages(const void* p) const
{
    PageManager& manager = PageManager::GetSingletonInstance();
    return manager.FindOwner(p) == this ? manager.GetRunPages(p) : 0;
}

void* PageAllocator::MallocNoThrow(unsigned int size)
{
    if (size == 0)
        return nullptr;
    const u32 pages = PagesFor(size);
    void* p = PageManager::GetSingletonInstance().AllocatePages(this, pages);
    if (p != nullptr)
    {
        ScopedLock<CriticalSection> lock(m_Lock);
        ++m_Allocations;
        m_Pages += pages;
    }
    return p;
}

void PageAllocator::Free(const void* p)
{
    if (p == nullptr)
        return;
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 pages = BlockPages(p);
    QEL_USAGE_ASSERT(GetErrorCategory(), pages != 0);
    if (pages == 0)
        return;
    PageManager::GetSingletonInstance().ReleasePages(this, const_cast<void*>(p), pages);
    --m_Allocations;
    m_Pages -= pages;
}

void PageAllocator::FreeAll()
{
    ScopedLock<CriticalSection> lock(m_Lock);
    PageManager::GetSingletonInstance().ReleaseAllPages(this);
    m_Allocations = 0;
    m_Pages = 0;
}

void* PageAllocator::ReAllocNoThrow(void* p, unsigned int size)
{
    if (p == nullptr)
        return MallocNoThrow(size);
    if (size == 0)
    {
        Free(p);
        return nullptr;
    }
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 pages = BlockPages(p);
    if (pages == 0)
        return nullptr;
    const u32 wanted = PagesFor(size);
    if (wanted <= pages)
    {
        if (wanted < pages)
        {
            PageManager::GetSingletonInstance().ReleasePages(
                this, static_cast<char*>(p) + std::size_t(wanted) * PageManager::PageSize,
                pages - wanted);
            m_Pages -= pages - wanted;
        }
        return p;
    }
    void* moved = MallocNoThrow(size);
    if (moved == nullptr)
        return nullptr;
    std::memcpy(moved, p, std::size_t(pages) * PageManager::PageSize);
    Free(p);
    return moved;
}

void* PageAllocator::Transfert(Allocator* target, void* p, unsigned int size)
{
    if (target == nullptr || p == nullptr)
        return nullptr;
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 pages = BlockPages(p);
    if (pages == 0)
        return nullptr;
    void* moved = target->MallocNoThrow(size);
    if (moved == nullptr)
        return nullptr;
    const std::size_t bytes = std::size_t(pages) * PageManager::PageSize;
    std::memcpy(moved, p, size < bytes ? size : bytes);
    Free(p);
    return moved;
}

void PageAllocator::DumpStatistics(u32 flags, AllocatorStatMarker*, AllocatorStatMarker*,
                                   OutputStream* out, char* buffer)
{
    OutputStream& stream = out ? *out : DebuggerStream::GetDefaultInstance();
    ScopedLock<CriticalSection> lock(m_Lock);
    if (buffer != nullptr)
        memory::WriteText(stream, buffer);
    if (flags & 1)
        memory::Print(stream,
                      "PageAllocator memory usage statistics\r\nNbr of allocations requests: "
                      "%u\r\nTotal nbr of Pages: %u\r\n\r\n",
                      unsigned(m_Allocations), unsigned(m_Pages));
    if (flags & 2)
    {
        memory::Print(stream, "\r\nAllocations Pagellocator: 0x%08" PRIXPTR "\r\n",
                      memory::Address(this));
        PageManager::GetSingletonInstance().ForEachRun(this, &PrintRun, &stream);
    }
    if (stream.HasPendingBlock())
        stream.Flush();
}

bool PageAllocator::ValidateMemory()
{
    ScopedLock<CriticalSection> lock(m_Lock);
    u32 counts[2] = {0, 0};
    PageManager::GetSingletonInstance().ForEachRun(this, &CountRun, counts);
    return counts[0] == m_Allocations && counts[1] == m_Pages;
}

bool PageAllocator::IsValidPointer(const void* p)
{
    return p != nullptr && BlockPages(p) != 0;
}

unsigned int PageAllocator::GetMaxSupportedAllocSize() const
{
    return 0xFFFFFFFFu;
}

u32 PageAllocator::GetErrorCategory() const
{
    return Mem::GetErrorCategory();
}

} // namespace qel
