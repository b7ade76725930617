// The thread manager: the one way the library starts threads.
//
// Create starts a thread suspended, sets its priority, records it in the
// manager's table and resumes it unless asked not to. A thread stays in the
// table until its entry function returns. While a thread runs, the library
// stays loaded even if its last user unloads it (where the library is a
// loadable module).
//
// Priorities: -2 lowest, -1 below normal, 1 above normal, 2 highest; any
// other value is normal. On POSIX they are best effort: raising a thread's
// priority needs privileges there.
//
// The manager's own object lives on the Native allocator; its table and the
// start blocks handed to new threads come from the General allocator.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/export.h>
#include <qel/generalallocator.h>
#include <qel/types.h>

#include <atomic>
#include <cstddef>
#include <vector>

namespace qel
{

class QEL_API ThreadManager
{
public:
    enum : u32
    {
        InvalidThreadId = 0xFFFFFFFFu
    };

    // The new thread's id, or InvalidThreadId when it could not be started.
    static u32 Create(void (*entry)(void*), void* argument, s32 stackSize, s32 priority,
                      bool suspended);
    // False for an unknown id or when the system refuses.
    static bool Resume(u32 threadId);
    // Returns when the thread has ended; at once for an unknown id.
    static void Wait(s32 threadId);
    // Suspends the calling thread until Resume of its id.
    static void Suspend();
    // Gives up the rest of the time slice.
    static void Sleep();
    static u32 GetThreadID();

    static ThreadManager& GetSingletonInstance();
    static ThreadManager& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }

    virtual ~ThreadManager();

    // The manager's memory comes from the Native allocator.
    QEL_NATIVE_ALLOCATION_OPERATORS

private:
    template <class T, class Storage>
    friend class Singleton;
    friend void ThreadRoutine(void* startBlock);

    struct ThreadRecord
    {
        u32 id;
        void* handle;
    };

    ThreadManager();
    ThreadManager(const ThreadManager&) = delete;
    ThreadManager& operator=(const ThreadManager&) = delete;

    static ThreadManager* CreateSingletonInstance();

    u32 CreateImp(void (*entry)(void*), void* argument, s32 stackSize, s32 priority,
                  bool suspended);
    bool ResumeImp(u32 threadId);
    void WaitImp(u32 threadId);
    void SuspendImp();
    void SleepImp();
    u32 GetThreadIDImp();
    void RegisterThreadId(u32 id, void* handle);
    void UnRegisterThreadId(u32 id);
    bool IsThreadIdRegistered(u32 id);
    u32 FindThreadIndex(u32 id);
    // A handle of its own to the thread `id` (closed by the caller), or null.
    void* DuplicateHandle(u32 id);

    std::vector<ThreadRecord, GeneralAllocator<ThreadRecord>> m_Threads;
    CriticalSection m_Lock;

    static std::atomic<ThreadManager*> ms_SingletonInstance;
};

} // namespace qel
