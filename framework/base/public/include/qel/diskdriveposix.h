// The disk drive of the POSIX file API (POSIX only), with the observable
// behaviour of DiskDriveWin32.
//
// A native path that does not begin with '/' is read from the root of the
// file system: /disks/ is a drive mount on the root, so /disks/home/ann/a.bin
// has the native path home/ann/a.bin. Paths keep their case. Errors map
// errno onto the DiskError values and texts of the Win32 drive; a missing
// file is "File not found" when its directory exists and "Path not found"
// when it does not. Listings take the last part of the native path as a
// pattern (fnmatch), as FindFirstFileA does.
#pragma once

#if !defined(_WIN32)

#include <qel/diskdrive.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API DiskDrivePosix : public DiskDrive
{
public:
    File* OpenFile(const PathObject& path, u32 openFlags) override;
    void DeleteFile(const PathObject& path) override;
    bool FileExists(const PathObject& path) override;
    // An empty native path, the root, always exists.
    bool DirectoryExists(const PathObject& path) override;
    void GetDirectoryList(const PathObject& path, PathObjectList& list) override;
    void GetFileList(const PathObject& path, PathObjectList& list) override;
    // A refusal is reported as the warning "Unable to create directory %s."
    // and then thrown, unless the answer was to break into the debugger:
    // errno is returned then.
    u32 CreateDirectory(const PathObject& path) override;
    u32 DeleteDirectory(const PathObject& path) override;
    void ReplaceFile(const PathObject& source, const PathObject& target) override;

    // Throws the file exception of errno for `path`.
    [[noreturn]] static void AnalyzeError(const PathObject& path);
};

} // namespace qel

#endif
