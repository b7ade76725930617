// Threads on Windows: the C runtime's _beginthreadex, created suspended.
#include "base/thread/threadstart_native.h"

#include <qel/systembase.h>

#include "base/platform/windows.h"

#include <atomic>
#include <cstring>
#include <process.h>

namespace qel
{
namespace native
{
namespace
{

// Every thread runs the library's one thread routine.
std::atomic<void (*)(void*)> g_Routine{nullptr};

unsigned __stdcall Start(void* argument)
{
    g_Routine.load()(argument);
    return 0;
}

} // namespace

bool ThreadCreate(void (*routine)(void*), void* argument, u32 stackSize, ThreadHandle& handle,
                  u32& id)
{
    g_Routine.store(routine);
    unsigned threadId = 0;
    const uintptr_t thread =
        _beginthreadex(nullptr, stackSize, &Start, argument, CREATE_SUSPENDED, &threadId);
    if (thread == 0)
        return false;
    handle = reinterpret_cast<ThreadHandle>(thread);
    id = threadId;
    return true;
}

void ThreadSetPriority(ThreadHandle handle, int priority)
{
    static const int kPriorities[] = {THREAD_PRIORITY_LOWEST, THREAD_PRIORITY_BELOW_NORMAL,
                                      THREAD_PRIORITY_NORMAL, THREAD_PRIORITY_ABOVE_NORMAL,
                                      THREAD_PRIORITY_HIGHEST};
    SetThreadPriority(static_cast<HANDLE>(handle), kPriorities[priority + 2]);
}

bool ThreadResume(ThreadHandle handle)
{
    return ResumeThread(static_cast<HANDLE>(handle)) != DWORD(-1);
}

bool ThreadSuspendSelf()
{
    return SuspendThread(GetCurrentThread()) != DWORD(-1);
}

ThreadHandle ThreadDuplicate(ThreadHandle handle)
{
    HANDLE copy = nullptr;
    DuplicateHandle(GetCurrentProcess(), static_cast<HANDLE>(handle), GetCurrentProcess(), &copy, 0,
                    FALSE, DUPLICATE_SAME_ACCESS);
    return copy;
}

void ThreadWait(ThreadHandle handle)
{
    WaitForSingleObject(static_cast<HANDLE>(handle), INFINITE);
}

void ThreadClose(ThreadHandle handle)
{
    CloseHandle(static_cast<HANDLE>(handle));
}

void ThreadYield()
{
    Sleep(0);
}

void* ThreadPinLibrary()
{
    // The module holding this code: the program itself, or the library's
    // DLL, which is loaded once more so that it stays while the thread runs.
    MEMORY_BASIC_INFORMATION region;
    if (VirtualQuery(reinterpret_cast<void*>(&ThreadPinLibrary), &region, sizeof region) == 0)
        return nullptr;
    char name[1024];
    const DWORD length =
        GetModuleFileNameA(static_cast<HMODULE>(region.AllocationBase), name, sizeof name - 1);
    if (length == 0)
        return nullptr;
    name[length] = '\0';
    char lower[sizeof name];
    const u32 count = SystemBase::CopyLowerCase(lower, name, sizeof lower);
    if (count >= 4 && std::strcmp(lower + count - 4, ".exe") == 0)
        return nullptr;
    return LoadLibraryA(name);
}

void ThreadUnpinLibraryAndExit(void* token)
{
    if (token != nullptr)
        FreeLibraryAndExitThread(static_cast<HMODULE>(token), 0);
}

} // namespace native
} // namespace qel
