#include <qel/allocator.h>

#include <qel/debuggerstream.h>
#include <qel/errormanager.h>
#include <qel/host.h>
#include <qel/instancemanager.h>
#include <qel/mem.h>
#include <qel/pagemanager.h>

#include "base/memory/memoryreport.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdint>

namespace qel
{

namespace memory
{

const char kMallocFailed[] = "Malloc failed: no more available memory";

void ReportFatal(u32 category, const char* file, u32 line, const char* format, ...)
{
    ErrorManager* manager = ErrorManager::GetSingletonInstancePointer();
    if (manager == nullptr)
    {
        Host::Get().ExitProcess();
        return;
    }
    ScopedLock<CriticalSection> lock(manager->GetMutex());
    va_list arguments;
    va_start(arguments, format);
    const char* message = manager->FormatMessageV(format, arguments);
    va_end(arguments);
    if (manager->DisplayError(category, message, file, line) == QueryDevice::Yes)
        Host::Get().BreakIntoDebugger();
    manager->ExitProcess();
}

} // namespace memory

Allocator::Allocator()
{
    DebuggerStream::GetDefaultInstance();
    if (Mem::ms_ErrorCategory.load(std::memory_order_acquire) == ErrorManager::NoParent)
    {
        ScopedLock<CriticalSection> lock(InstanceManager::GetSingletonInstance());
        if (Mem::ms_ErrorCategory.load(std::memory_order_relaxed) == ErrorManager::NoParent)
            Mem::ms_ErrorCategory.store(MEM_InitErrorCategory(ErrorManager::BaseCategory, "Memory"),
                                        std::memory_order_release);
    }
}

Allocator::~Allocator() = default;

void* Allocator::MallocDebugNoThrow(unsigned int size, const char*, const char*, u32)
{
    return MallocNoThrow(size);
}

void* Allocator::ReAllocDebugNoThrow(void* p, unsigned int size, const char*, const char*, u32)
{
    return ReAllocNoThrow(p, size);
}

void Allocator::FreeDebug(const void* p, const char*, u32)
{
    Free(p);
}

void* Allocator::TransfertDebug(Allocator* target, void* p, unsigned int size, const char*,
                                const char*, u32)
{
    return Transfert(target, p, size);
}

void Allocator::FillStatMarker(AllocatorStatMarker&) {}

void Allocator::AddContext(const char*) {}

void Allocator::RemoveContext() {}

void Allocator::FillTagManagerForHTMLStatistics(MemoryTagsManager&, char*) {}

void* Allocator::Malloc(unsigned int size)
{
    void* p = MallocNoThrow(size);
    return p ? p : vError(memory::kMallocFailed);
}

void* Allocator::MallocDebug(unsigned int size, const char* tag, const char* file, u32 line)
{
    void* p = MallocDebugNoThrow(size, tag, file, line);
    return p ? p : vError(memory::kMallocFailed);
}

void* Allocator::ReAlloc(void* p, unsigned int size)
{
    void* q = ReAllocNoThrow(p, size);
    return q ? q : vError(memory::kMallocFailed);
}

void* Allocator::ReAllocDebug(void* p, unsigned int size, const char* tag, const char* file,
                              u32 line)
{
    void* q = ReAllocDebugNoThrow(p, size, tag, file, line);
    return q ? q : vError(memory::kMallocFailed);
}

void* Allocator::vError(const char* message)
{
    memory::ReportFatal(ErrorManager::BaseCategory, __FILE__, __LINE__, "%s", message);
    return nullptr;
}

Allocator* Allocator::GetOwner(const void* p)
{
    if (PageManager* manager = PageManager::GetSingletonInstancePointer())
        if (Allocator* owner = manager->FindOwner(p))
            return owner;
    memory::ReportFatal(
        Mem::GetErrorCategory(), __FILE__, __LINE__,
        "Unable to find an allocator owner for allocation at address: 0x%08" PRIXPTR,
        reinterpret_cast<std::uintptr_t>(p));
    return nullptr;
}

} // namespace qel
