// The empty stand-in for Event, for code that is written once and also runs
// single-threaded: every operation does nothing and Wait returns at once.
#pragma once

#include <qel/allocationoperators.h>
namespace qel
{

struct EventBase
{
    QEL_ALLOCATION_OPERATORS

    void Set() {}
    void Reset() {}
    void Pulse() {}
    void Wait() {}
};

} // namespace qel
