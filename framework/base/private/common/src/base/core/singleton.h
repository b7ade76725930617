// The one implementation of the singleton pattern that every manager uses.
//
// A manager X keeps `static std::atomic<X*> ms_SingletonInstance`, befriends
// Singleton<X, Storage> and creates itself with
//     Singleton<X, Storage>::Create(ms_SingletonInstance, "name in the message")
// Creation happens once, under the instance manager's lock; the teardown is
// registered with the runtime's exit list, so singletons die at exit (or
// unload) in reverse order of creation. After the teardown the pointer stays
// null and the instance is never made again: a request shows the "FATAL
// SINGLETON ERROR" box and yields null.
#pragma once

#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/instancemanager.h>

#include <atomic>
#include <new>

namespace qel
{

// Shows the "FATAL SINGLETON ERROR" box for `className`.
QEL_API void ReportSingletonFailure(const char* className);
// Runs `handler` at process exit or library unload (the runtime's exit list).
QEL_API void RegisterExitHandler(void (*handler)());

// Storage policies: where the instance lives. Allocate returns null on
// failure; the instance is then reported missing.
template <class T>
struct StaticStorage
{
    static constexpr bool DestroyUnderLock = false;
    static void* Allocate()
    {
        alignas(T) static unsigned char storage[sizeof(T)];
        return storage;
    }
    static void Free(void*) {}
};

// On the heap, through the class's own allocation operators (the thread
// manager's go to the Native allocator, the factory's to General); a failed
// allocation is reported there and leaves the instance missing. Destroyed
// under the instance manager's lock.
template <class T>
struct HeapStorage
{
    static constexpr bool DestroyUnderLock = true;
    static void* Allocate() { return T::operator new(sizeof(T)); }
    static void Free(void* p) { T::operator delete(p); }
};

template <class T, class Storage = StaticStorage<T>>
class Singleton
{
public:
    static T* Create(std::atomic<T*>& pointer, const char* className)
    {
        // The lock is gone only at the very end of the process, after every
        // singleton's teardown: nothing can be created then anyway.
        CriticalSection* lock = InstanceManager::GetSingletonInstancePointer();
        if (lock)
            lock->Enter();
        // Made once; when its memory could not be had, the next request
        // tries again.
        if (ms_Pointer == nullptr && lock)
            if (void* place = Storage::Allocate())
            {
                ms_Pointer = &pointer;
                pointer.store(new (place) T, std::memory_order_release);
                RegisterExitHandler(&Teardown);
            }
        T* instance = pointer.load(std::memory_order_acquire);
        if (instance == nullptr)
            ReportSingletonFailure(className);
        if (lock)
            lock->Leave();
        return instance;
    }

private:
    static void Teardown()
    {
        CriticalSection* lock = InstanceManager::GetSingletonInstancePointer();
        if (lock)
            lock->Enter();
        T* instance = ms_Pointer->exchange(nullptr, std::memory_order_acq_rel);
        if (Storage::DestroyUnderLock)
            Destroy(instance);
        if (lock)
            lock->Leave();
        if (!Storage::DestroyUnderLock)
            Destroy(instance);
    }

    static void Destroy(T* instance)
    {
        if (instance == nullptr)
            return;
        instance->~T();
        Storage::Free(instance);
    }

    // Set once the instance was made (the construction guard): the pointer
    // that the teardown clears.
    static std::atomic<T*>* ms_Pointer;
};

template <class T, class Storage>
std::atomic<T*>* Singleton<T, Storage>::ms_Pointer = nullptr;

} // namespace qel
