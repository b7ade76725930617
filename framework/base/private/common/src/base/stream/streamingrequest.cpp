#include <qel/streamingrequest.h>

#include <qel/errormanager.h>
#include <qel/file.h>
#include <qel/filemanager.h>
#include <qel/report.h>
#include <qel/streamingbuffer.h>
#include <qel/streamingmanager.h>

namespace qel
{

typedef ScopedLock<CriticalSection> Locked;

// ---- creation ---------------------------------------------------------------

StreamingRequest* StreamingRequest::Create(File* file, u32 dataRate)
{
    return Make(file, dataRate, dataRate / 2, 0, 0, true, true);
}

StreamingRequest* StreamingRequest::Create(File* file, u32 dataRate, u32 bufferSize)
{
    return Make(file, dataRate, bufferSize, 0, 0, true, true);
}

StreamingRequest* StreamingRequest::Create(File* file, u32 dataRate, u32 bufferSize, u64 offset)
{
    return Make(file, dataRate, bufferSize, offset, 0, true, true);
}

StreamingRequest* StreamingRequest::Create(File* file, u32 dataRate, u32 bufferSize, u64 offset,
                                           u64 total)
{
    return Make(file, dataRate, bufferSize, offset, total, false, true);
}

StreamingRequest* StreamingRequest::Create(File* file, u32 dataRate, u32 bufferSize, u64 offset,
                                           u64 total, bool active)
{
    return Make(file, dataRate, bufferSize, offset, total, false, active);
}

StreamingRequest* StreamingRequest::Create(const char* path, u32 dataRate)
{
    return Open(path, dataRate, dataRate / 2, 0, 0, true);
}

StreamingRequest* StreamingRequest::Create(const char* path, u32 dataRate, u32 bufferSize)
{
    return Open(path, dataRate, bufferSize, 0, 0, true);
}

StreamingRequest* StreamingRequest::Create(const char* path, u32 dataRate, u32 bufferSize,
                                           u64 offset)
{
    return Open(path, dataRate, bufferSize, offset, 0, true);
}

StreamingRequest* StreamingRequest::Create(const char* path, u32 dataRate, u32 bufferSize,
                                           u64 offset, u64 total)
{
    return Open(path, dataRate, bufferSize, offset, total, false);
}

bool StreamingRequest::Acceptable(File* file, u32 dataRate, u32 bufferSize)
{
    // Below these, a quarter of the rate reads nothing and the ring's
    // capacity, size - 1, would wrap around to 4 GB.
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, file != nullptr);
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, dataRate >= 4);
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, bufferSize >= 2);
    return file != nullptr && dataRate >= 4 && bufferSize >= 2;
}

StreamingRequest* StreamingRequest::Make(File* file, u32 dataRate, u32 bufferSize, u64 offset,
                                         u64 total, bool wholeFile, bool active)
{
    StreamingRequest* request = nullptr;
    if (Acceptable(file, dataRate, bufferSize))
    {
        if (wholeFile)
            total = file->GetFileSize();
        request = new StreamingRequest(file, dataRate, bufferSize, offset, total, active);
    }
    if (request == nullptr)
        delete file;
    return request;
}

StreamingRequest* StreamingRequest::Open(const char* path, u32 dataRate, u32 bufferSize, u64 offset,
                                         u64 total, bool wholeFile)
{
    // Refused arguments do not open the file; a missing one throws.
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, path != nullptr);
    if (path == nullptr || dataRate < 4 || bufferSize < 2)
        return Make(nullptr, dataRate, bufferSize, offset, total, wholeFile, true);
    File* file =
        FileManager::GetSingletonInstance().OpenFile(path, File::OpenRead | File::OpenExisting);
    return Make(file, dataRate, bufferSize, offset, total, wholeFile, true);
}

StreamingRequest::StreamingRequest(File* file, u32 dataRate, u32 bufferSize, u64 offset, u64 total,
                                   bool active)
    : m_File(file), m_Paused(false), m_Active(active), m_Total(total), m_Spare(0),
      m_DataRate(dataRate), m_Remaining(total), m_BufferSize(bufferSize), m_BytesRead(0),
      m_Buffer(nullptr), m_Marker(Marker)
{
    if (m_File->IsSeekSupported())
        m_File->Seek(File::SeekBegin, offset);
    m_Buffer = new StreamingBuffer(bufferSize);
    if (m_Buffer != nullptr && !m_Buffer->IsValid())
    {
        delete m_Buffer; // its storage was refused (and reported)
        m_Buffer = nullptr;
    }
}

StreamingRequest::~StreamingRequest()
{
    // A manager that is gone (or was never made) lists nobody.
    if (StreamingManager* manager =
            StreamingManager::ms_SingletonInstance.load(std::memory_order_acquire))
        manager->Remove(this);
    delete m_Buffer;
    delete m_File;
    m_Marker = 0;
}

// ---- reading ----------------------------------------------------------------

u32 StreamingRequest::Read(s64 target)
{
    Locked locked(m_Lock);
    QEL_ASSERT(ErrorManager::BaseCategory, m_Marker == Marker);
    if (m_Buffer == nullptr)
        return 0;
    s64 chunk = target - s64(m_BytesRead);
    if (chunk > s64(m_DataRate / 2))
        chunk = m_DataRate / 2;
    if (chunk < 1) // ahead of the target: keep the ring topped up anyway
        chunk = m_DataRate / 4;
    if (chunk > s64(m_Remaining))
        chunk = m_Remaining;
    const u32 read = m_Buffer->Read(m_File, u32(chunk));
    m_BytesRead += read;
    m_Remaining -= read;
    return read;
}

u32 StreamingRequest::Copy(void* out, u32 count)
{
    Locked locked(m_Lock);
    return m_Buffer != nullptr ? m_Buffer->Copy(static_cast<unsigned char*>(out), count) : 0;
}

u32 StreamingRequest::Peek(const void*& data)
{
    Locked locked(m_Lock);
    const unsigned char* piece = nullptr;
    const u32 count = m_Buffer != nullptr ? m_Buffer->Peek(piece) : 0;
    data = piece;
    return count;
}

u32 StreamingRequest::Skip(u32 count)
{
    Locked locked(m_Lock);
    return m_Buffer != nullptr ? m_Buffer->Skip(count) : 0;
}

u32 StreamingRequest::DataAvailable()
{
    Locked locked(m_Lock);
    return m_Buffer != nullptr ? m_Buffer->DataAvailable() : 0;
}

void StreamingRequest::Reset(u64 offset)
{
    Locked locked(m_Lock);
    m_BytesRead = 0;
    m_Spare = 0;
    m_Remaining = offset < m_Total ? m_Total - offset : 0;
    if (m_Buffer != nullptr)
        m_Buffer->Reset();
    if (m_File->IsSeekSupported())
        m_File->Seek(File::SeekBegin, offset);
}

void StreamingRequest::Pause(bool paused)
{
    Locked locked(m_Lock);
    m_Paused = paused;
}

bool StreamingRequest::Paused()
{
    Locked locked(m_Lock);
    return m_Paused;
}

namespace
{

u32 Saturated(u64 count)
{
    return count < 0xFFFFFFFFu ? u32(count) : 0xFFFFFFFFu;
}

} // namespace

u32 StreamingRequest::BytesRead()
{
    return Saturated(BytesRead64());
}

u32 StreamingRequest::BytesRemaining()
{
    return Saturated(BytesRemaining64());
}

u64 StreamingRequest::BytesRead64()
{
    Locked locked(m_Lock);
    return m_BytesRead;
}

u64 StreamingRequest::BytesRemaining64()
{
    Locked locked(m_Lock);
    return m_Remaining;
}

u32 StreamingRequest::BufferCapacity() const
{
    return m_Buffer != nullptr ? m_Buffer->Size() : 0;
}

bool StreamingRequest::Visit()
{
    Locked locked(m_Lock);
    return !m_Paused && m_Remaining > 0;
}

} // namespace qel
