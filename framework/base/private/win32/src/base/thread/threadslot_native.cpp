// The library's thread slot on Windows: a TLS slot for the value and a
// fiber-local slot for the exit callback.
#include "base/thread/threadslot_native.h"

#include "base/platform/windows.h"

#include <winternl.h>

#include <cstddef>

namespace qel
{
namespace native
{

std::atomic<unsigned long> g_ThreadSlotIndex{NoThreadSlot};

namespace
{

#if defined(_WIN64)
static_assert(offsetof(TEB, TlsSlots) == 0x1480, "TEB.TlsSlots moved");
#else
static_assert(offsetof(TEB, TlsSlots) == 0xE10, "TEB.TlsSlots moved");
#endif
static_assert(TLS_OUT_OF_INDEXES == NoThreadSlot, "TLS_OUT_OF_INDEXES");

DWORD g_FiberSlot = FLS_OUT_OF_INDEXES;
void (*g_AtExit)(void*) = nullptr;

void NTAPI RunAtExit(void* value)
{
    if (value != nullptr)
        g_AtExit(value);
}

// The slots go with the library: the system then runs the exit callback
// for the threads that still have a value, so none of them calls into
// code that is no longer mapped.
struct SlotRelease
{
    ~SlotRelease()
    {
        if (g_FiberSlot != FLS_OUT_OF_INDEXES)
            FlsFree(g_FiberSlot);
        g_FiberSlot = FLS_OUT_OF_INDEXES;
    }
} g_SlotRelease;

} // namespace

bool ThreadSlotCreate(void (*atExit)(void*))
{
    const DWORD index = TlsAlloc();
    if (index == TLS_OUT_OF_INDEXES)
        return false;
    g_AtExit = atExit;
    g_FiberSlot = FlsAlloc(&RunAtExit);
    if (g_FiberSlot == FLS_OUT_OF_INDEXES)
    {
        TlsFree(index);
        return false;
    }
    g_ThreadSlotIndex.store(index, std::memory_order_release);
    return true;
}

void* ThreadSlotGetSlow(unsigned long index)
{
    if (index == NoThreadSlot)
        return &g_ThreadSlotStart;
    const DWORD error = GetLastError();
    void* value = TlsGetValue(index);
    SetLastError(error);
    return value != nullptr ? value : &g_ThreadSlotStart;
}

void ThreadSlotSet(void* value)
{
    const DWORD error = GetLastError();
    TlsSetValue(g_ThreadSlotIndex.load(std::memory_order_relaxed), value);
    FlsSetValue(g_FiberSlot, value);
    SetLastError(error);
}

void ThreadSlotSetFinal(void* value)
{
    const DWORD error = GetLastError();
    TlsSetValue(g_ThreadSlotIndex.load(std::memory_order_relaxed), value);
    SetLastError(error);
}

void ThreadSlotEndNow()
{
    if (g_FiberSlot == FLS_OUT_OF_INDEXES)
        return;
    void* value = FlsGetValue(g_FiberSlot);
    if (value == nullptr)
        return;
    FlsSetValue(g_FiberSlot, nullptr);
    g_AtExit(value);
}

} // namespace native
} // namespace qel
