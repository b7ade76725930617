// Starting and steering threads, one implementation per platform.
//
// A thread handle is the platform's reference to a thread; each handle
// returned here must be given to ThreadClose once. Threads start suspended:
// they run only after ThreadResume.
#pragma once

#include <qel/types.h>

namespace qel
{
namespace native
{

typedef void* ThreadHandle;

// Starts `routine(argument)` on a new, suspended thread with `stackSize`
// bytes of stack (0: the default). False when the system refuses.
bool ThreadCreate(void (*routine)(void*), void* argument, u32 stackSize, ThreadHandle& handle,
                  u32& id);

// Priority -2 (lowest) to 2 (highest); best effort where the system allows
// only lowering it.
void ThreadSetPriority(ThreadHandle handle, int priority);

// Undoes one suspension (the creation's or the thread's own); false when the
// call failed.
bool ThreadResume(ThreadHandle handle);

// Suspends the calling thread until a ThreadResume of its handle. False for
// a thread this layer did not start, where there is nothing to resume it by.
bool ThreadSuspendSelf();

// Another handle to the same thread, for waiting while the first one may be
// closed.
ThreadHandle ThreadDuplicate(ThreadHandle handle);

// Waits until the thread has ended.
void ThreadWait(ThreadHandle handle);

void ThreadClose(ThreadHandle handle);

// Gives up the rest of the time slice.
void ThreadYield();

// Keeps the library loaded while the calling thread runs, where the library
// is a loadable module: returns a token for ThreadUnpinLibraryAndExit, or
// null when there is nothing to keep.
void* ThreadPinLibrary();

// Lets the library go once the calling thread has ended. On Windows the
// thread ends inside this call; elsewhere the release happens on the
// thread's way out, after its routine has returned.
void ThreadUnpinLibraryAndExit(void* token);

} // namespace native
} // namespace qel
