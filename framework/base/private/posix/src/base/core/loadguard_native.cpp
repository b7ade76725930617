// The load guard on POSIX: a named semaphore "/BaseMutex<pid>", created
// exclusively when the library is loaded and removed when it is unloaded.
// Finding it already there means a second copy of the library in this
// process, and the user is asked whether to go on. A library cannot refuse
// its own load here, so an answer of No is reported and the copy stays.
#if !defined(QEL_BASE_STATIC)

#include "base/core/loadguard.h"
#include "base/core/platform_native.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qel
{
namespace
{

sem_t* g_LoadGuard = SEM_FAILED;
bool g_CreatedLoadGuard = false;
char g_LoadGuardName[32];

// When this process started, in seconds since the epoch; 0 if unknown.
time_t ProcessStartTime()
{
    unsigned long long startTicks = 0, bootTime = 0;
    if (FILE* stat = std::fopen("/proc/self/stat", "r"))
    {
        char line[1024];
        if (std::fgets(line, sizeof line, stat))
        {
            // Field 22 (start time in clock ticks since boot), counted after
            // the command name, which may itself hold spaces.
            const char* field = std::strrchr(line, ')');
            for (int i = 0; field && i < 20; ++i)
                field = std::strchr(field + 1, ' ');
            if (field)
                startTicks = std::strtoull(field + 1, nullptr, 10);
        }
        std::fclose(stat);
    }
    if (FILE* stat = std::fopen("/proc/stat", "r"))
    {
        char line[256];
        while (std::fgets(line, sizeof line, stat))
            if (std::sscanf(line, "btime %llu", &bootTime) == 1)
                break;
        std::fclose(stat);
    }
    const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    if (bootTime == 0 || startTicks == 0 || ticksPerSecond <= 0)
        return 0;
    return static_cast<time_t>(bootTime + startTicks / ticksPerSecond);
}

// A semaphore left behind by an earlier process that had the same id and
// ended without unloading the library (a crash, abort()) predates this
// process; one made by a copy of the library in this process does not.
bool LeftByEarlierProcess(const char* name)
{
    char path[64];
    std::snprintf(path, sizeof path, "/dev/shm/sem.%s", name + 1);
    struct stat status;
    const time_t started = ProcessStartTime();
    return started != 0 && stat(path, &status) == 0 && status.st_mtime < started - 1;
}

__attribute__((constructor)) void AttachLoadGuard()
{
    std::snprintf(g_LoadGuardName, sizeof g_LoadGuardName, "/BaseMutex%u",
                  unsigned(native::GetCurrentProcessId()));
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        g_LoadGuard = sem_open(g_LoadGuardName, O_CREAT | O_EXCL, 0600, 0);
        if (g_LoadGuard != SEM_FAILED)
        {
            g_CreatedLoadGuard = true;
            return;
        }
        if (errno != EEXIST)
            return; // no named semaphores here: no guard
        if (attempt == 0 && LeftByEarlierProcess(g_LoadGuardName))
            sem_unlink(g_LoadGuardName);
        else
            break;
    }

    g_LoadGuard = sem_open(g_LoadGuardName, 0);
    if (!AskToContinueSecondLoad())
        Host::Get().DebugOutput("Base: a library cannot refuse its own load on this platform; "
                                "this copy stays loaded.\n");
}

__attribute__((destructor)) void DetachLoadGuard()
{
    if (g_LoadGuard == SEM_FAILED)
        return;
    sem_close(g_LoadGuard);
    if (g_CreatedLoadGuard)
        sem_unlink(g_LoadGuardName);
    g_LoadGuard = SEM_FAILED;
}

} // namespace
} // namespace qel

#endif
