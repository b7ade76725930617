#include <qel/diskdrive.h>

#include <qel/fileexception.h>
#include <qel/pathobject.h>

#include "base/disk/diskerror.h"

namespace qel
{

DiskDrive::~DiskDrive() = default;

void DiskDrive::GetFileList(const PathObject&, PathObjectList&) {}

DiskDrive::DiskError DiskDrive::GetError(bool)
{
    return DiskErrorAlreadyExists;
}

const char kIsADirectory[] = "Is a directory";

void DiskDrive::ReplaceFile(const PathObject&, const PathObject& target)
{
    ThrowDiskError(target, DiskErrorDevice, "The device doen't recognize the command.", 0);
}

void ThrowDiskError(const PathObject& path, DiskDrive::DiskError error, const char* text,
                    u32 systemError, const char* systemReason)
{
    switch (error)
    {
    case DiskDrive::DiskErrorFileNotFound:
    case DiskDrive::DiskErrorPathNotFound:
        throw FileNotFoundException(text, path, error, systemError, systemReason);
    case DiskDrive::DiskErrorAlreadyExists:
        throw FileExistsException(text, path, error, systemError, systemReason);
    default:
        throw FileException(text, path, error, systemError, systemReason);
    }
}

} // namespace qel
