// The empty stand-in for CriticalSection, for code that is written once and
// also runs single-threaded: every operation does nothing.
#pragma once

#include <qel/allocationoperators.h>
namespace qel
{

struct CriticalSectionBase
{
    QEL_ALLOCATION_OPERATORS

    void Lock() {}
    void Unlock() {}
    void Wait() {}
    void Signal() {}
    // Probes answer false, as those of every empty lock do.
    bool IsLocked() { return false; }
    bool TestAndLock() { return false; }

    // CriticalSection's own names. TryEnter succeeds, so that code written
    // for the real section goes on into its guarded part.
    void Enter() {}
    void Leave() {}
    bool TryEnter() { return true; }
};

} // namespace qel
