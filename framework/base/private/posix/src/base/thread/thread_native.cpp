// Thread services on POSIX. Semaphores and events share one object: a count
// with a maximum under a mutex, and a condition variable on the monotonic
// clock for the waiters. An auto-reset event is such a count with maximum 1.
#include "base/thread/thread_native.h"

#include <cerrno>
#include <ctime>
#include <new>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qel
{
namespace native
{
namespace
{

struct Gate
{
    pthread_mutex_t mutex;
    pthread_cond_t changed;
    u32 count;
    u32 maximum;
};

static_assert(sizeof(Gate) <= SyncObjectSize && alignof(Gate) <= 8, "Gate does not fit");

Gate& Get(void* object)
{
    return *std::launder(static_cast<Gate*>(object));
}

void Create(void* object, u32 initial, u32 maximum)
{
    Gate* gate = new (object) Gate;
    pthread_mutex_init(&gate->mutex, nullptr);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&gate->changed, &attributes);
    pthread_condattr_destroy(&attributes);
    gate->count = initial < maximum ? initial : maximum;
    gate->maximum = maximum;
}

void Destroy(void* object)
{
    Gate& gate = Get(object);
    pthread_cond_destroy(&gate.changed);
    pthread_mutex_destroy(&gate.mutex);
    gate.~Gate();
}

bool Release(void* object)
{
    Gate& gate = Get(object);
    pthread_mutex_lock(&gate.mutex);
    const bool released = gate.count < gate.maximum;
    if (released)
    {
        ++gate.count;
        pthread_cond_signal(&gate.changed);
    }
    pthread_mutex_unlock(&gate.mutex);
    return released;
}

bool Take(void* object, u32 milliseconds)
{
    Gate& gate = Get(object);
    pthread_mutex_lock(&gate.mutex);
    if (milliseconds == WaitForever)
    {
        while (gate.count == 0)
            pthread_cond_wait(&gate.changed, &gate.mutex);
    }
    else if (gate.count == 0 && milliseconds != 0)
    {
        timespec deadline;
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        deadline.tv_sec += milliseconds / 1000;
        deadline.tv_nsec += long(milliseconds % 1000) * 1000000L;
        if (deadline.tv_nsec >= 1000000000L)
        {
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        while (gate.count == 0 &&
               pthread_cond_timedwait(&gate.changed, &gate.mutex, &deadline) != ETIMEDOUT)
        {
        }
    }
    const bool taken = gate.count != 0;
    if (taken)
        --gate.count;
    pthread_mutex_unlock(&gate.mutex);
    return taken;
}

} // namespace

void SemaphoreCreate(void* object, u32 initial, u32 maximum)
{
    Create(object, initial, maximum);
}

void SemaphoreDestroy(void* object)
{
    Destroy(object);
}

bool SemaphoreRelease(void* object)
{
    return Release(object);
}

bool SemaphoreWait(void* object, u32 milliseconds)
{
    return Take(object, milliseconds);
}

void EventCreate(void* object, bool signalled)
{
    Create(object, signalled ? 1 : 0, 1);
}

void EventDestroy(void* object)
{
    Destroy(object);
}

void EventSet(void* object)
{
    Release(object); // already signalled: stays so
}

void EventReset(void* object)
{
    Gate& gate = Get(object);
    pthread_mutex_lock(&gate.mutex);
    gate.count = 0;
    pthread_mutex_unlock(&gate.mutex);
}

bool EventWait(void* object, u32 milliseconds)
{
    return Take(object, milliseconds);
}

u32 GetCurrentThreadId()
{
    return static_cast<u32>(syscall(SYS_gettid));
}

bool GetStackBounds(std::uintptr_t& low, std::size_t& size)
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return false;
    void* address = nullptr;
    const bool known = pthread_attr_getstack(&attributes, &address, &size) == 0;
    pthread_attr_destroy(&attributes);
    low = reinterpret_cast<std::uintptr_t>(address);
    return known;
}

} // namespace native
} // namespace qel
