#include <qel/debuggerstream.h>

#include <qel/host.h>

#include "base/core/platform_native.h"
#include "base/core/singleton.h"

namespace qel
{

std::atomic<DebuggerStream*> DebuggerStream::ms_DefaultInstance{nullptr};

DebuggerProvider::DebuggerProvider() : m_Buffer()
{
    m_Open = true;
}

void DebuggerProvider::Request(u64, unsigned char*& begin, unsigned char*& cursor,
                               unsigned char*& end)
{
    begin = cursor = m_Buffer;
    end = m_Buffer + BufferSize - 1;
}

void DebuggerProvider::Return(void* cursor)
{
    Return(cursor, m_Buffer + BufferSize - 1);
}

void DebuggerProvider::Return(void*, void* end)
{
    *static_cast<unsigned char*>(end) = 0;
    Host::Get().DebugOutput(reinterpret_cast<const char*>(m_Buffer));
    native::SleepMilliseconds(1); // do not flood a debugger that reads the output
}

DebuggerStream::DebuggerStream() : OutputStream(&m_DebuggerProvider) {}

DebuggerStream::~DebuggerStream()
{
    Finish();
}

DebuggerStream& DebuggerStream::GetDefaultInstance()
{
    DebuggerStream* instance = ms_DefaultInstance.load(std::memory_order_acquire);
    return instance ? *instance : *CreateDefaultInstance();
}

DebuggerStream* DebuggerStream::CreateDefaultInstance()
{
    return Singleton<DebuggerStream>::Create(ms_DefaultInstance, "qel::DebuggerStream");
}

} // namespace qel
