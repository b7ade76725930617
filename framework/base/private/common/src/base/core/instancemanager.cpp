#include <qel/instancemanager.h>

#include "base/core/singleton.h"

#include <cstdlib>
#include <new>

namespace qel
{

std::atomic<CriticalSection*> InstanceManager::ms_SingletonInstance{nullptr};

namespace
{

bool g_InstanceManagerConstructed = false;
alignas(CriticalSection) unsigned char g_InstanceManagerStorage[sizeof(CriticalSection)];

} // namespace

CriticalSection& InstanceManager::GetSingletonInstance()
{
    return *GetSingletonInstancePointer();
}

CriticalSection* InstanceManager::GetSingletonInstancePointer()
{
    CriticalSection* instance = ms_SingletonInstance.load(std::memory_order_acquire);
    return instance ? instance : CreateSingletonInstance();
}

CriticalSection* InstanceManager::CreateSingletonInstance()
{
    if (!g_InstanceManagerConstructed)
    {
        g_InstanceManagerConstructed = true;
        ms_SingletonInstance.store(new (g_InstanceManagerStorage) CriticalSection,
                                   std::memory_order_release);
        // The lock is the first singleton made, so its teardown runs last.
        RegisterExitHandler(
            []
            {
                CriticalSection* lock = ms_SingletonInstance.exchange(nullptr);
                if (lock)
                    lock->~CriticalSection();
            });
    }
    CriticalSection* instance = ms_SingletonInstance.load(std::memory_order_acquire);
    if (instance == nullptr)
        ReportSingletonFailure("InstanceManager");
    return instance;
}

} // namespace qel
