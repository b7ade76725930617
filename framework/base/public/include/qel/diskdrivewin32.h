// The disk drive of the Win32 file API (Windows only). Native paths are
// Win32 paths in UTF-8 with '/' separators, such as c:/game/data/levels.bin;
// the drive hands them to the wide API (CreateFileW, FindFirstFileW, ...) in
// UTF-16, so a UTF-8 name makes the same file as on POSIX. A native path
// that is not UTF-8 names no file.
//
// Files are opened for reading or for writing, never both, shared for
// reading and writing, for sequential access; the dispositions follow the
// open flags (see File::OpenFlags). Listings run FindFirstFileW with the
// native path as the pattern, and give the names in UTF-8.
#pragma once

#if defined(_WIN32)

#include <qel/diskdrive.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API DiskDriveWin32 : public DiskDrive
{
public:
    File* OpenFile(const PathObject& path, u32 openFlags) override;
    void DeleteFile(const PathObject& path) override;
    bool FileExists(const PathObject& path) override;
    // A drive root such as c:/ is answered from GetLogicalDrives; an empty
    // native path (a path equal to a drive mount's name) always exists.
    bool DirectoryExists(const PathObject& path) override;
    void GetDirectoryList(const PathObject& path, PathObjectList& list) override;
    void GetFileList(const PathObject& path, PathObjectList& list) override;
    // A refusal is reported as the warning "Unable to create directory %s."
    // and then thrown, unless the answer was to break into the debugger:
    // the system's error number is returned then.
    u32 CreateDirectory(const PathObject& path) override;
    u32 DeleteDirectory(const PathObject& path) override;
    void ReplaceFile(const PathObject& source, const PathObject& target) override;

    // Throws the file exception of GetLastError() for `path`.
    [[noreturn]] static void AnalyzeError(const PathObject& path);
};

} // namespace qel

#endif
