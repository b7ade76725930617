#include "base/core/singleton.h"

#include <qel/querydevice.h>

#include <cstdio>
#include <cstdlib>

namespace qel
{

void ReportSingletonFailure(const char* className)
{
    char message[512];
    std::snprintf(message, sizeof message,
                  "The program is trying to get the singleton instance for class %s but the "
                  "instance is NULL. Probably that you are trying to access it after it has been "
                  "deinitialized!!!\nThe program will crash shortly!",
                  className);
    QueryDevice::QueryUser(QueryDevice::OK, "FATAL SINGLETON ERROR", message);
}

void RegisterExitHandler(void (*handler)())
{
    // In a shared library the runtime ties the handler to the module: it runs
    // when the module is unloaded or the process exits, whichever is first.
    std::atexit(handler);
}

} // namespace qel
