#include <qel/mem.h>

#include <qel/errormanager.h>
#include <qel/heapallocator.h>
#include <qel/instancemanager.h>
#include <qel/mallocallocator.h>
#include <qel/packedallocator.h>
#include <qel/pageallocator.h>
#include <qel/pagemanager.h>
#include <qel/poolallocator.h>

#include "base/core/singleton.h"
#include "base/memory/allocatorfactories.h"

#include <new>

namespace qel
{

std::atomic<Allocator*> Mem::m_allocators[Mem::NumberOfUsages] = {};
std::atomic<u32> Mem::ms_ErrorCategory{ErrorManager::NoParent};

namespace
{

// Set when a usage's creation was attempted: a failure is not retried.
bool g_Attempted[Mem::NumberOfUsages];

alignas(HeapAllocator) unsigned char g_NativeStorage[sizeof(HeapAllocator)];

Allocator* CreateSmall()
{
    // Shared by every thread: each gets a cache of free blocks.
    Allocator* small = Mem::CreatePoolAllocator();
    if (small != nullptr)
        static_cast<PoolAllocator*>(small)->EnableThreadCaches();
    return small;
}

Allocator* CreateBig()
{
    // Shared by every thread: each gets a cache of free blocks.
    Allocator* big = Mem::CreatePackedAllocator("BigAlloc", 256);
    if (big != nullptr)
        static_cast<PackedAllocator*>(big)->EnableThreadCaches();
    return big;
}

Allocator* CreateGeneral()
{
    // Big first, then Small; the hybrid owns neither.
    Allocator* big = Mem::GetBigAlloc();
    Allocator* small = Mem::GetSmallAlloc();
    if (small == nullptr || big == nullptr)
        return nullptr;
    return Mem::CreateHybridAllocator(small, false, big, false);
}

Allocator* CreatePage()
{
    return Mem::CreatePageAllocator();
}

Allocator* CreateNative()
{
    return new (g_NativeStorage) HeapAllocator;
}

} // namespace

Allocator* Mem::ExchangeAllocator(AllocatorUsage usage, Allocator* allocator)
{
    if (unsigned(usage) >= NumberOfUsages)
        return nullptr;
    GetAllocator(usage); // made first, so that the usage has one to give back
    return m_allocators[usage].exchange(allocator, std::memory_order_acq_rel);
}

Allocator* Mem::InitAllocator(AllocatorUsage usage)
{
    switch (usage)
    {
    case Small:
        return InitSmallAlloc();
    case Big:
        return InitBigAlloc();
    case General:
        return InitGeneralAlloc();
    case Page:
        return InitPageAlloc();
    case Native:
        return InitNativeAlloc();
    default:
        return nullptr;
    }
}

Allocator* Mem::InitSmallAlloc()
{
    return InitUsage<Small>(&CreateSmall);
}

Allocator* Mem::InitBigAlloc()
{
    return InitUsage<Big>(&CreateBig);
}

Allocator* Mem::InitGeneralAlloc()
{
    return InitUsage<General>(&CreateGeneral);
}

Allocator* Mem::InitPageAlloc()
{
    return InitUsage<Page>(&CreatePage);
}

Allocator* Mem::InitNativeAlloc()
{
    return InitUsage<Native>(&CreateNative);
}

template <Mem::AllocatorUsage usage>
Allocator* Mem::InitUsage(Allocator* (*create)())
{
    CriticalSection& lock = InstanceManager::GetSingletonInstance();
    lock.Enter();
    if (m_allocators[usage].load(std::memory_order_relaxed) == nullptr && !g_Attempted[usage])
    {
        g_Attempted[usage] = true;
        m_allocators[usage].store(create(), std::memory_order_release);
        RegisterExitHandler(&Teardown<usage>);
    }
    Allocator* allocator = m_allocators[usage].load(std::memory_order_acquire);
    lock.Leave();
    return allocator;
}

template <Mem::AllocatorUsage usage>
void Mem::Teardown()
{
    CriticalSection& lock = InstanceManager::GetSingletonInstance();
    lock.Enter();
    if (Allocator* allocator = m_allocators[usage].exchange(nullptr, std::memory_order_acq_rel))
    {
        if (usage == Native)
            allocator->~Allocator(); // static storage
        else
            delete allocator;
    }
    lock.Leave();
}

Allocator* Mem::CreatePoolAllocator()
{
    return memory::NewPoolAllocator();
}

Allocator* Mem::CreatePackedAllocator(const char* name, u32 fullThreshold)
{
    return memory::NewPackedAllocator(name, fullThreshold);
}

Allocator* Mem::CreatePageAllocator()
{
    return new PageAllocator;
}

Allocator* Mem::CreateMallocAllocator()
{
    return new MallocAllocator;
}

Allocator* Mem::CreateHybridAllocator(Allocator* small, bool ownsSmall, Allocator* big,
                                      bool ownsBig)
{
    return memory::NewHybridAllocator(small, ownsSmall, big, ownsBig);
}

Allocator* Mem::CreateHybridAllocator()
{
    Allocator* small = CreatePoolAllocator();
    Allocator* big = CreatePackedAllocator("PackedAllocator-Hybrid", 256);
    Allocator* hybrid = CreateHybridAllocator(small, true, big, true);
    if (hybrid == nullptr)
    {
        // The pair was made for the hybrid alone.
        delete small;
        delete big;
    }
    return hybrid;
}

void Mem::SetPageManagerLimits(u32 firstMetapageSize, u32 maximumSize, u32 metapageStep)
{
    if (PageManager* manager = PageManager::GetSingletonInstancePointer())
        manager->SetLimits(firstMetapageSize, maximumSize, metapageStep);
}

void Mem::DumpPageManagerStatistics(u32 flags, OutputStream* out)
{
    if (PageManager* manager = PageManager::GetSingletonInstancePointer())
        manager->DumpStatistics(flags, out);
}

u32 Mem::GetErrorCategory()
{
    return ms_ErrorCategory.load(std::memory_order_acquire);
}

} // namespace qel
