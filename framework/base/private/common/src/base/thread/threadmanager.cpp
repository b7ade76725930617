#include <qel/threadmanager.h>

#include <qel/allocator.h>
#include <qel/mem.h>
#include <qel/report.h>

#include "base/core/singleton.h"
#include "base/thread/thread_native.h"
#include "base/thread/threadslot_native.h"
#include "base/thread/threadstart_native.h"

namespace qel
{

std::atomic<ThreadManager*> ThreadManager::ms_SingletonInstance{nullptr};

namespace
{

// What a new thread is handed: its entry and argument.
struct StartBlock
{
    void (*entry)(void*);
    void* argument;
};

} // namespace

// Every thread the manager starts runs this.
void ThreadRoutine(void* block)
{
    void* pin = native::ThreadPinLibrary();

    StartBlock start = *static_cast<StartBlock*>(block);
    if (Allocator* owner = Allocator::GetOwner(block))
        owner->Free(block);

    const u32 id = native::GetCurrentThreadId();
    start.entry(start.argument);

    // The library's per-thread state (the allocators' caches) goes back
    // before the thread leaves the table: from then on a Wait for it returns
    // at once, and whoever waited may tear the allocators down next.
    native::ThreadSlotEndNow();
    ThreadManager* manager = ThreadManager::ms_SingletonInstance.load(std::memory_order_acquire);
    if (manager == nullptr)
        manager = ThreadManager::CreateSingletonInstance(); // null after the teardown
    if (manager != nullptr)
        manager->UnRegisterThreadId(id);
    native::ThreadUnpinLibraryAndExit(pin);
}

// ---- the singleton and its memory -------------------------------------------

ThreadManager& ThreadManager::GetSingletonInstance()
{
    ThreadManager* instance = ms_SingletonInstance.load(std::memory_order_acquire);
    return instance ? *instance : *CreateSingletonInstance();
}

ThreadManager* ThreadManager::CreateSingletonInstance()
{
    return Singleton<ThreadManager, HeapStorage<ThreadManager>>::Create(ms_SingletonInstance,
                                                                        "ThreadManager");
}

ThreadManager::ThreadManager()
{
    // The table lives on the General allocator: making sure it exists now
    // puts its teardown after this manager's.
    Mem::GetGeneralAlloc();
}

// Threads still running keep their handles: only the table goes.
ThreadManager::~ThreadManager() = default;

// ---- public operations ------------------------------------------------------

u32 ThreadManager::Create(void (*entry)(void*), void* argument, s32 stackSize, s32 priority,
                          bool suspended)
{
    return GetSingletonInstance().CreateImp(entry, argument, stackSize, priority, suspended);
}

bool ThreadManager::Resume(u32 threadId)
{
    return GetSingletonInstance().ResumeImp(threadId);
}

void ThreadManager::Wait(s32 threadId)
{
    GetSingletonInstance().WaitImp(static_cast<u32>(threadId));
}

void ThreadManager::Suspend()
{
    GetSingletonInstance().SuspendImp();
}

void ThreadManager::Sleep()
{
    GetSingletonInstance().SleepImp();
}

u32 ThreadManager::GetThreadID()
{
    return GetSingletonInstance().GetThreadIDImp();
}

// ---- implementation ---------------------------------------------------------

u32 ThreadManager::CreateImp(void (*entry)(void*), void* argument, s32 stackSize, s32 priority,
                             bool suspended)
{
    Allocator* general = Mem::GetGeneralAlloc();
    StartBlock* block =
        general ? static_cast<StartBlock*>(general->Malloc(sizeof(StartBlock))) : nullptr;
    if (block == nullptr)
        return InvalidThreadId;
    block->entry = entry;
    block->argument = argument;

    native::ThreadHandle handle = nullptr;
    u32 id = 0;
    if (!native::ThreadCreate(&ThreadRoutine, block, stackSize > 0 ? u32(stackSize) : 0, handle,
                              id))
    {
        general->Free(block);
        return InvalidThreadId;
    }
    if (priority >= -2 && priority <= 2 && priority != 0)
        native::ThreadSetPriority(handle, int(priority));
    RegisterThreadId(id, handle);
    if (!suspended)
        native::ThreadResume(handle);
    return id;
}

void* ThreadManager::DuplicateHandle(u32 id)
{
    // The table is read under the lock: a thread that ends unregisters
    // itself, and the handle it closes must not be used here afterwards.
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 index = FindThreadIndex(id);
    if (index == m_Threads.size() || m_Threads[index].handle == nullptr)
        return nullptr;
    return native::ThreadDuplicate(m_Threads[index].handle);
}

bool ThreadManager::ResumeImp(u32 threadId)
{
    void* handle = DuplicateHandle(threadId);
    if (handle == nullptr)
        return false;
    const bool resumed = native::ThreadResume(handle);
    native::ThreadClose(handle);
    return resumed;
}

void ThreadManager::WaitImp(u32 threadId)
{
    if (void* handle = DuplicateHandle(threadId))
    {
        native::ThreadWait(handle);
        native::ThreadClose(handle);
    }
}

void ThreadManager::SuspendImp()
{
    // A thread the manager did not start has nobody to resume it.
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, native::ThreadSuspendSelf());
}

void ThreadManager::SleepImp()
{
    native::ThreadYield();
}

u32 ThreadManager::GetThreadIDImp()
{
    return native::GetCurrentThreadId();
}

void ThreadManager::RegisterThreadId(u32 id, void* handle)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    if (FindThreadIndex(id) == m_Threads.size())
        m_Threads.push_back(ThreadRecord{id, handle});
}

void ThreadManager::UnRegisterThreadId(u32 id)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    const u32 index = FindThreadIndex(id);
    if (index == m_Threads.size())
        return;
    native::ThreadClose(m_Threads[index].handle);
    m_Threads[index] = m_Threads.back();
    m_Threads.pop_back();
}

bool ThreadManager::IsThreadIdRegistered(u32 id)
{
    ScopedLock<CriticalSection> lock(m_Lock);
    return FindThreadIndex(id) != m_Threads.size();
}

u32 ThreadManager::FindThreadIndex(u32 id)
{
    u32 index = 0;
    while (index < m_Threads.size() && m_Threads[index].id != id)
        ++index;
    return index;
}

} // namespace qel
