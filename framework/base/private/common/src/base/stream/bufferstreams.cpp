// The providers and streams over caller-owned memory.
#include <qel/inputbufferstream.h>
#include <qel/inputmemorystream.h>
#include <qel/outputbufferstream.h>

namespace qel
{

// ---- input buffer -----------------------------------------------------------

void InputBufferProvider::SetBuffer(const void* begin, const void* end)
{
    m_Begin = static_cast<unsigned char*>(const_cast<void*>(begin));
    m_End = static_cast<unsigned char*>(const_cast<void*>(end));
    m_Open = m_Begin != nullptr;
}

void InputBufferProvider::Request(u32 position, unsigned char*& block, unsigned char*& current,
                                  unsigned char*& end)
{
    if (position >= static_cast<u32>(m_End - m_Begin))
        throw BufferOverflow();
    block = m_Begin;
    current = m_Begin + position;
    end = m_End;
}

void InputBufferStream::SetBuffer(const void* begin, const void* end)
{
    m_BufferProvider.SetBuffer(begin, end);
    m_Block = nullptr;
    m_Position = 0;
}

// ---- output buffer ----------------------------------------------------------

void OutputBufferProvider::SetBuffer(void* begin, void* writtenEnd, void* capacityEnd)
{
    m_Begin = static_cast<unsigned char*>(begin);
    m_WrittenEnd = static_cast<unsigned char*>(writtenEnd);
    m_CapacityEnd = static_cast<unsigned char*>(capacityEnd);
    m_Open = m_Begin != nullptr;
}

void OutputBufferProvider::Request(u32 position, unsigned char*& block, unsigned char*& current,
                                   unsigned char*& end)
{
    if (position >= static_cast<u32>(m_CapacityEnd - m_Begin))
        throw BufferOverflow();
    block = m_Begin;
    current = m_Begin + position;
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

// ---- input memory -----------------------------------------------------------

void InputMemoryProvider::Initialize(const unsigned char* data, u32 size)
{
    m_Data = const_cast<unsigned char*>(data);
    m_Size = size;
    m_Open = data != nullptr;
}

void InputMemoryProvider::Request(u32 position, unsigned char*& block, unsigned char*& current,
                                  unsigned char*& end)
{
    block = current = m_Data + position;
    end = current + m_Size;
}

} // namespace qel
