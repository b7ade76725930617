// Writing a file in blocks of 65536 bytes.
//
// Every full block is written as soon as the stream gives it back; the last,
// partly filled one when the stream is flushed or destroyed. The provider
// owns its File and deletes it, which closes it.
#pragma once

#include <qel/export.h>
#include <qel/file.h>
#include <qel/outputstream.h>
#include <qel/provider.h>
#include <qel/types.h>

namespace qel
{

class QEL_API OutputFileProvider : public Provider
{
public:
    enum : u32
    {
        BufferSize = 65536,
        // Creates the missing folders and replaces what is there.
        DefaultOpenFlags = File::OpenCreatePath | File::OpenCreateAlways
    };

    OutputFileProvider() = default;
    explicit OutputFileProvider(const char* path) { Open(path); }
    OutputFileProvider(const char* path, u32 openFlags) { Open(path, openFlags); }
    explicit OutputFileProvider(File* file) { Set(file); }
    ~OutputFileProvider() override;
    OutputFileProvider(const OutputFileProvider&) = delete;
    OutputFileProvider& operator=(const OutputFileProvider&) = delete;

    void Open(const char* path) { Open(path, DefaultOpenFlags); }
    void Open(const char* path, u32 openFlags);
    // Takes `file` over, deleting the one held before.
    void Set(File* file);
    File* GetFile() const { return m_File; }

    // The whole buffer, whatever the position: blocks are written in order.
    void Request(u64 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override;
    // Writes the bytes from `block` up to `end`.
    void Return(void* block, void* end) override;
    void Return(void* block) override;

private:
    File* m_File = nullptr;
    unsigned char* m_Buffer = nullptr; // from the general allocator, on first request
};

class QEL_API OutputFileStream : public OutputStream
{
public:
    OutputFileStream() : OutputStream(&m_FileProvider) {}
    explicit OutputFileStream(const char* path)
        : OutputStream(&m_FileProvider), m_FileProvider(path)
    {
    }
    OutputFileStream(const char* path, u32 openFlags)
        : OutputStream(&m_FileProvider), m_FileProvider(path, openFlags)
    {
    }
    explicit OutputFileStream(File* file) : OutputStream(&m_FileProvider), m_FileProvider(file) {}
    ~OutputFileStream() override;

    // Writes what is pending to the file held, then starts `path` afresh.
    void Open(const char* path) { Open(path, OutputFileProvider::DefaultOpenFlags); }
    void Open(const char* path, u32 openFlags);

private:
    OutputFileProvider m_FileProvider;
};

} // namespace qel
