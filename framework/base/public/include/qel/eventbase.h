// The empty stand-in for Event, for code that is written once and also runs
// single-threaded: every operation does nothing and Wait returns at once.
#pragma once

namespace qel
{

struct EventBase
{
    void Set() {}
    void Reset() {}
    void Pulse() {}
    void Wait() {}
};

} // namespace qel
