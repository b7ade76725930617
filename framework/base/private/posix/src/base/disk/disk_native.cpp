// The file system's conventions on POSIX: one tree, mounted whole as
// /disks/; no drive letters and no case folding.
#include "base/disk/disk_native.h"

#include <qel/diskdriveposix.h>

#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace qel
{
namespace native
{

DiskDrive* NewDiskDrive()
{
    return new DiskDrivePosix;
}

bool GetDriveLetters(u32& letters)
{
    letters = 0;
    return false;
}

bool DriveHasRoot(char)
{
    return false;
}

bool GetExecutablePath(char* out, u32 size)
{
    ssize_t length = readlink("/proc/self/exe", out, size);
    if (length <= 0 || std::size_t(length) >= size)
    {
        out[0] = '\0';
        return false;
    }
    out[length] = '\0';
    return true;
}

bool GetProcessCurrentDirectory(char* out, u32 size)
{
    if (getcwd(out, size) == nullptr)
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
    if (local == nullptr)
        local = "";
    // /home/ann/a.bin is /disks/home/ann/a.bin; relative text stays as it is.
    const char* prefix = local[0] == '/' ? "/disks" : "";
    std::size_t length = 0;
    for (const char* piece : {prefix, local})
        for (; *piece != '\0'; ++piece)
        {
            if (length + 1 == size)
            {
                out[length] = '\0';
                return false;
            }
            out[length++] = *piece;
        }
    out[length] = '\0';
    return true;
}

void FoldVirtualPath(char*) {}

namespace
{

// strerror_r answers in one of two ways, by the C library's choice.
struct ErrorText
{
    const char* buffer;
    const char* operator()(int result) const { return result == 0 ? buffer : ""; } // XSI
    const char* operator()(const char* result) const { return result; }            // GNU
};

} // namespace

void DescribeSystemError(u32 number, char* out, u32 size)
{
    if (size == 0)
        return;
    char buffer[256] = "";
    const char* text = ErrorText{buffer}(strerror_r(int(number), buffer, sizeof buffer));
    std::snprintf(out, size, "%s", text);
}

} // namespace native
} // namespace qel
