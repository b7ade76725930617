// Writing a whole file so that the file it replaces survives any failure.
//
// The stream writes to a temporary file beside the target, the target's
// path followed by ".qeltmp" (created with its missing folders), and Commit
// puts it in the target's place in one step (FileManager::ReplaceFile:
// rename on POSIX, MoveFileExW on Windows). Until then the target is not
// touched. A stream destroyed without Commit, after an exception or an
// error, deletes its temporary. A process that dies during a save leaves
// its temporary behind, and the next save of the same target deletes it
// before it starts.
//
// Commit throws FileException, deletes the temporary and leaves the target
// as it was when the temporary cannot be had whole: a write that fell
// short (the file layer's write error is fatal; this is for a host that
// lets the process go on), a buffer that could not be allocated, a flush
// or the replace refused by the system.
//
// What reaches the disk, and when: Commit writes the last block to the
// system; a durable Commit then flushes the temporary's data to the disk
// (fsync, FlushFileBuffers) before the replace. The folder itself is not
// flushed. So a failed save, a full disk or a killed process leave the
// previous file whole; after a crash of the system or a power loss, a
// durable Commit leaves the previous file or the new one whole, while
// without it a file system that does not write the data of a file renamed
// over another before the rename (ext4 does) may leave the target empty.
// A durable Commit costs a disk flush, milliseconds on a real disk.
//
// The temporary's path is 7 characters longer than the target's: a target
// whose temporary would not fit in FileManager::PathSize - 1 characters is
// refused with FileException "Path too long" before anything is touched.
#pragma once

#include <qel/export.h>
#include <qel/outputstream.h>
#include <qel/provider.h>
#include <qel/types.h>

namespace qel
{

class File;

class QEL_API SafeOutputFileStream : public OutputStream
{
public:
    enum : u32
    {
        BufferSize = 65536
    };

    // Deletes a temporary left by an earlier save and creates a new one;
    // the file manager's exceptions pass through.
    explicit SafeOutputFileStream(const char* path);
    // Deletes the temporary when Commit did not replace the target with it.
    ~SafeOutputFileStream() override;
    SafeOutputFileStream(const SafeOutputFileStream&) = delete;
    SafeOutputFileStream& operator=(const SafeOutputFileStream&) = delete;

    // Puts what was written in the target's place; see the top of this
    // file. Writing after it writes nothing.
    void Commit(bool durable = false);

    // ".qeltmp", the suffix of the temporary's path.
    static const char* GetTemporarySuffix() { return ".qeltmp"; }

private:
    // The temporary, written in blocks; notes every write that fell short.
    class Sink : public Provider
    {
    public:
        ~Sink() override;
        void Request(u64 position, unsigned char*& block, unsigned char*& current,
                     unsigned char*& end) override;
        void Return(void* block, void* end) override;
        void Return(void* block) override;
        void Set(File* file);

        File* m_File = nullptr;
        unsigned char* m_Buffer = nullptr;
        bool m_Short = false;
    };

    void Discard();

    Sink m_Sink;
    char m_Target[256];
    char m_Temporary[256];
    bool m_Committed = false;
};

} // namespace qel
