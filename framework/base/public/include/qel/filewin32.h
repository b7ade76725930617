// A file of the Win32 file API (Windows only).
#pragma once

#if defined(_WIN32)

#include <qel/export.h>
#include <qel/file.h>
#include <qel/types.h>

namespace qel
{

class QEL_API FileWin32 : public File
{
public:
    // Takes over `handle`, a HANDLE of CreateFileW, and closes it when
    // deleted.
    FileWin32(const char* fileName, DiskDrive* owner, void* handle, u64 size, u32 openFlags);
    ~FileWin32() override;

protected:
    // A failure of the system in these is fatal: "TODO: trow exceptions".
    u32 DoRead(void* buffer, u32 count) override;
    u32 DoWrite(const void* buffer, u32 count) override;
    u64 DoSeek(u64 target) override;
    bool DoFlush() override;

private:
    void* m_Handle; // all bits set once closed
};

} // namespace qel

#endif
