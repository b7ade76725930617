#include <qel/fileexception.h>

#include "base/disk/disk_native.h"

#include <cstdio>

namespace qel
{

FileException::FileException(const char* text, const PathObject& path, DiskDrive::DiskError error,
                             u32 systemError, const char* systemReason)
    : m_Path(path), m_Error(error), m_SystemError(systemError)
{
    // snprintf cuts the reason to the buffer, 4095 characters and the zero.
    std::snprintf(GetBegin(), GetSize(), "%s - Virtual Path: %s", text ? text : "",
                  path.GetVirtualPath());
    m_SystemReason[0] = '\0';
    if (systemReason != nullptr)
        std::snprintf(m_SystemReason, sizeof m_SystemReason, "%s", systemReason);
    else if (systemError != 0)
        native::DescribeSystemError(systemError, m_SystemReason, sizeof m_SystemReason);
}

FileNotFoundException::FileNotFoundException(const char* text, const PathObject& path,
                                             DiskDrive::DiskError error, u32 systemError,
                                             const char* systemReason)
    : FileException(text, path, error, systemError, systemReason)
{
}

FileExistsException::FileExistsException(const char* text, const PathObject& path,
                                         DiskDrive::DiskError error, u32 systemError,
                                         const char* systemReason)
    : FileException(text, path, error, systemError, systemReason)
{
}

} // namespace qel
