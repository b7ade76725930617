// The input provider and stream over caller-owned memory.
#include <qel/inputbufferstream.h>

namespace qel
{

void InputBufferProvider::SetBuffer(const void* begin, const void* end)
{
    m_Begin = static_cast<unsigned char*>(const_cast<void*>(begin));
    m_End = static_cast<unsigned char*>(const_cast<void*>(end));
    m_Open = m_Begin != nullptr;
}

void InputBufferProvider::Request(u64 position, unsigned char*& block, unsigned char*& current,
                                  unsigned char*& end)
{
    if (position >= u64(m_End - m_Begin))
        throw BufferOverflow();
    block = m_Begin;
    current = m_Begin + std::size_t(position);
    end = m_End;
}

void InputBufferStream::SetBuffer(const void* begin, const void* end)
{
    m_BufferProvider.SetBuffer(begin, end);
    m_Block = nullptr;
    m_Position = 0;
}

} // namespace qel
