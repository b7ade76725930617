#include <qel/event.h>

#include "base/thread/thread_native.h"

namespace qel
{

static_assert(Event::WaitForever == native::WaitForever, "one value for no time limit");

Event::Event(bool initiallySet) : m_ResetFlag(true)
{
    static_assert(sizeof m_Storage >= native::SyncObjectSize, "Event storage too small");
    native::EventCreate(m_Storage, initiallySet);
}

Event::~Event()
{
    native::EventDestroy(m_Storage);
}

void Event::Set()
{
    m_ResetFlag.store(false);
    native::EventSet(m_Storage);
}

void Event::Reset()
{
    m_ResetFlag.store(true);
    native::EventReset(m_Storage);
}

void Event::Pulse()
{
    native::EventSet(m_Storage);
}

void Event::Wait()
{
    Wait(WaitForever);
}

bool Event::Wait(u32 milliseconds)
{
    if (!native::EventWait(m_Storage, milliseconds))
        return false;
    // The wait unsignalled the event; a Set one stays signalled for the next.
    if (!m_ResetFlag.load())
        native::EventSet(m_Storage);
    return true;
}

} // namespace qel
