// Threads on Windows: the C runtime's _beginthreadex, created suspended.
#include "base/thread/threadstart_native.h"

#include "base/platform/windows.h"

#include <atomic>
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
    // DLL, whose reference count is raised so that it stays loaded while the
    // thread runs. By address, not by name: a name through the ANSI API
    // cannot spell every folder the DLL may be installed in.
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(&ThreadPinLibrary), &module) ||
        module == GetModuleHandleW(nullptr))
        return nullptr;
    HMODULE pinned = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                            reinterpret_cast<LPCWSTR>(&ThreadPinLibrary), &pinned))
        return nullptr;
    return pinned;
}

void ThreadUnpinLibraryAndExit(void* token)
{
    if (token != nullptr)
        FreeLibraryAndExitThread(static_cast<HMODULE>(token), 0);
}

} // namespace native
} // namespace qel
