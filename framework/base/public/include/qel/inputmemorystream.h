// Reading from memory the caller keeps.
//
// The provider hands out, for any position, a block reaching `size` bytes
// past it: blocks are deliberately not clipped at the end of the data, so a
// memory stream never reports the end by itself and its reader stops at
// GetSize().
#pragma once

#include <qel/export.h>
#include <qel/inputstream.h>
#include <qel/provider.h>
#include <qel/types.h>

namespace qel
{

class QEL_API InputMemoryProvider : public Provider
{
public:
    InputMemoryProvider() = default;
    InputMemoryProvider(const unsigned char* data, u32 size) { Initialize(data, size); }

    void Initialize(const unsigned char* data, u32 size);
    void Request(u64 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override;
    u32 GetSize() const { return m_Size; }

private:
    unsigned char* m_Data = nullptr;
    u32 m_Size = 0;
};

class QEL_API InputMemoryStream : public InputStream
{
public:
    InputMemoryStream(const unsigned char* data, u32 size)
        : InputStream(&m_MemoryProvider), m_MemoryProvider(data, size)
    {
    }
    u64 GetSize() const { return m_MemoryProvider.GetSize(); }

private:
    InputMemoryProvider m_MemoryProvider;
};

} // namespace qel
