#include <qel/fileexception.h>

#include <cstdio>

namespace qel
{

FileException::FileException(const char* text, const PathObject& path, DiskDrive::DiskError error,
                             u32 systemError)
    : m_Path(path), m_Error(error), m_SystemError(systemError)
{
    // snprintf cuts the reason to the buffer, 4095 characters and the zero.
    std::snprintf(GetBegin(), GetSize(), "%s - Virtual Path: %s", text ? text : "",
                  path.GetVirtualPath());
}

FileNotFoundException::FileNotFoundException(const char* text, const PathObject& path,
                                             DiskDrive::DiskError error, u32 systemError)
    : FileException(text, path, error, systemError)
{
}

FileExistsException::FileExistsException(const char* text, const PathObject& path,
                                         DiskDrive::DiskError error, u32 systemError)
    : FileException(text, path, error, systemError)
{
}

} // namespace qel
