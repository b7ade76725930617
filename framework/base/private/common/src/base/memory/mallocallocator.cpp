#include <qel/mallocallocator.h>

#include <qel/errormanager.h>
#include <qel/mem.h>

#include <cstdlib>

namespace qel
{

namespace
{

std::size_t RoundUpTo16(unsigned int size)
{
    return (std::size_t(size) + 15) & ~std::size_t(15);
}

} // namespace

MallocAllocator::MallocAllocator() : m_ErrorCategory(ErrorManager::DefaultCategory)
{
    ErrorManager& manager = ErrorManager::GetSingletonInstance();
    ScopedLock<CriticalSection> lock(manager.GetMutex());
    m_ErrorCategory = MEM_InitErrorCategory(Mem::GetErrorCategory(), "MallocAllocator");
}

MallocAllocator::~MallocAllocator()
{
    if (ErrorManager* manager = ErrorManager::GetSingletonInstancePointer())
    {
        ScopedLock<CriticalSection> lock(manager->GetMutex());
        manager->UnRegisterCategory(m_ErrorCategory);
    }
}

void* MallocAllocator::MallocNoThrow(unsigned int size)
{
    void* p = nullptr;
    m_Lock.Enter();
    if (size != 0)
        p = std::malloc(RoundUpTo16(size));
    m_Lock.Leave();
    return p;
}

void MallocAllocator::Free(const void* p)
{
    if (p == nullptr)
        return;
    ScopedLock<CriticalSection> lock(m_Lock);
    std::free(const_cast<void*>(p));
}

void* MallocAllocator::ReAllocNoThrow(void* p, unsigned int size)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (size == 0)
    {
        Free(p);
        return nullptr;
    }
    return std::realloc(p, RoundUpTo16(size));
}

void MallocAllocator::FreeAll() {}

void MallocAllocator::DumpStatistics(u32, AllocatorStatMarker*, AllocatorStatMarker*, OutputStream*,
                                     char*)
{
}

bool MallocAllocator::ValidateMemory()
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return true;
}

bool MallocAllocator::IsValidPointer(const void*)
{
    return true;
}

unsigned int MallocAllocator::GetMaxSupportedAllocSize() const
{
    return 0xFFFFFFFFu;
}

u32 MallocAllocator::GetErrorCategory() const
{
    return m_ErrorCategory;
}

void* MallocAllocator::Transfert(Allocator*, void*, unsigned int)
{
    return nullptr;
}

} // namespace qel
