// Core services on POSIX.
#include "base/core/platform_native.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

namespace qel
{
namespace native
{

QueryDevice::QueryAnswer ShowMessageBox(u32, const char*, const char*,
                                        QueryDevice::QueryAnswer fallback)
{
    return fallback; // no message boxes: the default answer
}

namespace
{

// A tracer (debugger) is attached when /proc/self/status names one.
bool DebuggerAttached()
{
    int fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char status[4096];
    ssize_t size = read(fd, status, sizeof status - 1);
    close(fd);
    if (size <= 0)
        return false;
    status[size] = '\0';
    const char* tracer = std::strstr(status, "TracerPid:");
    return tracer && std::strtol(tracer + 10, nullptr, 10) != 0;
}

} // namespace

void BreakIntoDebugger()
{
    if (DebuggerAttached())
        std::raise(SIGTRAP);
}

void DebugOutput(const char* text)
{
    std::fputs(text, stderr);
    std::fflush(stderr);
}

void SleepMilliseconds(u32 milliseconds)
{
    timespec delay{static_cast<time_t>(milliseconds / 1000),
                   static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&delay, &delay) != 0)
    {
    }
}

u32 GetCurrentProcessId()
{
    return static_cast<u32>(getpid());
}

bool GetEnvironmentVariable(const char* name, char* value, u32 size)
{
    const char* found = std::getenv(name);
    if (found == nullptr || size == 0)
        return false;
    std::snprintf(value, size, "%s", found);
    return true;
}

} // namespace native
} // namespace qel
