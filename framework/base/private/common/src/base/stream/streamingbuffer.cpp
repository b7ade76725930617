#include <qel/streamingbuffer.h>

#include <qel/errormanager.h>
#include <qel/file.h>
#include <qel/mem.h>
#include <qel/report.h>

#include <cstdint>
#include <cstring>

namespace qel
{

typedef ScopedLock<CriticalSection> Locked;

namespace
{

// memcpy moves large blocks with the processor's string-move instruction,
// which on some processors runs more than ten times slower when the
// destination lies less than 64 bytes past the source modulo 4 KB; a copy
// out of the ring, which wraps at any byte, meets every distance. Such
// copies go in blocks of fixed size, which compilers turn into vector moves.
void CopyOut(unsigned char* out, const unsigned char* from, u32 count)
{
    const std::uintptr_t distance = (std::uintptr_t(out) - std::uintptr_t(from)) & 4095u;
    if (distance == 0 || distance >= 64)
    {
        std::memcpy(out, from, count);
        return;
    }
    u32 done = 0;
    for (; count - done >= 64; done += 64)
        std::memcpy(out + done, from + done, 64);
    std::memcpy(out + done, from + done, count - done);
}

} // namespace

StreamingBuffer::StreamingBuffer(u32 size)
    : m_Storage(nullptr), m_Read(nullptr), m_Write(nullptr), m_Start(nullptr), m_End(nullptr),
      m_Capacity(0), m_Marker(Marker)
{
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, size >= 2);
    if (size < 2)
        return;
    // The storage is the size plus its remainder modulo 1024; past 4 GB the
    // request is cut to what an allocation can ask for, which still covers
    // the ring.
    const u64 bytes = u64(size) + (size & 0x3FFu);
    const unsigned int request = bytes > 0xFFFFFFFFu ? 0xFFFFFFFFu : unsigned(bytes);
    Allocator* general = Mem::GetGeneralAlloc();
    m_Storage = general ? static_cast<unsigned char*>(general->Malloc(request)) : nullptr;
    if (m_Storage == nullptr)
        return;
    m_Capacity = size - 1;
    m_Start = m_Read = m_Write = m_Storage;
    m_End = m_Storage + m_Capacity;
}

StreamingBuffer::~StreamingBuffer()
{
    if (m_Storage != nullptr)
        Mem::GetGeneralAlloc()->Free(m_Storage);
    m_Marker = 0;
}

void StreamingBuffer::Reset()
{
    Locked locked(m_Lock);
    m_Read = m_Write = m_Start;
}

u32 StreamingBuffer::DataAvailable()
{
    Locked locked(m_Lock);
    return AvailableLocked();
}

u32 StreamingBuffer::AvailableLocked() const
{
    if (m_Write == m_Read)
        return 0;
    if (m_Write > m_Read)
        return u32(m_Write - m_Read);
    return u32((m_End - m_Start) - (m_Read - m_Write));
}

u32 StreamingBuffer::PieceLocked()
{
    // The read pointer wraps only when bytes wait past the end.
    if (m_Read == m_End && m_Write != m_Read)
        m_Read = m_Start;
    return u32((m_Write >= m_Read ? m_Write : m_End) - m_Read);
}

u32 StreamingBuffer::TakeLocked(unsigned char* out, u32 count)
{
    const u32 available = AvailableLocked();
    if (count > available)
        count = available;
    u32 taken = 0;
    while (taken < count)
    {
        const u32 contiguous = PieceLocked();
        const u32 piece = count - taken < contiguous ? count - taken : contiguous;
        if (out != nullptr)
            CopyOut(out + taken, m_Read, piece);
        m_Read += piece;
        taken += piece;
    }
    return taken;
}

u32 StreamingBuffer::Copy(unsigned char* out, u32 count)
{
    Locked locked(m_Lock);
    return TakeLocked(out, count);
}

u32 StreamingBuffer::Peek(const unsigned char*& data)
{
    Locked locked(m_Lock);
    const u32 piece = PieceLocked();
    data = piece != 0 ? m_Read : nullptr;
    return piece;
}

u32 StreamingBuffer::Skip(u32 count)
{
    Locked locked(m_Lock);
    return TakeLocked(nullptr, count);
}

u32 StreamingBuffer::Read(File* file, u32 count)
{
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, file != nullptr);
    if (file == nullptr)
        return 0;
    Locked locked(m_Lock);
    const u32 room = m_Capacity - AvailableLocked();
    if (count > room)
        count = room;
    // An empty ring starts again at its start: its whole capacity is then one
    // piece, read in one call at the file's alignment, where an emptied ring
    // left its pointers near the end would read a few bytes up to it first.
    if (m_Read == m_Write)
        m_Read = m_Write = m_Start;
    u32 total = 0;
    while (total < count)
    {
        if (m_Write == m_End)
        {
            if (AvailableLocked() == m_Capacity)
                break;
            m_Write = m_Start;
        }
        // Behind the read pointer, one byte stays free so that equal
        // pointers keep meaning empty.
        const u32 contiguous = m_Write >= m_Read ? u32(m_End - m_Write) : u32(m_Read - m_Write - 1);
        if (contiguous == 0)
            break;
        const u32 wanted = count - total < contiguous ? count - total : contiguous;
        const u32 got = file->Read(m_Write, wanted);
        m_Write += got;
        total += got;
        if (got < wanted)
            break; // the end of the file
    }
    return total;
}

} // namespace qel
