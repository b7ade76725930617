// The output memory provider and stream: a buffer from the general allocator
// that grows as the stream gives its staging blocks back.
#include <qel/mem.h>
#include <qel/outputmemorystream.h>

#include <cstring>

namespace qel
{

OutputMemoryProvider::OutputMemoryProvider()
    : m_Data(static_cast<unsigned char*>(Mem::GetGeneralAlloc()->Malloc(InitialCapacity))),
      m_Capacity(m_Data != nullptr ? u32(InitialCapacity) : 0), m_Used(0), m_Staging()
{
    m_Open = true;
}

OutputMemoryProvider::~OutputMemoryProvider()
{
    if (m_Data != nullptr)
        Mem::GetGeneralAlloc()->Free(m_Data);
}

void OutputMemoryProvider::Request(u32, unsigned char*& block, unsigned char*& current,
                                   unsigned char*& end)
{
    block = current = m_Staging;
    end = m_Staging + StagingSize;
}

bool OutputMemoryProvider::Append(const void* bytes, u32 count)
{
    if (count > m_Capacity - m_Used)
    {
        // Double past what is needed, so that appends stay amortised.
        const u32 capacity = 2 * (m_Capacity + count);
        unsigned char* data = static_cast<unsigned char*>(Mem::GetGeneralAlloc()->Malloc(capacity));
        if (data == nullptr)
            return false; // reported by the allocator
        if (m_Data != nullptr)
        {
            std::memcpy(data, m_Data, m_Capacity);
            Mem::GetGeneralAlloc()->Free(m_Data);
        }
        m_Data = data;
        m_Capacity = capacity;
    }
    std::memcpy(m_Data + m_Used, bytes, count);
    m_Used += count;
    return true;
}

void OutputMemoryProvider::Return(void* block, void* end)
{
    const u32 count =
        static_cast<u32>(static_cast<unsigned char*>(end) - static_cast<unsigned char*>(block));
    if (count != 0)
        Append(block, count); // on failure the bytes are lost
}

bool OutputMemoryProvider::WriteDirect(u32, const void* data, u32 count, u32& written)
{
    const u32 whole = count - count % StagingSize;
    if (whole == 0 || !Append(data, whole))
        return false;
    written = whole;
    return true;
}

void OutputMemoryProvider::Return(void* block)
{
    Return(block, static_cast<unsigned char*>(block) + StagingSize);
}

OutputMemoryStream::~OutputMemoryStream()
{
    Finish();
}

} // namespace qel
