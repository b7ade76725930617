// A file of the POSIX file API (POSIX only).
#pragma once

#if !defined(_WIN32)

#include <qel/export.h>
#include <qel/file.h>
#include <qel/types.h>

namespace qel
{

class QEL_API FilePosix : public File
{
public:
    // Takes over the descriptor `fd` and closes it when deleted.
    FilePosix(const char* fileName, DiskDrive* owner, int fd, u64 size, u32 openFlags);
    ~FilePosix() override;

protected:
    // A failure of the system in these is fatal: "TODO: trow exceptions".
    u32 DoRead(void* buffer, u32 count) override;
    u32 DoWrite(const void* buffer, u32 count) override;
    u64 DoSeek(u64 target) override;
    bool DoFlush() override;

private:
    int m_Descriptor; // -1 once closed
};

} // namespace qel

#endif
