// The output provider and stream over caller-owned memory.
#include <qel/outputbufferstream.h>

namespace qel
{

void OutputBufferProvider::SetBuffer(void* begin, void* writtenEnd, void* capacityEnd)
{
    m_Begin = static_cast<unsigned char*>(begin);
    m_WrittenEnd = static_cast<unsigned char*>(writtenEnd);
    m_CapacityEnd = static_cast<unsigned char*>(capacityEnd);
    m_Open = m_Begin != nullptr;
}

void OutputBufferProvider::Request(u64 position, unsigned char*& block, unsigned char*& current,
                                   unsigned char*& end)
{
    if (position >= u64(m_CapacityEnd - m_Begin))
        throw BufferOverflow();
    block = m_Begin;
    current = m_Begin + std::size_t(position);
    end = m_CapacityEnd;
}

void OutputBufferProvider::Return(void*, void* end)
{
    m_WrittenEnd = static_cast<unsigned char*>(end);
}

void OutputBufferProvider::Return(void*)
{
    m_WrittenEnd = m_CapacityEnd;
}

OutputBufferStream::~OutputBufferStream()
{
    Finish();
}

void OutputBufferStream::SetBuffer(void* begin, void* writtenEnd, void* capacityEnd)
{
    Finish();
    m_BufferProvider.SetBuffer(begin, writtenEnd, capacityEnd);
    m_Position = 0;
}

void OutputBufferStream::Reset()
{
    m_Block = nullptr; // what it held is dropped, not written
    m_Position = 0;
    m_BufferProvider.Reset();
}

} // namespace qel
