// Input streams: read bytes and values from blocks of a provider.
//
// Values are read in the host's byte order; a value that straddles two
// blocks is assembled byte by byte. The single-value reads do not check for
// the end of data: reading past it is the caller's error (bulk reads return
// a short count instead). The array forms take the size each element has in
// the stream: the natural size reads the array in one bulk copy; another size
// from 1 to 8 reads every value as an integer of that many bytes in the
// host's order, widened with zeros or cut to the type's low-order bytes.
// Sizes 0 and above 8 read nothing.
#pragma once

#include <qel/export.h>
#include <qel/stream.h>
#include <qel/types.h>

#include <cstring>

namespace qel
{

class QEL_API InputStream : public GenericStream<InputStreamBase>
{
public:
    // Returns the number of bytes read: fewer than `count` only at the end
    // of the data.
    u32 Read(void* buffer, u32 count);

    // Inline while the value lies inside the current block, with a byte to
    // spare; the rest (block ends, straddling values) is out of line.
    void Read(unsigned char& value) { ReadValue(value); }
    void Read(unsigned short& value) { ReadValue(value); }
    void Read(u32& value) { ReadValue(value); }
    void Read(u64& value) { ReadValue(value); }

    // Return the number of whole values read.
    u32 Read(unsigned char* values, u32 count, u32 elementSize);
    u32 Read(unsigned short* values, u32 count, u32 elementSize);
    u32 Read(u32* values, u32 count, u32 elementSize);
    u32 Read(u64* values, u32 count, u32 elementSize);

    // Moves the position on by `count` bytes without reading them.
    void Skip(u32 count);

protected:
    explicit InputStream(Provider* provider = nullptr) : GenericStream(provider) {}
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;

private:
    template <class T>
    void ReadValue(T& value)
    {
        if (m_Block != nullptr && Remaining() > sizeof(T))
        {
            std::memcpy(&value, m_Current, sizeof(T));
            m_Current += sizeof(T);
            m_Position += sizeof(T);
        }
        else
            ReadAcross(&value, sizeof(T));
    }
    void ReadAcross(void* value, u32 size);
    void ReadByte(unsigned char& value);
    template <class T>
    u32 ReadArray(T* values, u32 count, u32 elementSize);
};

} // namespace qel
