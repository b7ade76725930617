// The file system's conventions, one implementation per platform: Win32
// drive letters, and the system's own paths lower-cased, on Windows; on
// POSIX one tree under /disks/, no letters, no folding.
#pragma once

#include <qel/types.h>

namespace qel
{

class DiskDrive;

namespace native
{

// A new drive of the platform (DiskDriveWin32, DiskDrivePosix) on Mem's
// General allocator; null after the report when there is no memory.
DiskDrive* NewDiskDrive();

// The drive letters present, bit i for 'a' + i (GetLogicalDrives). False
// where the system has no drive letters: then no letter alias is mounted or
// unmounted.
bool GetDriveLetters(u32& letters);
// Whether the drive of `letter` has a root directory, i.e. can be mounted.
bool DriveHasRoot(char letter);

// The system's path of the running executable, and its current directory
// (at most size - 1 characters, terminated). False when the system will not
// tell; `out` is then empty.
bool GetExecutablePath(char* out, u32 size);
bool GetProcessCurrentDirectory(char* out, u32 size);

// FileManager::ResolveLocalPath: the virtual form of a system path; false
// when it was cut to fit `size`.
bool LocalToVirtual(const char* local, char* out, u32 size);
// The normalisation that FileManager::CreateDirectory applies to a virtual
// path before it walks it, in place (Windows: '\' to '/' and c:/ to /c/,
// case kept; POSIX: none).
void FoldVirtualPath(char* path);

// What the system says of its error `number` (errno, GetLastError), in
// UTF-8 without a line end; at most size - 1 bytes, terminated.
void DescribeSystemError(u32 number, char* out, u32 size);

} // namespace native
} // namespace qel
