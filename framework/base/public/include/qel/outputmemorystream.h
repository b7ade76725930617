// Writing into memory that grows as needed.
//
// The provider hands out a staging block of 2 bytes and appends each block
// given back to its data, doubling past what is needed when it runs out of
// room. GetBuffer reports only the bytes given back so far: after an odd
// count the last byte waits in the staging block until the stream is
// flushed or destroyed.
#pragma once

#include <qel/export.h>
#include <qel/outputstream.h>
#include <qel/provider.h>
#include <qel/types.h>

namespace qel
{

class QEL_API OutputMemoryProvider : public Provider
{
public:
    enum
    {
        InitialCapacity = 2,
        StagingSize = 2
    };

    OutputMemoryProvider();
    ~OutputMemoryProvider() override;
    OutputMemoryProvider(const OutputMemoryProvider&) = delete;
    OutputMemoryProvider& operator=(const OutputMemoryProvider&) = delete;

    void Request(u32 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override;
    // Appends the bytes from `block` up to `end`.
    void Return(void* block, void* end) override;
    void Return(void* block) override;
    // Appends whole staging blocks' worth of `data` at once: the bytes are
    // given back exactly as the 2-byte blocks would give them, without a
    // call per block.
    bool WriteDirect(u32 position, const void* data, u32 count, u32& written) override;

    // The data, owned by the provider, and in `size` the bytes it holds.
    unsigned char* GetBuffer(u32& size) const
    {
        size = m_Used;
        return m_Data;
    }
    u32 GetCapacity() const { return m_Capacity; }

private:
    // Appends `count` bytes, growing the data; false when memory runs out.
    bool Append(const void* bytes, u32 count);

    unsigned char* m_Data;
    u32 m_Capacity;
    u32 m_Used;
    unsigned char m_Staging[StagingSize];
};

class QEL_API OutputMemoryStream : public OutputStream
{
public:
    OutputMemoryStream() : OutputStream(&m_MemoryProvider) {}
    ~OutputMemoryStream() override;

    unsigned char* GetBuffer(u32& size) const { return m_MemoryProvider.GetBuffer(size); }

private:
    OutputMemoryProvider m_MemoryProvider;
};

} // namespace qel
