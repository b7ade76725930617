// The library's one seam to the world around it: questions to the user,
// breaks into the debugger, debugger output and process exit.
//
// The default host does what the platform does: a message box on Windows,
// the default answer on POSIX; DebugBreak, or SIGTRAP when a debugger is
// attached; OutputDebugStringA, or standard error; abort(). Tests and
// applications with their own user interface derive from Host, override what
// they need and install their host with Host::Set.
//
// The environment variable QEL_QUERY_ANSWER (abort, cancel, ignore, retry,
// ok, yes or no) makes the default host answer every question with that
// answer, when the question offers it, without showing anything; the question
// and the answer are written to the debugger output. Unattended runs use it,
// and it answers questions asked before any code could install a host (the
// load guard's).
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/querydevice.h>
#include <qel/types.h>

namespace qel
{

class QEL_API Host
{
public:
    QEL_ALLOCATION_OPERATORS

    constexpr Host() = default;
    virtual ~Host();

    // Puts the question to the user and returns the answer.
    virtual QueryDevice::QueryAnswer Ask(u32 choice, const char* caption, const char* text);
    virtual void BreakIntoDebugger();
    // Sends a piece of text to the debugger's output.
    virtual void DebugOutput(const char* text);
    // Ends the process; the default never returns. A host that returns lets
    // the caller go on as if nothing happened.
    virtual void ExitProcess();

    // The host in use: the one installed last, or the platform's.
    static Host& Get();
    // Installs `host` (null: the platform's) and returns the previous one.
    static Host* Set(Host* host);

protected:
    Host(const Host&) = default;
    Host& operator=(const Host&) = default;
};

} // namespace qel
