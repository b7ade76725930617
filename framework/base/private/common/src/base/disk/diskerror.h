// What the drives of every platform share: throwing the file exceptions.
#pragma once

#include <qel/diskdrive.h>
#include <qel/types.h>

namespace qel
{

class PathObject;

// Throws FileNotFoundException for the not-found errors, FileExistsException
// for DiskErrorAlreadyExists and FileException for the others.
[[noreturn]] void ThrowDiskError(const PathObject& path, DiskDrive::DiskError error,
                                 const char* text, u32 systemError);

} // namespace qel
