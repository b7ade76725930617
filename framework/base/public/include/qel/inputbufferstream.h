// Reading from a caller's buffer. Asking for a position at or past the end
// of the buffer throws BufferOverflow.
#pragma once

#include <qel/bufferoverflow.h>
#include <qel/export.h>
#include <qel/inputstream.h>
#include <qel/provider.h>

namespace qel
{

class QEL_API InputBufferProvider : public Provider
{
public:
    InputBufferProvider() = default;
    InputBufferProvider(const void* begin, const void* end) { SetBuffer(begin, end); }

    void SetBuffer(const void* begin, const void* end);
    void Request(u64 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override;

private:
    unsigned char* m_Begin = nullptr;
    unsigned char* m_End = nullptr;
};

class QEL_API InputBufferStream : public InputStream
{
public:
    InputBufferStream() : InputStream(&m_BufferProvider) {}
    InputBufferStream(const void* begin, const void* end)
        : InputStream(&m_BufferProvider), m_BufferProvider(begin, end)
    {
    }

    // Reads `begin` to `end` from the start.
    void SetBuffer(const void* begin, const void* end);

private:
    InputBufferProvider m_BufferProvider;
};

} // namespace qel
