// Thread services on Windows: the system's semaphores and auto-reset events.
#include "base/thread/thread_native.h"

#include "base/platform/windows.h"

#include <new>

namespace qel
{
namespace native
{
namespace
{

static_assert(sizeof(HANDLE) <= SyncObjectSize && alignof(HANDLE) <= 8, "HANDLE does not fit");

HANDLE& Get(void* object)
{
    return *std::launder(static_cast<HANDLE*>(object));
}

bool Wait(void* object, u32 milliseconds)
{
    return WaitForSingleObject(Get(object), milliseconds) != WAIT_TIMEOUT;
}

} // namespace

void SemaphoreCreate(void* object, u32 initial, u32 maximum)
{
    new (object) HANDLE(CreateSemaphoreA(nullptr, LONG(initial), LONG(maximum), nullptr));
}

void SemaphoreDestroy(void* object)
{
    if (Get(object) != nullptr)
        CloseHandle(Get(object));
}

bool SemaphoreRelease(void* object)
{
    return ReleaseSemaphore(Get(object), 1, nullptr) != FALSE;
}

bool SemaphoreWait(void* object, u32 milliseconds)
{
    return Wait(object, milliseconds);
}

void EventCreate(void* object, bool signalled)
{
    new (object) HANDLE(CreateEventA(nullptr, FALSE, signalled ? TRUE : FALSE, nullptr));
}

void EventDestroy(void* object)
{
    if (Get(object) != nullptr)
        CloseHandle(Get(object));
}

void EventSet(void* object)
{
    SetEvent(Get(object));
}

void EventReset(void* object)
{
    ResetEvent(Get(object));
}

bool EventWait(void* object, u32 milliseconds)
{
    return Wait(object, milliseconds);
}

u32 GetCurrentThreadId()
{
    return static_cast<u32>(::GetCurrentThreadId());
}

bool GetStackBounds(std::uintptr_t& low, std::size_t& size)
{
    // The stack is one reservation: from its base up to the end of the
    // committed pages that hold this frame's variable.
    MEMORY_BASIC_INFORMATION region{};
    if (VirtualQuery(&region, &region, sizeof region) == 0)
        return false;
    low = reinterpret_cast<std::uintptr_t>(region.AllocationBase);
    size = reinterpret_cast<std::uintptr_t>(region.BaseAddress) + region.RegionSize - low;
    return true;
}

} // namespace native
} // namespace qel
