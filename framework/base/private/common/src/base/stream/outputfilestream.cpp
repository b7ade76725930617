// The output provider and stream over a file opened through the file manager.
#include <qel/file.h>
#include <qel/filemanager.h>
#include <qel/mem.h>
#include <qel/outputfilestream.h>

namespace qel
{

OutputFileProvider::~OutputFileProvider()
{
    if (m_Buffer != nullptr)
        Mem::GetGeneralAlloc()->Free(m_Buffer);
    delete m_File;
}

void OutputFileProvider::Open(const char* path, u32 openFlags)
{
    Set(FileManager::GetSingletonInstance().OpenFile(path, openFlags));
}

void OutputFileProvider::Set(File* file)
{
    if (file != m_File)
        delete m_File;
    m_File = file;
    m_Open = file != nullptr;
}

void OutputFileProvider::Request(u64, unsigned char*& block, unsigned char*& current,
                                 unsigned char*& end)
{
    if (m_File != nullptr && m_Buffer == nullptr)
        m_Buffer = static_cast<unsigned char*>(Mem::GetGeneralAlloc()->Malloc(BufferSize));
    if (m_File == nullptr || m_Buffer == nullptr)
    {
        block = current = end = nullptr; // no sink: the stream writes nothing
        return;
    }
    block = current = m_Buffer;
    end = m_Buffer + BufferSize;
}

void OutputFileProvider::Return(void* block, void* end)
{
    if (m_File == nullptr || block == nullptr)
        return;
    m_File->Write(block, static_cast<u32>(static_cast<unsigned char*>(end) -
                                          static_cast<unsigned char*>(block)));
}

void OutputFileProvider::Return(void* block)
{
    Return(block, static_cast<unsigned char*>(block) + BufferSize);
}

OutputFileStream::~OutputFileStream()
{
    Finish();
}

void OutputFileStream::Open(const char* path, u32 openFlags)
{
    Finish(); // the tail belongs to the file held until now
    m_FileProvider.Open(path, openFlags);
    m_Position = 0;
}

} // namespace qel
