// The memory subsystem's fatal reports.
#pragma once

#include <qel/types.h>

namespace qel
{
namespace memory
{

extern const char kMallocFailed[];

// A fatal error of the memory subsystem: under the error manager's lock the
// message is formatted and shown; a Yes breaks into the debugger, and then
// the process ends whatever the answer. Returns if the host lets it go on.
void ReportFatal(u32 category, const char* file, u32 line, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

} // namespace memory
} // namespace qel
