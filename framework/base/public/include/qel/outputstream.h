// Output streams: write bytes and values into blocks of a provider.
//
// Values are written in the host's byte order. The array forms take the
// size each element has in the stream: the natural size writes the array in
// one bulk copy; another size from 1 to 8 writes every value as an integer of
// that many bytes in the host's order, cut to its low-order bytes when
// narrower and zero-extended when wider. Sizes 0 and above 8 write nothing.
#pragma once

#include <qel/export.h>
#include <qel/stream.h>
#include <qel/types.h>

#include <cstring>

namespace qel
{

class QEL_API OutputStream : public GenericStream<OutputStreamBase>
{
public:
    ~OutputStream() override;

    // Returns the number of bytes written (fewer only when the provider runs
    // out of room).
    u32 Write(const void* data, u32 count);

    // Inline while the value fits in the current block with a byte to spare;
    // the rest (no block yet, a full block, straddling values) is out of
    // line.
    void Write(unsigned char value) { WriteValue(value); }
    void Write(unsigned short value) { WriteValue(value); }
    void Write(u32 value) { WriteValue(value); }
    void Write(u64 value) { WriteValue(value); }

    // Return the number of whole values written.
    u32 Write(const unsigned char* values, u32 count, u32 elementSize);
    u32 Write(const unsigned short* values, u32 count, u32 elementSize);
    u32 Write(const u32* values, u32 count, u32 elementSize);
    u32 Write(const u64* values, u32 count, u32 elementSize);

    // Gives the block written so far back to the provider now, so that its
    // bytes reach the sink; the next write asks for a new block.
    void Flush();

protected:
    explicit OutputStream(Provider* provider = nullptr) : GenericStream(provider) {}
    // Gives the partly filled block back if the provider is open. Every
    // concrete stream calls it from its destructor, while its provider still
    // lives.
    void Finish();
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

private:
    template <class T>
    void WriteValue(T value)
    {
        if (m_Block != nullptr && Remaining() > sizeof(T))
        {
            std::memcpy(m_Current, &value, sizeof(T));
            m_Current += sizeof(T);
            m_Position += sizeof(T);
        }
        else
            WriteAcross(&value, sizeof(T));
    }
    void WriteAcross(const void* value, u32 size);
    template <class T>
    u32 WriteArray(const T* values, u32 count, u32 elementSize);
};

} // namespace qel
