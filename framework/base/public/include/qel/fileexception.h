// The exceptions of the file layer. Each carries the path it was thrown for
// (both texts and a reference to its mount), the DiskError and the system's
// own error number (GetLastError on Windows, errno on POSIX). The reason
// reads "<text> - Virtual Path: <virtual path>", cut to 4095 characters.
//
// The system's reason is what the system says of its error number
// (strerror on POSIX, FormatMessage on Windows, in UTF-8), or a reason the
// drive knows better: a directory opened or deleted as a file is "Is a
// directory" on every platform, where Windows itself says only that access
// is denied. It is empty when the library made the error itself ("Virtual
// path not found", "Path too long": system error 0). Tools print it as
// "FILE: reason".
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
    enum
    {
        SystemReasonSize = 256
    };

    // A null `systemReason` is the system's text for `systemError`.
    FileException(const char* text, const PathObject& path, DiskDrive::DiskError error,
                  u32 systemError, const char* systemReason = nullptr);

    const PathObject& GetPath() const { return m_Path; }
    DiskDrive::DiskError GetError() const { return m_Error; }
    u32 GetSystemError() const { return m_SystemError; }
    // Cut to 255 bytes; empty for the library's own errors.
    const char* GetSystemReason() const { return m_SystemReason; }

private:
    PathObject m_Path;
    DiskDrive::DiskError m_Error;
    u32 m_SystemError;
    char m_SystemReason[SystemReasonSize];
};

// A missing file or a missing directory on its path.
class QEL_API FileNotFoundException : public FileException
{
public:
    FileNotFoundException(const char* text, const PathObject& path, DiskDrive::DiskError error,
                          u32 systemError, const char* systemReason = nullptr);
};

// What was to be created is already there.
class QEL_API FileExistsException : public FileException
{
public:
    FileExistsException(const char* text, const PathObject& path, DiskDrive::DiskError error,
                        u32 systemError, const char* systemReason = nullptr);
};

} // namespace qel
