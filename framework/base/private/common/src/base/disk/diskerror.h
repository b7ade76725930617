// What the drives of every platform share: throwing the file exceptions and
// the second attempt of an open with File::OpenCreatePath.
#pragma once

#include <qel/diskdrive.h>
#include <qel/types.h>

namespace qel
{

class File;
class PathObject;

// Throws FileNotFoundException for the not-found errors, FileExistsException
// for DiskErrorAlreadyExists and FileException for the others.
[[noreturn]] void ThrowDiskError(const PathObject& path, DiskDrive::DiskError error,
                                 const char* text, u32 systemError);

// Whether this thread is inside ReopenCreatingPath: an open that fails for
// a missing path there must throw instead of trying once more, or a path
// whose "directory" is a file would recurse without end.
bool IsReopeningCreatingPath();

// An open failed because its path does not exist: creates the directory of
// the virtual path (the text up to its last '/') with every missing parent,
// through the file manager, and opens the virtual path again from the start.
File* ReopenCreatingPath(const PathObject& path, u32 openFlags);

} // namespace qel
