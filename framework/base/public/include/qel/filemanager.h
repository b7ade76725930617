// The file manager: the one way the library reaches files.
//
// Callers name files by virtual paths, '/'-separated texts that begin with
// the name of a mount point: /exedir/data/file.bin, /disks/tmp/x.bin, and on
// Windows /c/temp/log.txt. The mount table maps each name either straight
// onto a disk drive (a drive mount: the native path is the rest of the
// virtual path) or onto another virtual path (an alias, resolved once when
// it is mounted). At construction the manager mounts "/cdroms/", "/disks/",
// on Windows one alias per drive letter, and "/exedir/" on the executable's
// folder, and takes the process's current directory as its own.
//
// On POSIX /disks/ is the root of the file system: /home/ann/a.txt is
// /disks/home/ann/a.txt. ResolveLocalPath turns a path of the system into
// its virtual form; a relative path is already one, relative to the current
// directory, which is the process's at construction (a later chdir does
// not move it). So "config.txt" names config.txt of the folder the program
// started in.
//
// Virtual paths are not folded: callers write them with '/' separators,
// and a path that does not begin with '/' is taken relative to the current
// directory. Names are UTF-8 on every platform and keep the case the caller
// gives them: the file layer never changes the case of a name it creates,
// so a file written on Windows under the name Upper/Case.bin is found by
// that name on POSIX. Windows itself ignores case, so there names that
// differ only in case are one file. The texts made from the system's own
// paths (the current directory, /exedir/, ResolveLocalPath, the names of a
// listing) are lower-cased on Windows, ASCII letters only.
//
// Path texts live in 255-character buffers. A path that does not fit, as
// written, joined to the current directory or once an alias put its native
// base in front, is never cut onto another file: every operation that
// opens, creates, deletes or lists through it throws FileException
// "Path too long" (DiskErrorPathTooLong), ResolveVirtualPath answers
// MountPathTooLong, FileExists and DirectoryExists answer false. Mount
// texts and ResolveLocalPath refuse or report such texts the same way.
// This departs on purpose from the silent truncation of the library's other
// fixed texts: a cut path names a different file.
//
// The mount table is sorted by the prefix order: a mount name N sorts
// against a key K as N against the first length(N) characters of K. A key
// is looked up by bisection for the first mount that does not sort below
// it, and that mount serves the key when it prefixes it. Of /a/ and /a/b/
// the shorter one wins; Mount refuses a name under an existing mount;
// Unmount of a longer name removes the shorter mount that prefixes it. With
// nested mounts the order is not monotonic for every key: with /a/ and
// /a/b/ mounted, /a/c sorts below /a/b/ and may miss /a/.
//
// One re-entrant lock guards the table and the current directory. Every
// operation holds it for its whole duration, the drive call included, so
// opening files is serialised across threads.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/criticalsection.h>
#include <qel/diskdrive.h>
#include <qel/export.h>
#include <qel/file.h>
#include <qel/generalallocator.h>
#include <qel/mountpoint.h>
#include <qel/pathobject.h>
#include <qel/refcounted.h>
#include <qel/types.h>

#include <atomic>
#include <string>
#include <vector>

namespace qel
{

class Allocator;

class QEL_API FileManager
{
public:
    enum
    {
        PathSize = 256
    };

    // Mount operations answer with these; they never throw.
    enum MountResultCodes
    {
        MountOk = 0,
        // The mount's memory could not be had (after the report).
        MountOutOfMemory = 1,
        // Mount: a mount whose name prefixes the new one is there.
        MountAlreadyMounted = 2,
        // FindMount, Unmount: no mount prefixes the name.
        MountNotFound = 3,
        // Mount of an alias: its target lies under no mount (or no drive
        // was given).
        MountTargetNotFound = 4,
        // ResolveVirtualPath: the path lies under no mount;
        // SetCurrentDirectory: the directory does not exist.
        MountPathNotFound = 5,
        // A path, a mount name or a target does not fit its 255 characters,
        // as given or once resolved: nothing was done.
        MountPathTooLong = 6,
        // Mount: the name does not begin and end with '/', or the target
        // does not end with '/'. Such a mount would never match a path (or
        // would match paths it was not meant for), so it is not made.
        MountBadName = 7,
    };

    // The mount table's entries (<qel/mountpoint.h>).
    typedef qel::MountPoint MountPoint;
    typedef qel::DriveMount DriveMount;
    typedef qel::AliasMount AliasMount;

    QEL_ALLOCATION_OPERATORS

    static FileManager& GetSingletonInstance() { return *GetSingletonInstancePointer(); }
    // The instance, created on first use; null after the exit-time teardown.
    static FileManager* GetSingletonInstancePointer()
    {
        FileManager* instance = ms_SingletonInstance.load(std::memory_order_acquire);
        return instance ? instance : CreateSingletonInstance();
    }
    static FileManager& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }
    static FileManager& Instance() { return GetSingletonInstance(); }

    // ---- mount table --------------------------------------------------------

    // A name begins and ends with '/' (/data/), a target ends with '/'
    // (/disks/home/ann/data/); without them the answer is MountBadName.
    MountResultCodes Mount(const char* name, const RefPtr<DiskDrive>& drive);
    MountResultCodes Mount(const char* name, const char* targetVirtualPath);
    MountResultCodes Unmount(const char* name);
    // Lets go of what `result` held, then sets it to the mount that
    // prefixes `name`.
    MountResultCodes FindMount(const char* name, RefPtr<MountPoint>& result);
    // Mounts "/cdroms/" and "/disks/" when they are missing and, on Windows,
    // brings the drive-letter aliases in line with the drives present.
    void AutoMount();
    // A copy of the table, in its order.
    void GetMountTable(std::vector<RefPtr<MountPoint>>& mounts);

    // ---- paths --------------------------------------------------------------

    // MountOk, MountPathNotFound, or MountPathTooLong with only the virtual
    // text filled in (cut) and no mount.
    MountResultCodes ResolveVirtualPath(const char* path, PathObject& out);
    // Turns a path of the system into its virtual form (at most size - 1
    // characters): on Windows '/' separators and ASCII lower case,
    // C:\Data\A.txt becoming /c/data/a.txt; on POSIX an absolute path goes
    // under /disks/, so /home/ann/a.txt becomes /disks/home/ann/a.txt.
    // Relative text keeps its place, and resolves against the current
    // directory, which starts as the process's. False when the text was cut
    // to fit `size`: the cut text names another file.
    bool ResolveLocalPath(const char* localPath, char* out, u32 size);
    // `directory` ends in '/'; it is kept as given when it exists.
    // MountPathTooLong when it does not fit.
    MountResultCodes SetCurrentDirectory(const char* directory);
    // Copies at most size - 1 characters, always terminated.
    void GetCurrentDirectory(char* out, u32 size);

    // ---- files and directories ----------------------------------------------
    // A path under no mount throws FileNotFoundException "Virtual path not
    // found", a path that does not fit FileException "Path too long"; the
    // drives' own failures pass through as they come.

    // The file belongs to the caller, who deletes it to close it. With
    // File::OpenCreatePath, an open that fails because a directory on the
    // way is missing creates the path's directory (its text up to the last
    // '/') with its parents, and the path is resolved and opened once more.
    File* OpenFile(const char* path, u32 openFlags);
    void DeleteFile(const char* path);
    // Puts the file `source` in the place of `target` in one step (rename,
    // MoveFileExW): the target is replaced whole or left as it was. Both
    // must lie on one drive; two drives throw FileException DiskErrorDevice.
    void ReplaceFile(const char* source, const char* target);
    // Creates the directory, and with `recursive` every missing one on its
    // way; existing ones are passed over. 0, or the first drive's refusal
    // that was not thrown.
    u32 CreateDirectory(const char* path, bool recursive);
    u32 DeleteDirectory(const char* path);
    // False under no mount and for a path that does not fit.
    bool FileExists(const char* path);
    bool DirectoryExists(const char* path);
    // Append the bare names found, each with its native text as the system
    // gave it and its virtual text as ResolveLocalPath makes it, and no
    // mount; nothing under no mount. A name that does not fit its 255
    // characters is left out.
    void GetDirectoryList(const char* path, PathObjectList& list);
    void GetFileList(const char* path, PathObjectList& list);

private:
    template <class T, class Storage>
    friend class Singleton;

    typedef std::vector<RefPtr<MountPoint>, GeneralAllocator<RefPtr<MountPoint>>> MountTable;

    FileManager();
    ~FileManager();
    FileManager(const FileManager&) = delete;
    FileManager& operator=(const FileManager&) = delete;

    // The first mount that does not sort below `key`, by bisection: where a
    // new mount named `key` goes, and where a lookup looks.
    MountTable::iterator LowerBound(const char* key);
    // The lower bound of `key` when it prefixes `key`, or the end.
    MountTable::iterator Find(const char* key);
    // The mount that prefixes `key`, or null.
    MountPoint* Lookup(const char* key);
    MountResultCodes Insert(const char* name, MountPoint* mount);
    // Resolves `path`, throwing "Virtual path not found" under no mount and
    // "Path too long" for a path that does not fit.
    void ResolveOrThrow(const char* path, PathObject& out);
    // GetDirectoryList or GetFileList, the entries' virtual texts filled in.
    void List(const char* path, PathObjectList& list, bool directories);
    void MountExecutableDirectory();
    void TakeProcessCurrentDirectory();

    char m_CurrentDirectory[PathSize];
    Allocator* m_Allocator;
    MountTable m_Table;
    CriticalSection m_Lock;

    static FileManager* CreateSingletonInstance();

    static std::atomic<FileManager*> ms_SingletonInstance;
};

} // namespace qel
