// A disk drive turns resolved paths into operating-system calls: it opens
// files, deletes them, tests for files and directories, lists directories
// and creates and removes them.
//
// Callers do not use drives by native name: the file manager resolves a
// virtual path into a PathObject, picks the drive mounted there and calls
// it. Drives read only the native text of the PathObject for their system
// calls; its virtual text goes into error messages and the files they open.
// Drives never call back into the file manager. Failures of the system are
// thrown as the file exceptions of <qel/fileexception.h>.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/interface.h>
#include <qel/refcounted.h>
#include <qel/types.h>

#include <list>

namespace qel
{

class File;
class PathObject;

typedef std::list<PathObject> PathObjectList;

class QEL_API DiskDrive : public Interface, public RefCounted
{
public:
    // What went wrong, as carried by the file exceptions.
    enum DiskError
    {
        DiskErrorAlreadyExists = 0,    // "File already exists"
        DiskErrorFileNotFound = 1,     // "File not found"
        DiskErrorPathNotFound = 2,     // "Path not found"
        DiskErrorUnused3 = 3,          // produced by no operation
        DiskErrorTooManyOpenFiles = 4, // "Too many open files"
        DiskErrorAccessDenied = 5,     // "Access denied"
        DiskErrorDiskFull = 6,         // "Disk is full"
        DiskErrorDevice = 7,           // the device or a sharing rule refused
        DiskErrorUnused8 = 8,          // produced by no operation
        DiskErrorUnknown = 9,          // "Unknown error"
        // "Path too long": the path did not fit its 255 characters, as
        // written or once resolved (see <qel/filemanager.h>).
        DiskErrorPathTooLong = 10,
    };

    // Interface and RefCounted both bring them: one set for the drive.
    QEL_ALLOCATION_OPERATORS

    ~DiskDrive() override;

    // Opens the file with the flags of File. OpenCreatePath is the file
    // manager's to act on: a missing directory on the way is thrown as
    // DiskErrorPathNotFound. The file belongs to the caller; null only when
    // its memory could not be had, after the report.
    virtual File* OpenFile(const PathObject& path, u32 openFlags) = 0;
    virtual void DeleteFile(const PathObject& path) = 0;
    // False for a directory.
    virtual bool FileExists(const PathObject& path) = 0;
    // The native path ends in '/': the last character is dropped and
    // anything found there counts, a file included.
    virtual bool DirectoryExists(const PathObject& path) = 0;
    // The native path is the search pattern. Entries are appended as bare
    // names, native text only (the file manager adds the virtual form);
    // names beginning with '.' are never listed.
    virtual void GetDirectoryList(const PathObject& path, PathObjectList& list) = 0;
    virtual void GetFileList(const PathObject& path, PathObjectList& list);
    // 0 when created.
    virtual u32 CreateDirectory(const PathObject& path) = 0;
    // 0 when removed.
    virtual u32 DeleteDirectory(const PathObject& path) = 0;
    // The base always answers 0.
    virtual DiskError GetError(bool clear);
    // Puts the file `source` in the place of `target` in one step: the
    // target, when there is one, is replaced whole or left as it was. Both
    // lie on this drive. The base throws FileException DiskErrorDevice.
    virtual void ReplaceFile(const PathObject& source, const PathObject& target);
};

} // namespace qel
