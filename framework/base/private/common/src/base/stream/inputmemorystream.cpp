// The input memory provider: a block of memory read in place.
#include <qel/inputmemorystream.h>

namespace qel
{

void InputMemoryProvider::Initialize(const unsigned char* data, u32 size)
{
    m_Data = const_cast<unsigned char*>(data);
    m_Size = size;
    m_Open = data != nullptr;
}

void InputMemoryProvider::Request(u64 position, unsigned char*& block, unsigned char*& current,
                                  unsigned char*& end)
{
    block = current = m_Data + std::size_t(position);
    end = current + m_Size;
}

} // namespace qel
