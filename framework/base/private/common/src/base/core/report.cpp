// The report sites' entry points: each takes the error manager's lock,
// formats and displays, and hands the answer back to the macro.
#include <qel/report.h>

#include <qel/errormanager.h>

#include <cstdarg>

namespace qel
{

namespace report
{

QueryDevice::QueryAnswer Assert(ErrorManager::QueryUserFlag& flag,
                                ErrorManager::AssertionTypes type, u32 category,
                                const char* condition, const char* file, u32 line)
{
    ErrorManager* manager = ErrorManager::GetSingletonInstancePointer();
    if (manager == nullptr)
        return QueryDevice::Ignore;
    ScopedLock<CriticalSection> lock(manager->GetMutex());
    return manager->DisplayAssert(flag, type, category, condition, file, line);
}

QueryDevice::QueryAnswer Warning(u32 category, ErrorManager::QueryUserFlag& flag, const char* file,
                                 u32 line, const char* format, ...)
{
    ErrorManager* manager = ErrorManager::GetSingletonInstancePointer();
    if (manager == nullptr)
        return QueryDevice::Ignore;
    ScopedLock<CriticalSection> lock(manager->GetMutex());
    va_list arguments;
    va_start(arguments, format);
    const char* message = manager->FormatMessageV(format, arguments);
    va_end(arguments);
    return manager->DisplayWarning(category, flag, message, file, line);
}

QueryDevice::QueryAnswer Error(u32 category, const char* file, u32 line, const char* format, ...)
{
    ErrorManager* manager = ErrorManager::GetSingletonInstancePointer();
    if (manager == nullptr)
        return QueryDevice::No; // nobody to ask: the site ends the process
    ScopedLock<CriticalSection> lock(manager->GetMutex());
    va_list arguments;
    va_start(arguments, format);
    const char* message = manager->FormatMessageV(format, arguments);
    va_end(arguments);
    return manager->DisplayError(category, message, file, line);
}

void Trace(u32 category, const char* format, ...)
{
    ErrorManager* manager = ErrorManager::GetSingletonInstancePointer();
    if (manager == nullptr)
        return;
    ScopedLock<CriticalSection> lock(manager->GetMutex());
    va_list arguments;
    va_start(arguments, format);
    const char* text = manager->FormatMessageV(format, arguments);
    va_end(arguments);
    manager->DisplayTrace(category, text);
}

} // namespace report
} // namespace qel
