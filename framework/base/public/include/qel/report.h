// Report macros: the library's asserts, warnings, fatal errors and traces.
//
// Each macro holds the error manager's lock while it formats its message and
// shows the report, and passes its own source path and line. An assert or a
// warning answered Retry breaks into the debugger at the report site; a fatal
// error answered Yes breaks there too, and any other answer ends the process.
// Asserts and warnings remember "don't show again" in a flag of their own
// report site.
//
//   QEL_ASSERT(category, condition)          internal consistency
//   QEL_USAGE_ASSERT(category, condition)    misuse by the caller
//   QEL_WARNING(category, format, ...)
//   QEL_FATAL_ERROR(category, format, ...)
//   QEL_TRACE(category, format, ...)
#pragma once

#include <qel/errormanager.h>
#include <qel/export.h>
#include <qel/host.h>
#include <qel/querydevice.h>
#include <qel/types.h>

namespace qel
{
namespace report
{

// Each takes the error manager's lock, formats, displays and leaves the lock;
// the answer is returned to the macro, which acts on it at the report site.
QEL_API QueryDevice::QueryAnswer Assert(ErrorManager::QueryUserFlag& flag,
                                        ErrorManager::AssertionTypes type, u32 category,
                                        const char* condition, const char* file, u32 line);
QEL_API QueryDevice::QueryAnswer Warning(u32 category, ErrorManager::QueryUserFlag& flag,
                                         const char* file, u32 line, const char* format, ...)
    QEL_PRINTF_FORMAT(5, 6);
QEL_API QueryDevice::QueryAnswer Error(u32 category, const char* file, u32 line, const char* format,
                                       ...) QEL_PRINTF_FORMAT(4, 5);
QEL_API void Trace(u32 category, const char* format, ...) QEL_PRINTF_FORMAT(2, 3);

} // namespace report
} // namespace qel

#define QEL_DEBUG_BREAK() ::qel::Host::Get().BreakIntoDebugger()

#define QEL_ASSERT_OF_TYPE(type, category, condition)                                              \
    do                                                                                             \
    {                                                                                              \
        if (!(condition))                                                                          \
        {                                                                                          \
            static ::qel::ErrorManager::QueryUserFlag qelReportFlag = 0;                           \
            if (::qel::report::Assert(qelReportFlag, type, category, #condition, __FILE__,         \
                                      __LINE__) == ::qel::QueryDevice::Retry)                      \
                QEL_DEBUG_BREAK();                                                                 \
        }                                                                                          \
    } while (0)

#define QEL_ASSERT(category, condition)                                                            \
    QEL_ASSERT_OF_TYPE(::qel::ErrorManager::InternalAssert, category, condition)
#define QEL_USAGE_ASSERT(category, condition)                                                      \
    QEL_ASSERT_OF_TYPE(::qel::ErrorManager::UsageAssert, category, condition)

#define QEL_WARNING(category, ...)                                                                 \
    do                                                                                             \
    {                                                                                              \
        static ::qel::ErrorManager::QueryUserFlag qelReportFlag = 0;                               \
        if (::qel::report::Warning(category, qelReportFlag, __FILE__, __LINE__, __VA_ARGS__) ==    \
            ::qel::QueryDevice::Retry)                                                             \
            QEL_DEBUG_BREAK();                                                                     \
    } while (0)

#define QEL_FATAL_ERROR(category, ...)                                                             \
    do                                                                                             \
    {                                                                                              \
        if (::qel::report::Error(category, __FILE__, __LINE__, __VA_ARGS__) ==                     \
            ::qel::QueryDevice::Yes)                                                               \
            QEL_DEBUG_BREAK();                                                                     \
        else                                                                                       \
            ::qel::ErrorManager::GetSingletonInstance().ExitProcess();                             \
    } while (0)

#define QEL_TRACE(category, ...) ::qel::report::Trace(category, __VA_ARGS__)
