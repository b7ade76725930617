// A recursive lock that can tell whether it is held.
//
// Lock counts the caller and records it as the owner before it waits for the
// lock, so a thread that is still waiting already counts: meanwhile IsLocked
// is true and TestAndLock fails for every other thread, the holder included.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API ThreadMutex
{
public:
    QEL_ALLOCATION_OPERATORS

    ThreadMutex();
    ~ThreadMutex();

    ThreadMutex(const ThreadMutex&) = delete;
    ThreadMutex& operator=(const ThreadMutex&) = delete;

    void Lock();
    void Unlock();
    // Fails when the last thread to lock is another one and the count is not
    // 0; otherwise takes the lock (re-entering it if the caller holds it).
    bool TestAndLock();
    bool IsLocked();

private:
    CriticalSection m_Main;
    u32 m_Count; // holders and waiters, under m_Guard
    u32 m_Owner; // the thread that locked last, under m_Guard
    CriticalSection m_Guard;
};

} // namespace qel
