// The library's entry point on Windows: the load guard. A named mutex
// "BaseMutex<pid>" is created at process attach; if it already exists a
// second copy of the library is being loaded into this process, and the user
// decides whether the load goes on (No makes it fail).
#if !defined(QEL_BASE_STATIC)

#include "base/core/loadguard.h"

#include "base/platform/windows.h"

namespace
{

HANDLE g_LoadGuard = nullptr;

} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID)
{
    switch (reason)
    {
    case DLL_PROCESS_ATTACH:
    {
        char name[32];
        wsprintfA(name, "BaseMutex%d", int(GetCurrentProcessId()));
        g_LoadGuard = CreateMutexA(nullptr, TRUE, name);
        if (GetLastError() == ERROR_ALREADY_EXISTS && !qel::AskToContinueSecondLoad())
            return FALSE;
        DisableThreadLibraryCalls(module);
        return TRUE;
    }
    case DLL_PROCESS_DETACH:
        if (g_LoadGuard)
            CloseHandle(g_LoadGuard);
        g_LoadGuard = nullptr;
        return TRUE;
    default:
        return TRUE;
    }
}

#endif
