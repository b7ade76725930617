#include <qel/safeoutputfilestream.h>

#include <qel/file.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/mem.h>
#include <qel/pathobject.h>

#include <cstring>

namespace qel
{

namespace
{

[[noreturn]] void Refuse(const char* text, const char* path)
{
    PathObject where;
    where.SetVirtualPath(path);
    throw FileException(text, where, DiskDrive::DiskErrorUnknown, 0);
}

} // namespace

// ---- the temporary -----------------------------------------------------------

SafeOutputFileStream::Sink::~Sink()
{
    Set(nullptr);
    if (m_Buffer != nullptr)
        Mem::GetGeneralAlloc()->Free(m_Buffer);
}

void SafeOutputFileStream::Sink::Set(File* file)
{
    delete m_File;
    m_File = file;
    m_Open = file != nullptr;
}

void SafeOutputFileStream::Sink::Request(u64, unsigned char*& block, unsigned char*& current,
                                         unsigned char*& end)
{
    if (m_File != nullptr && m_Buffer == nullptr)
        m_Buffer = static_cast<unsigned char*>(Mem::GetGeneralAlloc()->Malloc(BufferSize));
    if (m_File == nullptr || m_Buffer == nullptr)
    {
        // The stream writes nothing; without a buffer (the allocator
        // reported it) the file is not whole.
        m_Short = m_Short || m_File != nullptr;
        block = current = end = nullptr;
        return;
    }
    block = current = m_Buffer;
    end = m_Buffer + BufferSize;
}

void SafeOutputFileStream::Sink::Return(void* block, void* end)
{
    if (m_File == nullptr || block == nullptr)
        return;
    const u32 count = u32(static_cast<unsigned char*>(end) - static_cast<unsigned char*>(block));
    if (m_File->Write(block, count) != count)
        m_Short = true;
}

void SafeOutputFileStream::Sink::Return(void* block)
{
    Return(block, static_cast<unsigned char*>(block) + BufferSize);
}

// ---- the stream ----------------------------------------------------------------

SafeOutputFileStream::SafeOutputFileStream(const char* path) : OutputStream(&m_Sink)
{
    const std::size_t length = path ? std::strlen(path) : 0;
    const std::size_t suffix = std::strlen(GetTemporarySuffix());
    if (length + suffix >= sizeof m_Temporary)
        Refuse("Path too long", path);
    std::memcpy(m_Target, path ? path : "", length + 1);
    std::memcpy(m_Temporary, m_Target, length);
    std::memcpy(m_Temporary + length, GetTemporarySuffix(), suffix + 1);

    FileManager& files = FileManager::GetSingletonInstance();
    const u32 flags = File::OpenCreatePath | File::OpenCreateNew;
    try
    {
        m_Sink.Set(files.OpenFile(m_Temporary, flags));
    }
    catch (const FileExistsException&)
    {
        files.DeleteFile(m_Temporary); // left by a save that did not end
        m_Sink.Set(files.OpenFile(m_Temporary, flags));
    }
}

SafeOutputFileStream::~SafeOutputFileStream()
{
    if (!m_Committed)
        Discard();
}

void SafeOutputFileStream::Discard()
{
    m_Block = nullptr; // what it holds is not written
    m_Sink.Set(nullptr);
    try
    {
        FileManager::GetSingletonInstance().DeleteFile(m_Temporary);
    }
    catch (...)
    {
        // Left behind: the next save of the target deletes it.
    }
}

void SafeOutputFileStream::Commit(bool durable)
{
    if (m_Committed)
        return;
    Flush();
    File* file = m_Sink.m_File;
    const bool whole = file != nullptr && !m_Sink.m_Short && (!durable || file->Flush());
    m_Sink.Set(nullptr); // closed before it is moved
    if (!whole)
    {
        Discard();
        Refuse("The file could not be written whole", m_Target);
    }
    FileManager::GetSingletonInstance().ReplaceFile(m_Temporary, m_Target);
    m_Committed = true;
}

} // namespace qel
