#include <qel/diskdrive.h>

#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/pathobject.h>

#include "base/disk/diskerror.h"

#include <cstring>

namespace qel
{

DiskDrive::~DiskDrive() = default;

void DiskDrive::GetFileList(const PathObject&, PathObjectList&) {}

DiskDrive::DiskError DiskDrive::GetError(bool)
{
    return DiskErrorAlreadyExists;
}

void ThrowDiskError(const PathObject& path, DiskDrive::DiskError error, const char* text,
                    u32 systemError)
{
    switch (error)
    {
    case DiskDrive::DiskErrorFileNotFound:
    case DiskDrive::DiskErrorPathNotFound:
        throw FileNotFoundException(text, path, error, systemError);
    case DiskDrive::DiskErrorAlreadyExists:
        throw FileExistsException(text, path, error, systemError);
    default:
        throw FileException(text, path, error, systemError);
    }
}

namespace
{

thread_local bool tl_ReopeningCreatingPath = false;

// Clears the flag on the way out, exceptions included.
struct ReopeningScope
{
    ReopeningScope() { tl_ReopeningCreatingPath = true; }
    ~ReopeningScope() { tl_ReopeningCreatingPath = false; }
};

} // namespace

bool IsReopeningCreatingPath()
{
    return tl_ReopeningCreatingPath;
}

File* ReopenCreatingPath(const PathObject& path, u32 openFlags)
{
    char directory[PathObject::PathSize];
    std::memcpy(directory, path.GetVirtualPath(), sizeof directory); // a terminated text
    char* lastSlash = std::strrchr(directory, '/');
    *(lastSlash ? lastSlash + 1 : directory) = '\0';

    ReopeningScope scope;
    FileManager& manager = FileManager::GetSingletonInstance();
    manager.CreateDirectory(directory, true);
    return manager.OpenFile(path.GetVirtualPath(), openFlags);
}

} // namespace qel
