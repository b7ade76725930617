#include <qel/semaphore.h>

#include <qel/report.h>

#include "base/thread/thread_native.h"

namespace qel
{

Semaphore::Semaphore(u32 initial, u32 maximum)
{
    static_assert(sizeof m_Storage >= native::SyncObjectSize, "Semaphore storage too small");
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, maximum != 0 && initial <= maximum);
    native::SemaphoreCreate(m_Storage, initial, maximum);
}

Semaphore::~Semaphore()
{
    native::SemaphoreDestroy(m_Storage);
}

void Semaphore::Lock()
{
    native::SemaphoreWait(m_Storage, native::WaitForever);
}

void Semaphore::Unlock()
{
    native::SemaphoreRelease(m_Storage);
}

bool Semaphore::IsLocked()
{
    return !native::SemaphoreWait(m_Storage, 0);
}

bool Semaphore::TestAndLock()
{
    return native::SemaphoreWait(m_Storage, 1);
}

} // namespace qel
