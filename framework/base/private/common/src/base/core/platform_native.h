// The operating-system services of the core, one implementation per
// platform (private/win32, private/posix).
#pragma once

#include <qel/querydevice.h>
#include <qel/types.h>

namespace qel
{
namespace native
{

// Shows a message box for the choice word and returns the answer; answers
// `fallback` where the platform has no message boxes or the box fails.
QueryDevice::QueryAnswer ShowMessageBox(u32 choice, const char* caption, const char* text,
                                        QueryDevice::QueryAnswer fallback);

// Stops in the debugger if one is attached (Windows: always, as DebugBreak).
void BreakIntoDebugger();

// Writes text to the debugger's output (POSIX: standard error).
void DebugOutput(const char* text);

void SleepMilliseconds(u32 milliseconds);

u32 GetCurrentProcessId();

// Copies the environment variable into `value` (terminated, cut to `size`);
// false when it is not set.
bool GetEnvironmentVariable(const char* name, char* value, u32 size);

} // namespace native
} // namespace qel
