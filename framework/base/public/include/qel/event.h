// An auto-reset event with a twist: after Set it stays signalled for every
// waiter until Reset, while Pulse lets exactly one waiter through.
//
// Underneath is an auto-reset event; a waiter that passes signals it again
// unless the event was Reset (or only Pulsed) since the last Set.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

#include <atomic>

namespace qel
{

class QEL_API Event
{
public:
    QEL_ALLOCATION_OPERATORS

    enum : u32
    {
        WaitForever = 0xFFFFFFFFu,
    };

    // An event made set lets one waiter through, as after Pulse.
    explicit Event(bool initiallySet = false);
    ~Event();

    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    // Signals the event for every waiter until Reset.
    void Set();
    void Reset();
    // Signals the event for one waiter (the next one if nobody waits).
    void Pulse();
    void Wait();
    // Waits at most `milliseconds` (WaitForever: no limit); false when the
    // time ran out.
    bool Wait(u32 milliseconds);

private:
    // The platform's event: a handle on Windows; a mutex, a condition
    // variable and the state on POSIX.
    alignas(8) unsigned char m_Storage[96];
    // True after construction and Reset, false after Set.
    std::atomic<bool> m_ResetFlag;
};

} // namespace qel
