// The library's own thread-specific pointer on Windows.
//
// The value lives in a TLS slot of the system, read straight from the
// thread's environment block on the fast path (TlsGetValue would clear the
// thread's last error on every allocation). A fiber-local slot holds the
// same value for its exit callback, which the system runs for every thread
// that ends, however it was started, before the DLLs hear of it. The
// compiler's own thread-local storage is emulated on mingw and is torn down
// before that, which is why neither is used here.
#pragma once

#include <atomic>
#include <cstdint>

namespace qel
{
namespace native
{

const unsigned long NoThreadSlot = 0xFFFFFFFFul;
extern std::atomic<unsigned long> g_ThreadSlotIndex;

// What every thread's value is until it is set: an object that the slot's
// user defines, so that a value read is never null.
struct ThreadSlotStart;
extern ThreadSlotStart g_ThreadSlotStart;

// Made once, before the first ThreadSlotSet, under a lock of the caller's:
// `atExit` then receives every thread's value as that thread ends, whatever
// started the thread. False when the system has no slot to give.
bool ThreadSlotCreate(void (*atExit)(void*));

// The value in a slot beyond the environment block's 64, as ThreadSlotGet
// gives it; the thread's last error stays as it was.
void* ThreadSlotGetSlow(unsigned long index);

// The calling thread's value; &g_ThreadSlotStart until it is set.
inline void* ThreadSlotGet()
{
    const unsigned long index = g_ThreadSlotIndex.load(std::memory_order_relaxed);
    if (index >= 64)
        return ThreadSlotGetSlow(index);
    // TEB.TlsSlots, at the offsets of the documented layout. (The
    // compiler's __readgsqword trips its own array-bounds check.)
    std::uintptr_t teb;
#if defined(_WIN64)
    __asm__("movq %%gs:0x30, %0" : "=r"(teb));
    void* value = reinterpret_cast<void* const*>(teb + 0x1480)[index];
#else
    __asm__("movl %%fs:0x18, %0" : "=r"(teb));
    void* value = reinterpret_cast<void* const*>(teb + 0xE10)[index];
#endif
    return value != nullptr ? value : &g_ThreadSlotStart;
}

// Sets the calling thread's value, to be handed to `atExit`.
void ThreadSlotSet(void* value);

// Sets the value that ThreadSlotGet returns from now on without handing it
// to `atExit`: what a thread's exit routine leaves behind.
void ThreadSlotSetFinal(void* value);

// Hands the calling thread's value to `atExit` now rather than on the
// thread's way out, and not again then: for a thread whose end others wait
// for, as they may tear down what the value refers to next.
void ThreadSlotEndNow();

} // namespace native
} // namespace qel
