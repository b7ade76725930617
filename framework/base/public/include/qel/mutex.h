// A recursive lock, the same kind as CriticalSection, under the name that
// code shared with MutexBase uses.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>

namespace qel
{

class Mutex
{
public:
    QEL_ALLOCATION_OPERATORS

    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() { m_Section.Enter(); }
    void Unlock() { m_Section.Leave(); }
    // Takes the lock if no other thread holds it; never blocks.
    bool TestAndLock() { return m_Section.TryEnter(); }

private:
    CriticalSection m_Section;
};

} // namespace qel
