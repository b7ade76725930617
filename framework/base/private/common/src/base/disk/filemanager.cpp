// The file manager: mount table, resolution of virtual paths, and the file
// and directory operations forwarded to the drives.
#include <qel/filemanager.h>

#include <qel/fileexception.h>
#include <qel/mem.h>
#include <qel/pathobject.h>
#include <qel/report.h>

#include "base/core/singleton.h"
#include "base/disk/disk_native.h"

#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>

namespace qel
{

std::atomic<FileManager*> FileManager::ms_SingletonInstance{nullptr};

namespace
{

typedef ScopedLock<CriticalSection> Locked;

// A mount name N against a key K: N against the first length(N) characters
// of K, as signed characters. Zero when K begins with N.
int ComparePrefix(const char* name, const char* key)
{
    for (; *name != '\0'; ++name, ++key)
        if (*name != *key)
            return int(static_cast<signed char>(*name)) - int(static_cast<signed char>(*key));
    return 0;
}

// Copies at most capacity - 1 characters and terminates (capacity > 0).
// False when the text was cut.
bool CopyText(char* dest, const char* source, std::size_t capacity)
{
    std::size_t length = source ? std::strlen(source) : 0;
    const bool fits = length < capacity;
    if (!fits)
        length = capacity - 1;
    std::memmove(dest, source ? source : "", length);
    dest[length] = '\0';
    return fits;
}

bool AppendText(char* dest, const char* source, std::size_t capacity)
{
    std::size_t length = std::strlen(dest);
    return CopyText(dest + length, source, capacity - length);
}

// A mount name begins and ends with '/', a target ends with '/': anything
// else would never match the paths it was meant for.
bool Slashed(const char* text, bool leading)
{
    const std::size_t length = std::strlen(text);
    return length > 0 && text[length - 1] == '/' && (!leading || text[0] == '/');
}

} // namespace

// ---- life --------------------------------------------------------------------

FileManager* FileManager::CreateSingletonInstance()
{
    return Singleton<FileManager>::Create(ms_SingletonInstance, "FileManager");
}

FileManager::FileManager() : m_Allocator(Mem::GetGeneralAlloc()), m_Table()
{
    std::strcpy(m_CurrentDirectory, "/?/");
    AutoMount();
    MountExecutableDirectory();
    TakeProcessCurrentDirectory();
}

FileManager::~FileManager()
{
    // Aliases first, then the drive mounts they refer to.
    while (!m_Table.empty())
        m_Table.pop_back();
}

void FileManager::AutoMount()
{
    Locked locked(m_Lock);
    RefPtr<MountPoint> found;
    for (const char* name : {"/cdroms/", "/disks/"})
        if (FindMount(name, found) != MountOk)
            Mount(name, RefPtr<DiskDrive>(native::NewDiskDrive()));

    u32 letters = 0;
    if (!native::GetDriveLetters(letters))
        return;
    for (u32 i = 0; i < 32; ++i)
    {
        const char letter = char('a' + i);
        const char name[] = {'/', letter, '/', '\0'};
        if (letters & (1u << i))
        {
            // CD-ROM drives too go under /disks/: /cdroms/ gets no letters.
            if (!native::DriveHasRoot(letter))
                continue;
            const char target[] = {'/', 'd', 'i', 's', 'k', 's', '/', letter, ':', '/', '\0'};
            Mount(name, target); // an alias already there stays as it is
        }
        else if (FindMount(name, found) == MountOk && std::strcmp(found->GetName(), name) == 0)
        {
            Unmount(name);
        }
    }
}

void FileManager::MountExecutableDirectory()
{
    char local[PathSize];
    char directory[PathSize];
    if (!native::GetExecutablePath(local, sizeof local) ||
        !ResolveLocalPath(local, directory, sizeof directory))
        return;
    char* lastSlash = std::strrchr(directory, '/');
    *(lastSlash ? lastSlash + 1 : directory) = '\0';
    Mount("/exedir/", directory);
}

void FileManager::TakeProcessCurrentDirectory()
{
    char local[PathSize];
    char directory[PathSize];
    if (!native::GetProcessCurrentDirectory(local, sizeof local) ||
        !ResolveLocalPath(local, directory, sizeof directory))
        return;
    std::size_t length = std::strlen(directory);
    if ((length == 0 || directory[length - 1] != '/') &&
        !AppendText(directory, "/", sizeof directory))
        return;
    SetCurrentDirectory(directory);
}

// ---- mount table -------------------------------------------------------------

FileManager::MountTable::iterator FileManager::LowerBound(const char* key)
{
    // A bisection for the first mount that does not compare below the key.
    // With nested mounts the comparisons are not monotonic (with /a/ and
    // /a/b/ mounted, /a/c matches /a/ and compares below /a/b/), so a key
    // may miss a mount that prefixes it: that is the table's rule.
    std::size_t low = 0, high = m_Table.size();
    while (low < high)
    {
        std::size_t middle = low + (high - low) / 2;
        if (ComparePrefix(m_Table[middle]->GetName(), key) < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return m_Table.begin() + std::ptrdiff_t(low);
}

FileManager::MountTable::iterator FileManager::Find(const char* key)
{
    MountTable::iterator mount = LowerBound(key);
    if (mount != m_Table.end() && ComparePrefix((*mount)->GetName(), key) != 0)
        mount = m_Table.end();
    return mount;
}

FileManager::MountPoint* FileManager::Lookup(const char* key)
{
    MountTable::iterator found = Find(key);
    return found == m_Table.end() ? nullptr : found->Get();
}

FileManager::MountResultCodes FileManager::Insert(const char* name, MountPoint* mount)
{
    if (mount == nullptr)
        return MountOutOfMemory; // reported by the allocation
    RefPtr<MountPoint> held(mount);
    try
    {
        m_Table.insert(LowerBound(name), held);
    }
    catch (const std::bad_alloc&)
    {
        return MountOutOfMemory;
    }
    return MountOk;
}

FileManager::MountResultCodes FileManager::Mount(const char* name, const RefPtr<DiskDrive>& drive)
{
    Locked locked(m_Lock);
    char copy[PathSize];
    if (!CopyText(copy, name, sizeof copy))
        return MountPathTooLong;
    if (!Slashed(copy, true))
        return MountBadName;
    if (Lookup(copy))
        return MountAlreadyMounted;
    QEL_USAGE_ASSERT(ErrorManager::BaseCategory, drive);
    if (!drive)
        return MountTargetNotFound;
    try
    {
        return Insert(copy, new DriveMount(copy, drive));
    }
    catch (const std::bad_alloc&)
    {
        return MountOutOfMemory;
    }
}

FileManager::MountResultCodes FileManager::Mount(const char* name, const char* targetVirtualPath)
{
    Locked locked(m_Lock);
    char copy[PathSize];
    char target[PathSize];
    if (!CopyText(copy, name, sizeof copy) || !CopyText(target, targetVirtualPath, sizeof target))
        return MountPathTooLong;
    if (!Slashed(copy, true) || !Slashed(target, false))
        return MountBadName;
    if (Lookup(copy))
        return MountAlreadyMounted;
    MountPoint* under = Lookup(target);
    if (under == nullptr)
        return MountTargetNotFound;

    // Resolved now, once: later changes below the target do not reach it.
    char nativeBase[PathSize] = "";
    if (under->GetKind() == MountPoint::AliasKind)
        CopyText(nativeBase, static_cast<AliasMount*>(under)->GetNativeBase(), sizeof nativeBase);
    if (!AppendText(nativeBase, target + under->GetNameLength(), sizeof nativeBase))
        return MountPathTooLong;
    try
    {
        return Insert(copy, new AliasMount(copy, target, nativeBase, under->GetDriveMount()));
    }
    catch (const std::bad_alloc&)
    {
        return MountOutOfMemory;
    }
}

FileManager::MountResultCodes FileManager::Unmount(const char* name)
{
    Locked locked(m_Lock);
    MountTable::iterator found = Find(name);
    if (found == m_Table.end())
        return MountNotFound;
    m_Table.erase(found);
    return MountOk;
}

FileManager::MountResultCodes FileManager::FindMount(const char* name, RefPtr<MountPoint>& result)
{
    Locked locked(m_Lock);
    result.Reset();
    MountPoint* found = Lookup(name);
    if (found == nullptr)
        return MountNotFound;
    result = RefPtr<MountPoint>(found);
    return MountOk;
}

void FileManager::GetMountTable(std::vector<RefPtr<MountPoint>>& mounts)
{
    Locked locked(m_Lock);
    mounts.assign(m_Table.begin(), m_Table.end());
}

// ---- paths -------------------------------------------------------------------

FileManager::MountResultCodes FileManager::ResolveVirtualPath(const char* path, PathObject& out)
{
    Locked locked(m_Lock);
    // `path` may be out's own text: copy it before clearing.
    char virtualPath[PathSize];
    bool fits = CopyText(virtualPath, path, sizeof virtualPath);
    out.Clear();
    out.SetVirtualPath(virtualPath);

    char key[PathSize];
    if (virtualPath[0] == '/')
        CopyText(key, virtualPath, sizeof key);
    else
        fits = fits && CopyText(key, m_CurrentDirectory, sizeof key) &&
               AppendText(key, virtualPath, sizeof key);
    if (!fits)
        return MountPathTooLong;
    MountPoint* mount = Lookup(key);
    if (mount == nullptr)
        return MountPathNotFound;

    const char* rest = key + mount->GetNameLength();
    if (mount->GetKind() == MountPoint::DriveKind)
        out.SetNativePath(rest);
    else
    {
        char native[PathSize];
        CopyText(native, static_cast<AliasMount*>(mount)->GetNativeBase(), sizeof native);
        if (!AppendText(native, rest, sizeof native))
            return MountPathTooLong;
        out.SetNativePath(native);
    }
    out.SetMountPoint(mount->GetDriveMount());
    return MountOk;
}

bool FileManager::ResolveLocalPath(const char* localPath, char* out, u32 size)
{
    return native::LocalToVirtual(localPath, out, size);
}

FileManager::MountResultCodes FileManager::SetCurrentDirectory(const char* directory)
{
    Locked locked(m_Lock);
    PathObject resolved;
    const MountResultCodes code = ResolveVirtualPath(directory, resolved);
    if (code == MountPathTooLong)
        return code;
    if (code != MountOk || !resolved.GetDrive()->DirectoryExists(resolved))
        return MountPathNotFound;
    CopyText(m_CurrentDirectory, directory, sizeof m_CurrentDirectory);
    return MountOk;
}

void FileManager::GetCurrentDirectory(char* out, u32 size)
{
    Locked locked(m_Lock);
    if (size > 0)
        CopyText(out, m_CurrentDirectory, size);
}

// ---- files and directories ---------------------------------------------------

namespace
{

// The exception of a path that did not resolve.
[[noreturn]] void ThrowUnresolved(FileManager::MountResultCodes code, const PathObject& path)
{
    if (code == FileManager::MountPathTooLong)
        throw FileException("Path too long", path, DiskDrive::DiskErrorPathTooLong, 0);
    throw FileNotFoundException("Virtual path not found", path, DiskDrive::DiskErrorPathNotFound,
                                0);
}

} // namespace

void FileManager::ResolveOrThrow(const char* path, PathObject& out)
{
    const MountResultCodes code = ResolveVirtualPath(path, out);
    if (code != MountOk)
        ThrowUnresolved(code, out);
}

File* FileManager::OpenFile(const char* path, u32 openFlags)
{
    Locked locked(m_Lock);
    PathObject resolved;
    ResolveOrThrow(path, resolved);
    if (!(openFlags & File::OpenCreatePath))
        return resolved.GetDrive()->OpenFile(resolved, openFlags);
    try
    {
        return resolved.GetDrive()->OpenFile(resolved, openFlags);
    }
    catch (const FileNotFoundException& missing)
    {
        if (missing.GetError() != DiskDrive::DiskErrorPathNotFound)
            throw;
    }
    // The directories on the way are missing: create the one of the path
    // (its text up to the last '/') with its parents, then resolve and open
    // again from the start. A second failure is thrown as it comes.
    char again[PathSize];
    CopyText(again, resolved.GetVirtualPath(), sizeof again);
    char directory[PathSize];
    std::memcpy(directory, again, sizeof directory);
    char* lastSlash = std::strrchr(directory, '/');
    *(lastSlash ? lastSlash + 1 : directory) = '\0';
    CreateDirectory(directory, true);
    ResolveOrThrow(again, resolved);
    return resolved.GetDrive()->OpenFile(resolved, openFlags);
}

void FileManager::DeleteFile(const char* path)
{
    Locked locked(m_Lock);
    PathObject resolved;
    ResolveOrThrow(path, resolved);
    resolved.GetDrive()->DeleteFile(resolved);
}

void FileManager::ReplaceFile(const char* source, const char* target)
{
    Locked locked(m_Lock);
    PathObject from, to;
    ResolveOrThrow(source, from);
    ResolveOrThrow(target, to);
    if (from.GetDrive() != to.GetDrive())
        throw FileException("The system cannot move the file to a different disk drive.", to,
                            DiskDrive::DiskErrorDevice, 0);
    to.GetDrive()->ReplaceFile(from, to);
}

u32 FileManager::CreateDirectory(const char* path, bool recursive)
{
    Locked locked(m_Lock);
    PathObject resolved;
    ResolveOrThrow(path, resolved);
    char text[PathSize];
    CopyText(text, path, sizeof text);
    native::FoldVirtualPath(text);

    if (!recursive)
    {
        if (DirectoryExists(text))
            return 0;
        ResolveOrThrow(text, resolved);
        return resolved.GetDrive()->CreateDirectory(resolved);
    }

    // Every prefix that ends in '/', then the whole text.
    u32 result = 0;
    const std::size_t length = std::strlen(text);
    for (std::size_t end = text[0] == '/' ? 1 : 0; end <= length; ++end)
    {
        if (end < length && text[end] != '/')
            continue;
        char prefix[PathSize];
        const std::size_t prefixLength = end < length ? end + 1 : length;
        std::memcpy(prefix, text, prefixLength);
        prefix[prefixLength] = '\0';
        if (prefixLength == 0 || DirectoryExists(prefix))
            continue;
        ResolveOrThrow(prefix, resolved);
        // A refusal that was not thrown does not stop the walk.
        if (u32 refused = resolved.GetDrive()->CreateDirectory(resolved))
            result = result ? result : refused;
    }
    return result;
}

u32 FileManager::DeleteDirectory(const char* path)
{
    Locked locked(m_Lock);
    PathObject resolved;
    ResolveOrThrow(path, resolved);
    return resolved.GetDrive()->DeleteDirectory(resolved);
}

bool FileManager::FileExists(const char* path)
{
    Locked locked(m_Lock);
    PathObject resolved;
    if (ResolveVirtualPath(path, resolved) != MountOk)
        return false;
    return resolved.GetDrive()->FileExists(resolved);
}

bool FileManager::DirectoryExists(const char* path)
{
    Locked locked(m_Lock);
    PathObject resolved;
    if (ResolveVirtualPath(path, resolved) != MountOk)
        return false;
    return resolved.GetDrive()->DirectoryExists(resolved);
}

void FileManager::List(const char* path, PathObjectList& list, bool directories)
{
    Locked locked(m_Lock);
    PathObject resolved;
    const MountResultCodes code = ResolveVirtualPath(path, resolved);
    if (code == MountPathTooLong)
        ThrowUnresolved(code, resolved);
    if (code != MountOk)
        return;
    // The drive appends native names; each gets its virtual form here.
    const PathObjectList::iterator last = list.empty() ? list.end() : std::prev(list.end());
    DiskDrive* drive = resolved.GetDrive();
    if (directories)
        drive->GetDirectoryList(resolved, list);
    else
        drive->GetFileList(resolved, list);
    for (auto entry = last == list.end() ? list.begin() : std::next(last); entry != list.end();
         ++entry)
    {
        char name[PathSize];
        ResolveLocalPath(entry->GetNativePath(), name, sizeof name);
        entry->SetVirtualPath(name);
    }
}

void FileManager::GetDirectoryList(const char* path, PathObjectList& list)
{
    List(path, list, true);
}

void FileManager::GetFileList(const char* path, PathObjectList& list)
{
    List(path, list, false);
}

} // namespace qel
