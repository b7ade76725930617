// The library's re-entrant lock.
//
// A thread that holds the section may enter it again; it must leave it as
// many times as it entered. On Windows this is a CRITICAL_SECTION; on POSIX a
// futex-based lock whose uncontended Enter and Leave are one atomic operation
// each, with no system call.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API CriticalSection
{
public:
    QEL_ALLOCATION_OPERATORS

    CriticalSection();
    ~CriticalSection();

    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void Enter();
    void Leave();
    // Enters the section if no other thread holds it; never blocks.
    bool TryEnter();

    // The names that every lock of the library shares.
    void Lock() { Enter(); }
    void Unlock() { Leave(); }

private:
    // Opaque storage for the platform's lock (a CRITICAL_SECTION is 40 bytes
    // on 64-bit Windows, 24 on 32-bit).
    alignas(8) unsigned char m_Storage[40];
};

// Holds a lock for the lifetime of a scope. Works with every lock of the
// library, the empty ones included: they all have Lock and Unlock.
template <class LockType>
class ScopedLock
{
public:
    explicit ScopedLock(LockType& lock) : m_Lock(lock) { m_Lock.Lock(); }
    ~ScopedLock() { m_Lock.Unlock(); }

    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    LockType& m_Lock;
};

} // namespace qel
