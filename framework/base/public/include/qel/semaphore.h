// A counting semaphore: Lock takes one from the count, waiting while it is
// 0; Unlock gives one back, never past the maximum.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API Semaphore
{
public:
    QEL_ALLOCATION_OPERATORS

    // `initial` must not exceed `maximum`, and `maximum` must not be 0.
    Semaphore(u32 initial, u32 maximum);
    ~Semaphore();

    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // Waits without a time limit.
    void Lock();
    // Does nothing when the count is already at the maximum.
    void Unlock();
    // True when the count is 0. When it is not, the probe takes one and keeps
    // it: the caller then holds the semaphore.
    bool IsLocked();
    // Waits at most 1 ms; true when it took one.
    bool TestAndLock();

private:
    // The platform's semaphore: a handle on Windows; a mutex, a condition
    // variable and the counts on POSIX.
    alignas(8) unsigned char m_Storage[96];
};

} // namespace qel
