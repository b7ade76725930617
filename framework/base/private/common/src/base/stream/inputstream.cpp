#include <qel/inputstream.h>

#include "base/stream/byteorder.h"

#include <cstring>

namespace qel
{

u32 InputStream::Read(void* buffer, u32 count)
{
    unsigned char* target = static_cast<unsigned char*>(buffer);
    u32 done = 0;
    while (done < count)
    {
        if (m_Block == nullptr)
        {
            u32 direct = 0;
            if (m_Provider->ReadDirect(m_Position, target + done, count - done, direct) &&
                direct > 0)
            {
                m_Position += direct;
                done += direct;
                continue;
            }
            RequestBlock();
            if (m_Current == m_End)
            {
                ReturnBlock(); // end of data
                break;
            }
        }
        const u32 wanted = count - done;
        const u32 left = Remaining();
        const u32 chunk = wanted < left ? wanted : left;
        std::memcpy(target + done, m_Current, chunk);
        m_Current += chunk;
        m_Position += chunk;
        done += chunk;
        if (m_Current == m_End)
            ReturnBlock(); // a block read to its end goes back at once
    }
    return done;
}

void InputStream::ReadAcross(void* value, u32 size)
{
    if (m_Block == nullptr)
        RequestBlock();
    if (Remaining() >= size)
    {
        std::memcpy(value, m_Current, size);
        m_Current += size;
        m_Position += size;
        if (m_Current == m_End)
            ReturnBlock(); // a block read to its end goes back at once
        return;
    }
    // The value straddles two blocks, or the data ends inside it: what is
    // missing reads as zeros.
    unsigned char* bytes = static_cast<unsigned char*>(value);
    for (u32 i = 0; i < size; ++i)
        ReadByte(bytes[i]);
}

void InputStream::ReadByte(unsigned char& value)
{
    if (m_Block == nullptr)
        RequestBlock();
    if (m_Current == m_End)
    {
        // The end of the data: nothing is read, and the empty block goes
        // back as Read(buffer, count) gives it back.
        value = 0;
        ReturnBlock();
        return;
    }
    value = *m_Current++;
    ++m_Position;
    if (m_Current == m_End)
        ReturnBlock();
}

template <class T>
u32 InputStream::ReadArray(T* values, u32 count, u32 elementSize)
{
    if (elementSize == sizeof(T))
        return Read(values, count * u32(sizeof(T))) / u32(sizeof(T));
    if (elementSize == 0 || elementSize > 8)
        return 0;
    u32 done = 0;
    for (; done < count; ++done)
    {
        unsigned char bytes[8];
        if (Read(bytes, elementSize) != elementSize)
            break;
        values[done] = static_cast<T>(ByteOrder::FromLowBytes(bytes, elementSize));
    }
    return done;
}

u32 InputStream::Read(unsigned char* values, u32 count, u32 elementSize)
{
    return ReadArray(values, count, elementSize);
}

u32 InputStream::Read(unsigned short* values, u32 count, u32 elementSize)
{
    return ReadArray(values, count, elementSize);
}

u32 InputStream::Read(u32* values, u32 count, u32 elementSize)
{
    return ReadArray(values, count, elementSize);
}

u32 InputStream::Read(u64* values, u32 count, u32 elementSize)
{
    return ReadArray(values, count, elementSize);
}

void InputStream::Skip(u32 count)
{
    m_Position += count;
    if (m_Block == nullptr)
        return;
    if (count >= Remaining())
        ReturnBlock(); // the next read asks for the block at the new position
    else
        m_Current += count;
}

} // namespace qel
