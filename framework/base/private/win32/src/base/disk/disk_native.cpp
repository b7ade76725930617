// The file system's conventions on Windows: drive letters, '\' separators,
// and the system's own paths lower-cased (ASCII letters: names are UTF-8).
#include "base/disk/disk_native.h"

#include <qel/diskdrivewin32.h>

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

bool LocalToVirtual(const char* local, char* out, u32 size)
{
    if (size == 0)
        return false;
    u32 length = 0;
    const char* c = local ? local : "";
    for (; *c != '\0' && length + 1 < size; ++c)
    {
        // ASCII letters only: the bytes of a UTF-8 sequence are all above
        // 0x7F and stay as they are, and Windows finds a name in any case.
        const char byte = *c;
        out[length++] = byte >= 'A' && byte <= 'Z' ? char(byte - 'A' + 'a') : byte;
    }
    out[length] = '\0';
    FoldVirtualPath(out);
    return *c == '\0';
}

void FoldVirtualPath(char* path)
{
    for (char* c = path; *c != '\0'; ++c)
        if (*c == '\\')
            *c = '/';
    // c:/data becomes /c/data; the letter is lower case, as the drive
    // aliases are named.
    if (path[0] != '\0' && path[1] == ':')
    {
        path[1] = path[0] >= 'A' && path[0] <= 'Z' ? char(path[0] - 'A' + 'a') : path[0];
        path[0] = '/';
    }
}

} // namespace native
} // namespace qel
