// Writing into memory that grows as needed.
//
// The provider lends the free tail of its data as the stream's block, so
// that values are written in place, and counts a block's bytes when it comes
// back. When fewer than StagingSize (2) bytes are free it grows the data to
// 2 x (capacity + 2) first: the capacities are those of a provider that
// appended 2-byte staging blocks, 2, 8, 20, 44, ...
//
// The stream's GetBuffer reports the bytes given back plus the whole pairs
// of bytes of the block in hand: after an odd count the last byte waits
// until the stream is flushed or destroyed, as it would in a 2-byte staging
// block. The provider's own GetBuffer reports the bytes given back.
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

    void Request(u64 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override;
    // Counts the bytes from `block` up to `end` (a lent tail), or appends
    // them (any other block).
    void Return(void* block, void* end) override;
    void Return(void* block) override;
    // Appends whole staging blocks' worth of `data` at once (an even count),
    // growing the data as 2-byte blocks would, when they do not fit in the
    // free tail.
    bool WriteDirect(u64 position, const void* data, u32 count, u32& written) override;

    // The data, owned by the provider, and in `size` the bytes it holds.
    unsigned char* GetBuffer(u32& size) const
    {
        size = m_Used;
        return m_Data;
    }
    u32 GetCapacity() const { return m_Capacity; }

private:
    // Makes room for `count` more bytes, growing the data to
    // 2 x (capacity + count) when they do not fit; false when memory runs
    // out (reported by the allocator).
    bool Reserve(u32 count);
    bool Append(const void* bytes, u32 count);

    unsigned char* m_Data;
    u32 m_Capacity;
    u32 m_Used;
    unsigned char* m_LentEnd; // the end of the tail in the stream's hands
};

class QEL_API OutputMemoryStream : public OutputStream
{
public:
    OutputMemoryStream() : OutputStream(&m_MemoryProvider) {}
    ~OutputMemoryStream() override;

    unsigned char* GetBuffer(u32& size) const
    {
        unsigned char* data = m_MemoryProvider.GetBuffer(size);
        if (m_Block != nullptr)
            size += u32(m_Current - m_Block) & ~1u;
        return data;
    }

private:
    OutputMemoryProvider m_MemoryProvider;
};

} // namespace qel
