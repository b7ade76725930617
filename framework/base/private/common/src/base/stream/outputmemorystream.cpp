// The output memory provider and stream: a buffer from the general allocator
// that grows as the stream gives its staging blocks back.
#include <qel/mem.h>
#include <qel/outputmemorystream.h>

#include <cstring>

namespace qel
{

OutputMemoryProvider::OutputMemoryProvider()
    : m_Data(static_cast<unsigned char*>(Mem::GetGeneralAlloc()->Malloc(InitialCapacity))),
      m_Capacity(m_Data != nullptr ? u32(InitialCapacity) : 0), m_Used(0), m_LentEnd(nullptr)
{
    m_Open = true;
}

OutputMemoryProvider::~OutputMemoryProvider()
{
    if (m_Data != nullptr)
        Mem::GetGeneralAlloc()->Free(m_Data);
}

bool OutputMemoryProvider::Reserve(u32 count)
{
    if (count <= m_Capacity - m_Used)
        return true;
    // Double past what is needed, so that appends stay amortised.
    const u32 capacity = 2 * (m_Capacity + count);
    unsigned char* data = static_cast<unsigned char*>(Mem::GetGeneralAlloc()->Malloc(capacity));
    if (data == nullptr)
        return false;
    if (m_Data != nullptr)
    {
        std::memcpy(data, m_Data, m_Used);
        Mem::GetGeneralAlloc()->Free(m_Data);
    }
    m_Data = data;
    m_Capacity = capacity;
    return true;
}

bool OutputMemoryProvider::Append(const void* bytes, u32 count)
{
    if (!Reserve(count))
        return false;
    std::memcpy(m_Data + m_Used, bytes, count);
    m_Used += count;
    return true;
}

void OutputMemoryProvider::Request(u64, unsigned char*& block, unsigned char*& current,
                                   unsigned char*& end)
{
    if (!Reserve(StagingSize) && m_Capacity == m_Used)
    {
        block = current = end = nullptr; // out of memory: no room at all
        return;
    }
    block = current = m_Data + m_Used;
    end = m_LentEnd = m_Data + m_Capacity;
}

void OutputMemoryProvider::Return(void* block, void* end)
{
    unsigned char* first = static_cast<unsigned char*>(block);
    const u32 count = static_cast<u32>(static_cast<unsigned char*>(end) - first);
    if (first == m_Data + m_Used && m_LentEnd != nullptr)
        m_Used += count; // the bytes are in place already
    else if (count != 0)
        Append(block, count); // on failure the bytes are lost
    m_LentEnd = nullptr;
}

void OutputMemoryProvider::Return(void* block)
{
    if (m_LentEnd != nullptr)
        Return(block, m_LentEnd);
}

bool OutputMemoryProvider::WriteDirect(u64, const void* data, u32 count, u32& written)
{
    // What fits in the free tail goes through a lent block, so that the
    // values after it are written in place too.
    const u32 whole = count - count % StagingSize;
    if (whole == 0 || whole <= m_Capacity - m_Used || !Append(data, whole))
        return false;
    written = whole;
    return true;
}

OutputMemoryStream::~OutputMemoryStream()
{
    Finish();
}

} // namespace qel
