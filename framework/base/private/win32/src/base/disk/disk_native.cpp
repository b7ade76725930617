// The file system's conventions on Windows: drive letters, '\' separators,
// and the system's own paths lower-cased (ASCII letters: names are UTF-8).
#include "base/disk/disk_native.h"
#include "base/disk/widetext_native.h"

#include <qel/diskdrivewin32.h>

#include "base/platform/windows.h"

#include <cstdio>
#include <cstring>

namespace qel
{
namespace native
{

bool ToWide(const char* text, wchar_t* out, u32 size)
{
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, out, int(size));
    if (length == 0 && size > 0)
        out[0] = L'\0';
    return length > 0;
}

bool ToUtf8(const wchar_t* text, char* out, u32 size)
{
    const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, out, int(size), nullptr, nullptr);
    if (length == 0 && size > 0)
        out[0] = '\0';
    return length > 0;
}

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
    const wchar_t root[] = {wchar_t(letter), L':', L'\\', L'\0'};
    return GetDriveTypeW(root) != DRIVE_NO_ROOT_DIR;
}

namespace
{

// A path the system gave in `wide` (of `length` units, 0 when it would not
// tell, `capacity` or more when it did not fit), in UTF-8.
bool SystemPath(const wchar_t* wide, DWORD length, DWORD capacity, char* out, u32 size)
{
    if (length == 0 || length >= capacity || !ToUtf8(wide, out, size))
    {
        out[0] = '\0';
        return false;
    }
    return true;
}

} // namespace

bool GetExecutablePath(char* out, u32 size)
{
    // The process's executable, not this library.
    wchar_t wide[MAX_PATH + 1];
    const DWORD capacity = DWORD(sizeof wide / sizeof wide[0]);
    return SystemPath(wide, GetModuleFileNameW(nullptr, wide, capacity), capacity, out, size);
}

bool GetProcessCurrentDirectory(char* out, u32 size)
{
    wchar_t wide[MAX_PATH + 1];
    const DWORD capacity = DWORD(sizeof wide / sizeof wide[0]);
    return SystemPath(wide, GetCurrentDirectoryW(capacity, wide), capacity, out, size);
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

void DescribeSystemError(u32 number, char* out, u32 size)
{
    if (size == 0)
        return;
    out[0] = '\0';
    wchar_t text[512];
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                  nullptr, number, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), text,
                                  DWORD(sizeof text / sizeof text[0]), nullptr);
    while (length > 0 &&
           (text[length - 1] == L'\r' || text[length - 1] == L'\n' || text[length - 1] == L' '))
        --length;
    if (length == 0)
    {
        std::snprintf(out, size, "Error %lu", static_cast<unsigned long>(number));
        return;
    }
    text[length] = L'\0';
    ToUtf8(text, out, size);
}

} // namespace native
} // namespace qel
