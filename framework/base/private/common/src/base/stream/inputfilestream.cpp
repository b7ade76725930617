// The input provider and stream over a file opened through the file manager.
#include <qel/file.h>
#include <qel/filemanager.h>
#include <qel/inputfilestream.h>
#include <qel/mem.h>

namespace qel
{

InputFileProvider::~InputFileProvider()
{
    if (m_Buffer != nullptr)
        Mem::GetGeneralAlloc()->Free(m_Buffer);
    delete m_File;
}

void InputFileProvider::Open(const char* path)
{
    Set(FileManager::GetSingletonInstance().OpenFile(path, File::OpenRead | File::OpenExisting));
}

void InputFileProvider::Set(File* file)
{
    if (file != m_File)
        delete m_File;
    m_File = file;
    m_Open = file != nullptr;
}

u64 InputFileProvider::GetSize() const
{
    return m_File != nullptr ? m_File->GetFileSize() : 0;
}

void InputFileProvider::Request(u64 position, unsigned char*& block, unsigned char*& current,
                                unsigned char*& end)
{
    if (m_File == nullptr)
    {
        block = current = end = nullptr; // nothing to read
        return;
    }
    if (m_Buffer == nullptr)
        m_Buffer = static_cast<unsigned char*>(Mem::GetGeneralAlloc()->Malloc(BufferSize));
    // Seeking to where the last read stopped makes no system call.
    m_File->Seek(File::SeekBegin, position);
    const u32 count = m_Buffer != nullptr ? m_File->Read(m_Buffer, BufferSize) : 0;
    block = current = m_Buffer;
    end = m_Buffer + count;
}

bool InputFileProvider::ReadDirect(u64 position, void* buffer, u32 count, u32& read)
{
    if (m_File == nullptr || count < BufferSize)
        return false;
    m_File->Seek(File::SeekBegin, position);
    read = m_File->Read(buffer, count);
    return true;
}

void InputFileStream::Open(const char* path)
{
    m_FileProvider.Open(path);
    m_Block = nullptr; // the provider's buffer now belongs to the new file
    m_Position = 0;
}

} // namespace qel
