// An open file: sequential reads and writes with a tracked 64-bit position,
// seeking and flushing. A drive opens it; the caller owns it and closes it
// by deleting it.
//
// Read, Write, Seek and Flush do the bookkeeping and leave the system calls
// to the Do* operations of the drive's own file class. The size is the one
// found at opening: writing does not change it, so SeekEnd counts from it.
#pragma once

#include <qel/export.h>
#include <qel/interface.h>
#include <qel/types.h>

namespace qel
{

class DiskDrive;

class QEL_API File : public Interface
{
public:
    enum
    {
        FileNameSize = 256
    };

    // Bits of the open flags.
    enum OpenFlags : u32
    {
        // Open for reading; without it the file is opened for writing. A
        // file is never open for both.
        OpenRead = 0x001,
        // When the path does not exist, the file manager creates the
        // missing directories and opens again.
        OpenCreatePath = 0x002,
        // Writing: create a new file, fail when it exists. Writing with no
        // creation flag does the same.
        OpenCreateNew = 0x010,
        // Writing: create, or overwrite what is there.
        OpenCreateAlways = 0x020,
        // Reading: the file must exist.
        OpenExisting = 0x040,
        // Open the file if it exists, else create it.
        OpenAlways = 0x080,
        // Reading: truncate an existing file.
        OpenTruncate = 0x100,
    };

    enum SeekMode
    {
        SeekBegin = 0,   // offset from the start
        SeekEnd = 1,     // offset back from the size at opening
        SeekCurrent = 2, // offset from the position
    };

    // `fileName` is the virtual path it was opened by (cut to 255
    // characters).
    File(const char* fileName, DiskDrive* owner, u64 size, u32 openFlags, bool seekSupported,
         bool writeSupported);
    ~File() override;

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // Each returns the count that the Do* operation reports, which moves the
    // position.
    u32 Read(void* buffer, u32 count);
    u32 Write(const void* buffer, u32 count);
    // Goes to the target of `mode` and returns the position. A seek to the
    // current position makes no system call.
    u64 Seek(SeekMode mode, u64 offset);
    bool Flush() { return DoFlush(); }

    const char* GetFileName() const { return m_FileName; }
    bool IsSeekSupported() const { return m_SeekSupported; }
    bool IsWriteSupported() const { return m_WriteSupported; }
    DiskDrive& GetOwner() const { return *m_Owner; }
    u64 GetFileSize() const { return m_Size; }
    u64 GetFilePosition() const { return m_Position; }
    u32 GetOpenFlags() const { return m_OpenFlags; }

protected:
    // The base versions are fatal errors: a file class must provide them.
    virtual u32 DoRead(void* buffer, u32 count);
    virtual u32 DoWrite(const void* buffer, u32 count);
    // Goes to the absolute position `target` and returns the new position.
    virtual u64 DoSeek(u64 target);
    // The base does nothing and answers true.
    virtual bool DoFlush();

private:
    DiskDrive* m_Owner;
    bool m_SeekSupported;
    bool m_WriteSupported;
    u64 m_Size;
    u64 m_Position;
    char m_FileName[FileNameSize];
    u32 m_OpenFlags;
};

} // namespace qel
