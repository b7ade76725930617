// Threads on POSIX: pthreads behind a gate. A thread created suspended waits
// at its gate before its routine starts; ThreadResume opens it, and the
// thread's own suspension closes it again. The thread's record is counted:
// the creator's handle, every duplicate and the running thread each hold it.
#include "base/thread/threadstart_native.h"

#include "base/thread/thread_native.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace qel
{
namespace native
{
namespace
{

struct Thread
{
    void (*routine)(void*);
    void* argument;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    u32 id = 0;
    u32 suspensions = 1; // created suspended
    bool ended = false;
    int priority = 0;
    std::atomic<int> references{2}; // the creator's handle and the thread itself
};

thread_local Thread* t_Self = nullptr;

void Release(Thread* thread)
{
    if (thread->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
    {
        pthread_mutex_destroy(&thread->mutex);
        pthread_cond_destroy(&thread->changed);
        thread->~Thread();
        std::free(thread);
    }
}

// Blocks while the thread's suspension count is above 0.
void PassGate(Thread* thread)
{
    pthread_mutex_lock(&thread->mutex);
    while (thread->suspensions > 0)
        pthread_cond_wait(&thread->changed, &thread->mutex);
    pthread_mutex_unlock(&thread->mutex);
}

void* Start(void* context)
{
    Thread* thread = static_cast<Thread*>(context);
    t_Self = thread;
    pthread_mutex_lock(&thread->mutex);
    thread->id = GetCurrentThreadId();
    pthread_cond_broadcast(&thread->changed); // the creator waits for the id
    pthread_mutex_unlock(&thread->mutex);

    PassGate(thread);
    // Linux keeps a nice value per thread; raising it needs privileges, so
    // only what the system allows is applied.
    static const int kNice[] = {19, 10, 0, -10, -20};
    if (thread->priority != 0)
        setpriority(PRIO_PROCESS, static_cast<id_t>(thread->id), kNice[thread->priority + 2]);
    thread->routine(thread->argument);

    pthread_mutex_lock(&thread->mutex);
    thread->ended = true;
    pthread_cond_broadcast(&thread->changed);
    pthread_mutex_unlock(&thread->mutex);
    t_Self = nullptr;
    Release(thread);
    return nullptr;
}

} // namespace

bool ThreadCreate(void (*routine)(void*), void* argument, u32 stackSize, ThreadHandle& handle,
                  u32& id)
{
    // The record is the system's side of the thread, like a Windows thread
    // object: it comes from the C heap because a thread may still be on its
    // way out when the library's allocators are torn down at exit.
    void* place = std::malloc(sizeof(Thread));
    if (place == nullptr)
        return false;
    Thread* thread = new (place) Thread;
    thread->routine = routine;
    thread->argument = argument;

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0)
    {
        const size_t minimum = PTHREAD_STACK_MIN;
        pthread_attr_setstacksize(&attributes, stackSize < minimum ? minimum : size_t(stackSize));
    }
    pthread_t system;
    const bool started = pthread_create(&system, &attributes, &Start, thread) == 0;
    pthread_attr_destroy(&attributes);
    if (!started)
    {
        thread->~Thread();
        std::free(thread);
        return false;
    }
    pthread_mutex_lock(&thread->mutex);
    while (thread->id == 0)
        pthread_cond_wait(&thread->changed, &thread->mutex);
    id = thread->id;
    pthread_mutex_unlock(&thread->mutex);
    handle = thread;
    return true;
}

void ThreadSetPriority(ThreadHandle handle, int priority)
{
    Thread* thread = static_cast<Thread*>(handle);
    pthread_mutex_lock(&thread->mutex);
    thread->priority = priority; // applied when the thread passes its gate
    pthread_mutex_unlock(&thread->mutex);
}

bool ThreadResume(ThreadHandle handle)
{
    Thread* thread = static_cast<Thread*>(handle);
    pthread_mutex_lock(&thread->mutex);
    if (thread->suspensions > 0 && --thread->suspensions == 0)
        pthread_cond_broadcast(&thread->changed);
    pthread_mutex_unlock(&thread->mutex);
    return true;
}

bool ThreadSuspendSelf()
{
    Thread* thread = t_Self;
    if (thread == nullptr)
        return false;
    pthread_mutex_lock(&thread->mutex);
    ++thread->suspensions;
    pthread_mutex_unlock(&thread->mutex);
    PassGate(thread);
    return true;
}

ThreadHandle ThreadDuplicate(ThreadHandle handle)
{
    static_cast<Thread*>(handle)->references.fetch_add(1, std::memory_order_relaxed);
    return handle;
}

void ThreadWait(ThreadHandle handle)
{
    Thread* thread = static_cast<Thread*>(handle);
    pthread_mutex_lock(&thread->mutex);
    while (!thread->ended)
        pthread_cond_wait(&thread->changed, &thread->mutex);
    pthread_mutex_unlock(&thread->mutex);
}

void ThreadClose(ThreadHandle handle)
{
    Release(static_cast<Thread*>(handle));
}

void ThreadYield()
{
    sched_yield();
}

#if defined(QEL_BASE_STATIC)

void* ThreadPinLibrary()
{
    return nullptr; // the library is part of the program
}

void ThreadUnpinLibraryAndExit(void*) {}

#else

namespace
{

// The library cannot unload itself from a thread that runs its code: the
// last reference is dropped by a thread-specific value's destructor, which
// the C library runs after the thread's routine has returned.
pthread_key_t g_PinKey;
pthread_once_t g_PinKeyOnce = PTHREAD_ONCE_INIT;

void DropPin(void* library)
{
    dlclose(library);
}

void MakePinKey()
{
    pthread_key_create(&g_PinKey, &DropPin);
}

} // namespace

void* ThreadPinLibrary()
{
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&ThreadPinLibrary), &info) == 0 || info.dli_fname == nullptr)
        return nullptr;
    return dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
}

void ThreadUnpinLibraryAndExit(void* token)
{
    if (token == nullptr)
        return;
    pthread_once(&g_PinKeyOnce, &MakePinKey);
    pthread_setspecific(g_PinKey, token);
}

#endif

} // namespace native
} // namespace qel
