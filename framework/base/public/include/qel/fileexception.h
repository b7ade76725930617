// The exceptions of the file layer. Each carries the path it was thrown for
// (both texts and a reference to its mount), the DiskError and the system's
// own error number (GetLastError on Windows, errno on POSIX). The reason
// reads "<text> - Virtual Path: <virtual path>", cut to 4095 characters.
#pragma once

#include <qel/diskdrive.h>
#include <qel/exception.h>
#include <qel/export.h>
#include <qel/pathobject.h>
#include <qel/types.h>

namespace qel
{

class QEL_API FileException : public Exception
{
public:
    FileException(const char* text, const PathObject& path, DiskDrive::DiskError error,
                  u32 systemError);

    const PathObject& GetPath() const { return m_Path; }
    DiskDrive::DiskError GetError() const { return m_Error; }
    u32 GetSystemError() const { return m_SystemError; }

private:
    PathObject m_Path;
    DiskDrive::DiskError m_Error;
    u32 m_SystemError;
};

// A missing file or a missing directory on its path.
class QEL_API FileNotFoundException : public FileException
{
public:
    FileNotFoundException(const char* text, const PathObject& path, DiskDrive::DiskError error,
                          u32 systemError);
};

// What was to be created is already there.
class QEL_API FileExistsException : public FileException
{
public:
    FileExistsException(const char* text, const PathObject& path, DiskDrive::DiskError error,
                        u32 systemError);
};

} // namespace qel
