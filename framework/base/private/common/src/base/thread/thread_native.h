// The operating-system services of the thread subsystem, one implementation
// per platform (private/win32, private/posix).
//
// Semaphores and events live in storage that their owner provides: at most
// SyncObjectSize bytes aligned to 8. Every wait takes a limit in milliseconds,
// WaitForever for none, and returns false only when the limit passed.
#pragma once

#include <qel/types.h>

#include <cstddef>
#include <cstdint>

namespace qel
{
namespace native
{

const u32 WaitForever = 0xFFFFFFFFu;
const unsigned SyncObjectSize = 96;

// An unnamed counting semaphore.
void SemaphoreCreate(void* object, u32 initial, u32 maximum);
void SemaphoreDestroy(void* object);
// Adds one to the count; at the maximum the count stays and false is
// returned.
bool SemaphoreRelease(void* object);
// Takes one from the count, waiting for it to become non-zero.
bool SemaphoreWait(void* object, u32 milliseconds);

// An unnamed auto-reset event: the wait that it lets through unsignals it.
void EventCreate(void* object, bool signalled);
void EventDestroy(void* object);
void EventSet(void* object);
void EventReset(void* object);
bool EventWait(void* object, u32 milliseconds);

// The calling thread's id; never 0.
u32 GetCurrentThreadId();

// The calling thread's stack: its lowest usable address and its size. False
// when the system does not tell.
bool GetStackBounds(std::uintptr_t& low, std::size_t& size);

} // namespace native
} // namespace qel
