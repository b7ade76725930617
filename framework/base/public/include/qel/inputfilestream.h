// Reading a file in blocks of 65536 bytes.
//
// Each block is read at the position the stream asks for; the file is only
// sought when that position is not where the last read left it, so reading
// straight through never seeks. The provider owns its File and deletes it.
//
// A read of a whole block or more does not pass through the provider's
// buffer: the stream hands the caller's memory to ReadDirect and the file
// reads into it. The bytes are the same, one copy fewer; this is deliberate.
#pragma once

#include <qel/export.h>
#include <qel/inputstream.h>
#include <qel/provider.h>
#include <qel/types.h>

namespace qel
{

class File;

class QEL_API InputFileProvider : public Provider
{
public:
    enum
    {
        BufferSize = 65536
    };

    InputFileProvider() = default;
    // Opens `path` (a virtual path); the file manager throws when it is
    // missing.
    explicit InputFileProvider(const char* path) { Open(path); }
    explicit InputFileProvider(File* file) { Set(file); }
    ~InputFileProvider() override;
    InputFileProvider(const InputFileProvider&) = delete;
    InputFileProvider& operator=(const InputFileProvider&) = delete;

    void Open(const char* path);
    // Takes `file` over, deleting the one held before.
    void Set(File* file);
    File* GetFile() const { return m_File; }
    u64 GetSize() const;

    // Reads of a whole block or more go straight to the caller's memory.
    bool ReadDirect(u64 position, void* buffer, u32 count, u32& read) override;
    void Request(u64 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override;

private:
    File* m_File = nullptr;
    unsigned char* m_Buffer = nullptr; // from the general allocator, on first request
};

class QEL_API InputFileStream : public InputStream
{
public:
    InputFileStream() : InputStream(&m_FileProvider) {}
    explicit InputFileStream(const char* path) : InputStream(&m_FileProvider), m_FileProvider(path)
    {
    }
    explicit InputFileStream(File* file) : InputStream(&m_FileProvider), m_FileProvider(file) {}

    // Reads `path` from its start.
    void Open(const char* path);
    u64 GetSize() const { return m_FileProvider.GetSize(); }

private:
    InputFileProvider m_FileProvider;
};

} // namespace qel
