// The process-wide lock that serialises the creation and the teardown of
// every singleton of the library. Its instance is that critical section.
#pragma once

#include <qel/criticalsection.h>
#include <qel/export.h>

#include <atomic>

namespace qel
{

class QEL_API InstanceManager
{
public:
    static CriticalSection& GetSingletonInstance();
    // The lock, created on first use; null after the exit-time teardown.
    static CriticalSection* GetSingletonInstancePointer();
    static CriticalSection& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }
    static CriticalSection& GetCriticalSection() { return GetSingletonInstance(); }

private:
    // The bootstrap: builds the lock in static storage without locking (the
    // first singleton creation, in practice on the loading thread).
    static CriticalSection* CreateSingletonInstance();

    static std::atomic<CriticalSection*> ms_SingletonInstance;
};

} // namespace qel
