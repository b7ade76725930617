// The library's thread slot on POSIX: a thread-local word and a key.
#include "base/thread/threadslot_native.h"

#include <pthread.h>

namespace qel
{
namespace native
{

__thread void* t_ThreadSlot QEL_THREAD_SLOT_TLS = &g_ThreadSlotStart;

namespace
{

pthread_key_t g_Key;
void (*g_AtExit)(void*) = nullptr;

void RunAtExit(void* value)
{
    g_AtExit(value);
}

// The key goes with the library: a thread that ends later must not call
// into code that is no longer mapped. Its value is then left as it is.
struct KeyRelease
{
    ~KeyRelease()
    {
        if (g_AtExit != nullptr)
            pthread_key_delete(g_Key);
        g_AtExit = nullptr;
    }
} g_KeyRelease;

} // namespace

bool ThreadSlotCreate(void (*atExit)(void*))
{
    if (pthread_key_create(&g_Key, &RunAtExit) != 0)
        return false;
    g_AtExit = atExit;
    return true;
}

void ThreadSlotSet(void* value)
{
    t_ThreadSlot = value;
    pthread_setspecific(g_Key, value);
}

void ThreadSlotEndNow()
{
    if (g_AtExit == nullptr)
        return;
    void* value = pthread_getspecific(g_Key);
    if (value == nullptr)
        return;
    pthread_setspecific(g_Key, nullptr);
    g_AtExit(value);
}

} // namespace native
} // namespace qel
