#include <qel/outputstream.h>

#include "base/stream/byteorder.h"

#include <cstring>

namespace qel
{

OutputStream::~OutputStream() = default;

void OutputStream::Finish()
{
    if (m_Block != nullptr && m_Provider != nullptr && m_Provider->IsOpen())
        m_Provider->Return(m_Block, m_Current);
    m_Block = nullptr;
}

void OutputStream::Flush()
{
    if (m_Block == nullptr)
        return;
    m_Provider->Return(m_Block, m_Current);
    m_Block = nullptr;
}

u32 OutputStream::Write(const void* data, u32 count)
{
    const unsigned char* source = static_cast<const unsigned char*>(data);
    u32 written = 0;
    while (written < count)
    {
        if (m_Block == nullptr)
        {
            u32 direct = 0;
            if (m_Provider->WriteDirect(m_Position, source + written, count - written, direct) &&
                direct > 0)
            {
                m_Position += direct;
                written += direct;
                continue;
            }
            RequestBlock();
            if (m_Current == m_End)
            {
                m_Block = nullptr; // no room at all: the sink is full
                break;
            }
        }
        const u32 wanted = count - written;
        const u32 room = Remaining();
        const u32 chunk = wanted < room ? wanted : room;
        std::memcpy(m_Current, source + written, chunk);
        m_Current += chunk;
        m_Position += chunk;
        written += chunk;
        if (m_Current == m_End)
            ReturnBlock(); // a full block goes back at once
    }
    return written;
}

void OutputStream::WriteAcross(const void* value, u32 size)
{
    if (m_Block != nullptr && Remaining() >= size)
    {
        std::memcpy(m_Current, value, size);
        m_Current += size;
        m_Position += size;
        if (m_Current == m_End)
            ReturnBlock(); // a full block goes back at once
        return;
    }
    // Between blocks the provider may take the value directly; a value that
    // straddles two blocks is split.
    Write(value, size);
}

template <class T>
u32 OutputStream::WriteArray(const T* values, u32 count, u32 elementSize)
{
    if (elementSize == sizeof(T))
        return Write(values, count * u32(sizeof(T))) / u32(sizeof(T));

    if (elementSize == 0 || elementSize > 8)
        return 0;
    u32 done = 0;
    for (; done < count; ++done)
    {
        unsigned char bytes[8];
        ByteOrder::ToLowBytes(values[done], bytes, elementSize);
        if (Write(bytes, elementSize) != elementSize)
            break;
    }
    return done;
}

u32 OutputStream::Write(const unsigned char* values, u32 count, u32 elementSize)
{
    return WriteArray(values, count, elementSize);
}

u32 OutputStream::Write(const unsigned short* values, u32 count, u32 elementSize)
{
    return WriteArray(values, count, elementSize);
}

u32 OutputStream::Write(const u32* values, u32 count, u32 elementSize)
{
    return WriteArray(values, count, elementSize);
}

u32 OutputStream::Write(const u64* values, u32 count, u32 elementSize)
{
    return WriteArray(values, count, elementSize);
}

} // namespace qel
