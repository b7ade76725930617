#include <qel/file.h>

#include <qel/errormanager.h>
#include <qel/report.h>

#include <cstring>

namespace qel
{

File::File(const char* fileName, DiskDrive* owner, u64 size, u32 openFlags, bool seekSupported,
           bool writeSupported)
    : m_Owner(owner), m_SeekSupported(seekSupported), m_WriteSupported(writeSupported),
      m_Size(size), m_Position(0), m_OpenFlags(openFlags)
{
    std::size_t length = fileName ? std::strlen(fileName) : 0;
    if (length > FileNameSize - 1)
        length = FileNameSize - 1;
    std::memcpy(m_FileName, fileName ? fileName : "", length);
    m_FileName[length] = '\0';
}

File::~File() = default;

u32 File::Read(void* buffer, u32 count)
{
    u32 done = DoRead(buffer, count);
    m_Position += done;
    return done;
}

u32 File::Write(const void* buffer, u32 count)
{
    u32 done = DoWrite(buffer, count);
    m_Position += done;
    return done;
}

u64 File::Seek(SeekMode mode, u64 offset)
{
    u64 target = offset;
    if (mode == SeekEnd)
        target = m_Size - offset;
    else if (mode == SeekCurrent)
        target = m_Position + offset;
    if (target != m_Position)
        m_Position = DoSeek(target);
    return m_Position;
}

u32 File::DoRead(void*, u32)
{
    QEL_FATAL_ERROR(ErrorManager::BaseCategory,
                    "This methods need to be implemented: File::DoRead");
    return 0;
}

u32 File::DoWrite(const void*, u32)
{
    QEL_FATAL_ERROR(ErrorManager::BaseCategory,
                    "This methods need to be implemented: File::DoWrite");
    return 0;
}

u64 File::DoSeek(u64)
{
    QEL_FATAL_ERROR(ErrorManager::BaseCategory,
                    "This methods need to be implemented: File::DoSeek");
    return m_Position;
}

bool File::DoFlush()
{
    return true;
}

} // namespace qel
