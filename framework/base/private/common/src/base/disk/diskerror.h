// What the drives of every platform share: throwing the file exceptions.
#pragma once

#include <qel/diskdrive.h>
#include <qel/types.h>

namespace qel
{

class PathObject;

// Throws FileNotFoundException for the not-found errors, FileExistsException
// for DiskErrorAlreadyExists and FileException for the others. A null
// `systemReason` is the system's text for `systemError`.
[[noreturn]] void ThrowDiskError(const PathObject& path, DiskDrive::DiskError error,
                                 const char* text, u32 systemError,
                                 const char* systemReason = nullptr);

// The system's reason for a directory met where a file was meant.
extern const char kIsADirectory[];

} // namespace qel
