// The empty stand-in for Semaphore, for code that is written once and also
// runs single-threaded: every operation does nothing, and the probes answer
// false.
#pragma once

#include <qel/allocationoperators.h>
namespace qel
{

struct SemaphoreBase
{
    QEL_ALLOCATION_OPERATORS

    void Lock() {}
    void Unlock() {}
    void Wait() {}
    void Signal() {}
    bool IsLocked() { return false; }
    bool TestAndLock() { return false; }
};

} // namespace qel
