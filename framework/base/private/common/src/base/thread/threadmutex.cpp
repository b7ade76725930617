#include <qel/threadmutex.h>

#include "base/thread/thread_native.h"

namespace qel
{

ThreadMutex::ThreadMutex() : m_Count(0), m_Owner(0) {}

ThreadMutex::~ThreadMutex() = default;

void ThreadMutex::Lock()
{
    m_Guard.Enter();
    ++m_Count;
    m_Owner = native::GetCurrentThreadId();
    m_Guard.Leave();
    m_Main.Enter();
}

void ThreadMutex::Unlock()
{
    m_Main.Leave();
    m_Guard.Enter();
    --m_Count;
    m_Guard.Leave();
}

bool ThreadMutex::TestAndLock()
{
    const u32 self = native::GetCurrentThreadId();
    ScopedLock<CriticalSection> guard(m_Guard);
    if (m_Count != 0 && m_Owner != self)
        return false;
    // Nobody holds or waits for the main section, or the caller holds it:
    // entering cannot block, so holding the guard meanwhile is safe.
    m_Main.Enter();
    ++m_Count;
    m_Owner = self;
    return true;
}

bool ThreadMutex::IsLocked()
{
    ScopedLock<CriticalSection> guard(m_Guard);
    return m_Count != 0;
}

} // namespace qel
