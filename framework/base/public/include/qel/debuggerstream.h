// The debugger stream: an output stream whose provider sends every block
// given back to the debugger's output (standard error on POSIX), each piece
// followed by a pause of 1 ms so that a debugger reading the output is not
// flooded.
#pragma once

#include <qel/export.h>
#include <qel/outputstream.h>
#include <qel/provider.h>

#include <atomic>

namespace qel
{

class QEL_API DebuggerProvider : public Provider
{
public:
    enum
    {
        BufferSize = 1024 // 1023 bytes handed out, the last keeps a terminating zero
    };

    DebuggerProvider();

    // Hands out the whole buffer; the size is ignored.
    void Request(u64 size, unsigned char*& begin, unsigned char*& cursor,
                 unsigned char*& end) override;
    // Terminates the text at `end` and sends it to the debugger.
    void Return(void* cursor, void* end) override;
    void Return(void* cursor) override;

private:
    unsigned char m_Buffer[BufferSize];
};

class QEL_API DebuggerStream : public OutputStream
{
public:
    DebuggerStream();
    ~DebuggerStream() override;

    // The default instance, created on first use (null after its teardown).
    static DebuggerStream& GetDefaultInstance();
    static DebuggerStream& GetDefaultInstanceFast()
    {
        return *ms_DefaultInstance.load(std::memory_order_acquire);
    }

private:
    template <class T, class Storage>
    friend class Singleton;

    static DebuggerStream* CreateDefaultInstance();

    DebuggerProvider m_DebuggerProvider;

    static std::atomic<DebuggerStream*> ms_DefaultInstance;
};

} // namespace qel
