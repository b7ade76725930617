// Writing into a caller's buffer of fixed capacity. The written end follows
// the blocks the stream gives back; asking for a position at or past the
// capacity throws BufferOverflow.
#pragma once

#include <qel/bufferoverflow.h>
#include <qel/export.h>
#include <qel/outputstream.h>
#include <qel/provider.h>

namespace qel
{

class QEL_API OutputBufferProvider : public Provider
{
public:
    OutputBufferProvider() = default;
    OutputBufferProvider(void* begin, void* writtenEnd, void* capacityEnd)
    {
        SetBuffer(begin, writtenEnd, capacityEnd);
    }

    void SetBuffer(void* begin, void* writtenEnd, void* capacityEnd);
    void Request(u64 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override;
    // Records `end` as the written end.
    void Return(void* block, void* end) override;
    // The whole buffer counts as written.
    void Return(void* block) override;

    // Sets the written end back to the start.
    void Reset() { m_WrittenEnd = m_Begin; }
    unsigned char* GetBegin() const { return m_Begin; }
    unsigned char* GetWrittenEnd() const { return m_WrittenEnd; }

private:
    unsigned char* m_Begin = nullptr;
    unsigned char* m_WrittenEnd = nullptr;
    unsigned char* m_CapacityEnd = nullptr;
};

class QEL_API OutputBufferStream : public OutputStream
{
public:
    OutputBufferStream() : OutputStream(&m_BufferProvider) {}
    OutputBufferStream(void* begin, void* writtenEnd, void* capacityEnd)
        : OutputStream(&m_BufferProvider), m_BufferProvider(begin, writtenEnd, capacityEnd)
    {
    }
    ~OutputBufferStream() override;

    // Writes into a new buffer from its start.
    void SetBuffer(void* begin, void* writtenEnd, void* capacityEnd);
    // Starts again at the beginning of the buffer: the written end goes back
    // to the start and the next byte is written there.
    void Reset();
    // Bytes given back to the provider so far (Flush gives back the rest).
    u32 GetWrittenSize() const
    {
        return static_cast<u32>(m_BufferProvider.GetWrittenEnd() - m_BufferProvider.GetBegin());
    }

private:
    OutputBufferProvider m_BufferProvider;
};

} // namespace qel
