// The library's own thread-specific pointer on POSIX: a thread-local word
// for the fast read, and a key whose destructor hands the value on when the
// thread ends. See the Windows twin for the contract.
#pragma once

namespace qel
{
namespace native
{

// On ELF the word is in the static TLS block, read straight off the thread
// pointer: a few bytes of the surplus the loader keeps for libraries loaded
// later.
#if defined(__ELF__)
#define QEL_THREAD_SLOT_TLS __attribute__((tls_model("initial-exec")))
#else
#define QEL_THREAD_SLOT_TLS
#endif
extern __thread void* t_ThreadSlot QEL_THREAD_SLOT_TLS;

// What every thread's value is until it is set: an object that the slot's
// user defines, so that a value read is never null.
struct ThreadSlotStart;
extern ThreadSlotStart g_ThreadSlotStart;

// Made once, before the first ThreadSlotSet, under a lock of the caller's:
// `atExit` then receives every thread's value as that thread ends, after
// its C++ thread-local objects are gone, whatever started the thread. False
// when the system has no slot to give.
bool ThreadSlotCreate(void (*atExit)(void*));

// The calling thread's value; &g_ThreadSlotStart until it is set.
inline void* ThreadSlotGet()
{
    return t_ThreadSlot;
}

// Sets the calling thread's value, to be handed to `atExit`.
void ThreadSlotSet(void* value);

// Hands the calling thread's value to `atExit` now rather than on the
// thread's way out, and not again then: for a thread whose end others wait
// for, as they may tear down what the value refers to next.
void ThreadSlotEndNow();

// Sets the value that ThreadSlotGet returns from now on without handing it
// to `atExit`: what a thread's exit routine leaves behind.
inline void ThreadSlotSetFinal(void* value)
{
    t_ThreadSlot = value;
}

} // namespace native
} // namespace qel
