// The file system's conventions on Windows: drive letters, '\' separators
// and case folding through the library's own tables.
#include "base/disk/disk_native.h"

#include <qel/diskdrivewin32.h>
#include <qel/systembase.h>

#include "base/platform/windows.h"

#include <cstring>

namespace qel
{
namespace native
{

DiskDrive* NewDiskDrive()
{
    return new DiskDriveWin32;
}

bool GetDriveLetters(u32& letters)
{
    letters = GetLogicalDrives();
    return true;
}

bool DriveHasRoot(char letter)
{
    const char root[] = {letter, ':', '\\', '\0'};
    return GetDriveTypeA(root) != DRIVE_NO_ROOT_DIR;
}

bool GetExecutablePath(char* out, u32 size)
{
    // The process's executable, not this library.
    DWORD length = GetModuleFileNameA(nullptr, out, size);
    if (length == 0 || length >= size)
    {
        out[0] = '\0';
        return false;
    }
    return true;
}

bool GetProcessCurrentDirectory(char* out, u32 size)
{
    DWORD length = GetCurrentDirectoryA(size, out);
    if (length == 0 || length >= size)
    {
        out[0] = '\0';
        return false;
    }
    return true;
}

void LocalToVirtual(const char* local, char* out, u32 size)
{
    if (size == 0)
        return;
    u32 length = 0;
    for (const char* c = local ? local : ""; *c != '\0' && length + 1 < size; ++c)
        out[length++] = *c;
    out[length] = '\0';
    FoldVirtualPath(out);
}

void FoldVirtualPath(char* path)
{
    for (char* c = path; *c != '\0'; ++c)
        *c = *c == '\\' ? '/' : SystemBase::ToLower(*c);
    // c:/data becomes /c/data.
    if (path[0] != '\0' && path[1] == ':')
    {
        path[1] = path[0];
        path[0] = '/';
    }
}

} // namespace native
} // namespace qel
