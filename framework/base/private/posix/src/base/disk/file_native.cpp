// The POSIX disk drive and file, with the observable behaviour of the Win32
// ones.
#define _FILE_OFFSET_BITS 64 // 64-bit offsets on 32-bit hosts too

#include <qel/diskdriveposix.h>
#include <qel/fileposix.h>

#include <qel/errormanager.h>
#include <qel/pathobject.h>
#include <qel/report.h>

#include "base/disk/diskerror.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qel
{

// ---- FilePosix ---------------------------------------------------------------

FilePosix::FilePosix(const char* fileName, DiskDrive* owner, int fd, u64 size, u32 openFlags)
    : File(fileName, owner, size, openFlags, true, true), m_Descriptor(fd)
{
}

FilePosix::~FilePosix()
{
    close(m_Descriptor);
    m_Descriptor = -1;
}

u32 FilePosix::DoRead(void* buffer, u32 count)
{
    // Like ReadFile on a disk file: all that was asked, short only at the end.
    u32 done = 0;
    while (done < count)
    {
        ssize_t read = ::read(m_Descriptor, static_cast<char*>(buffer) + done, count - done);
        if (read == 0)
            break;
        if (read < 0 && errno == EINTR)
            continue;
        if (read < 0)
        {
            QEL_FATAL_ERROR(ErrorManager::BaseCategory, "TODO: trow exceptions");
            break;
        }
        done += u32(read);
    }
    return done;
}

u32 FilePosix::DoWrite(const void* buffer, u32 count)
{
    u32 done = 0;
    while (done < count)
    {
        ssize_t written =
            ::write(m_Descriptor, static_cast<const char*>(buffer) + done, count - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
        {
            QEL_FATAL_ERROR(ErrorManager::BaseCategory, "TODO: trow exceptions");
            break;
        }
        done += u32(written);
    }
    return done;
}

u64 FilePosix::DoSeek(u64 target)
{
    off_t position = lseek(m_Descriptor, off_t(target), SEEK_SET);
    if (position < 0)
    {
        QEL_FATAL_ERROR(ErrorManager::BaseCategory, "TODO: trow exceptions");
        return GetFilePosition();
    }
    return u64(position);
}

bool FilePosix::DoFlush()
{
    return fsync(m_Descriptor) == 0;
}

// ---- paths and errors --------------------------------------------------------

namespace
{

// The system's path of a native path: relative text is read from the root.
std::string SystemPath(const char* native)
{
    return native[0] == '/' ? std::string(native) : "/" + std::string(native);
}

bool IsDirectory(const char* systemPath)
{
    struct stat status;
    return stat(systemPath, &status) == 0 && S_ISDIR(status.st_mode);
}

struct ErrorText
{
    int number;
    DiskDrive::DiskError error;
    const char* text;
};

// errno in terms of the Win32 drive's errors. ENOENT is decided apart.
const ErrorText kErrors[] = {
    {ENOTDIR, DiskDrive::DiskErrorPathNotFound, "Path not found"},
    {EMFILE, DiskDrive::DiskErrorTooManyOpenFiles, "Too many open files"},
    {ENFILE, DiskDrive::DiskErrorTooManyOpenFiles, "Too many open files"},
    {EACCES, DiskDrive::DiskErrorAccessDenied, "Access denied"},
    {EPERM, DiskDrive::DiskErrorAccessDenied, "Access denied"},
    {EROFS, DiskDrive::DiskErrorAccessDenied, "Access denied"},
    // Windows refuses to open or delete a directory as a file this way.
    {EISDIR, DiskDrive::DiskErrorAccessDenied, "Access denied"},
    {EBUSY, DiskDrive::DiskErrorDevice, "The directory cannot be removed."},
    {ENXIO, DiskDrive::DiskErrorDevice, "Device not ready"},
    {ENODEV, DiskDrive::DiskErrorDevice, "Device not ready"},
    {ENOSYS, DiskDrive::DiskErrorDevice, "The device doen't recognize the command."},
    {ENOTSUP, DiskDrive::DiskErrorDevice, "The device doen't recognize the command."},
    {ENOTTY, DiskDrive::DiskErrorDevice, "The device doen't recognize the command."},
    {ETXTBSY, DiskDrive::DiskErrorDevice,
     "The process cannot access the file because it is being used by another process."},
    {ENOSPC, DiskDrive::DiskErrorDiskFull, "Disk is full"},
    {EDQUOT, DiskDrive::DiskErrorDiskFull, "Disk is full"},
    {EEXIST, DiskDrive::DiskErrorAlreadyExists, "File already exists"},
};

void Classify(int number, const char* native, DiskDrive::DiskError& error, const char*& text)
{
    if (number == ENOENT)
    {
        // File not found when its directory is there, else path not found.
        std::string directory = SystemPath(native);
        if (directory.size() > 1 && directory.back() == '/')
            directory.pop_back();
        directory.erase(directory.find_last_of('/') + 1);
        const bool found = IsDirectory(directory.c_str());
        error = found ? DiskDrive::DiskErrorFileNotFound : DiskDrive::DiskErrorPathNotFound;
        text = found ? "File not found" : "Path not found";
        return;
    }
    for (const ErrorText& known : kErrors)
        if (known.number == number)
        {
            error = known.error;
            text = known.text;
            return;
        }
    error = DiskDrive::DiskErrorUnknown;
    text = "Unknown error";
}

// FindFirstFileA's matching: '*' and '?' only, "*.*" for every name.
bool Matches(const char* pattern, const char* name)
{
    if (std::strcmp(pattern, "*.*") == 0)
        return true;
    std::string literal;
    for (const char* c = pattern; *c != '\0'; ++c)
        literal += *c == '[' ? std::string("[[]") : std::string(1, *c);
    return fnmatch(literal.c_str(), name, FNM_NOESCAPE) == 0;
}

// Calls visit(name, isDirectory) for every entry that `systemPath` names,
// its last part taken as a pattern, until visit answers false. A path that
// ends in '/' names nothing, as for FindFirstFileA.
template <class Visit>
void Search(const std::string& systemPath, Visit visit)
{
    const std::size_t slash = systemPath.find_last_of('/');
    const std::string directory = systemPath.substr(0, slash == 0 ? 1 : slash);
    const std::string pattern = systemPath.substr(slash + 1);
    if (pattern.empty())
        return;
    if (pattern.find_first_of("*?") == std::string::npos)
    {
        struct stat status;
        if (stat(systemPath.c_str(), &status) == 0)
            visit(pattern.c_str(), S_ISDIR(status.st_mode));
        return;
    }
    DIR* folder = opendir(directory.c_str());
    if (folder == nullptr)
        return;
    while (dirent* entry = readdir(folder))
    {
        if (!Matches(pattern.c_str(), entry->d_name))
            continue;
        bool isDirectory = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN || entry->d_type == DT_LNK)
        {
            struct stat status;
            isDirectory =
                fstatat(dirfd(folder), entry->d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
        }
        if (!visit(entry->d_name, isDirectory))
            break;
    }
    closedir(folder);
}

// Appends the entries of `native` whose kind is `directories`, skipping
// names that begin with '.'.
void List(const char* native, bool directories, PathObjectList& list)
{
    Search(SystemPath(native),
           [&](const char* name, bool isDirectory)
           {
               if (name[0] != '.' && isDirectory == directories)
               {
                   list.emplace_back();
                   list.back().SetNativePath(name);
               }
               return true;
           });
}

} // namespace

// ---- DiskDrivePosix ----------------------------------------------------------

void DiskDrivePosix::AnalyzeError(const PathObject& path)
{
    const int number = errno;
    DiskError error;
    const char* text;
    Classify(number, path.GetNativePath(), error, text);
    ThrowDiskError(path, error, text, u32(number));
}

File* DiskDrivePosix::OpenFile(const PathObject& path, u32 openFlags)
{
    int flags;
    if (openFlags & File::OpenRead)
    {
        flags = O_RDONLY;
        // OpenExisting comes first and wants the file there, as no flag does.
        if (!(openFlags & File::OpenExisting) && (openFlags & File::OpenAlways))
            flags |= O_CREAT;
        else if (!(openFlags & File::OpenExisting) && (openFlags & File::OpenTruncate))
        {
            // Truncating needs write access: Windows refuses a read opened
            // this way as an invalid parameter, and so do we, file untouched.
            errno = EINVAL;
            AnalyzeError(path);
        }
    }
    else
    {
        // A plain write refuses to overwrite, as CREATE_NEW.
        flags = O_WRONLY;
        if (openFlags & File::OpenCreateAlways)
            flags |= O_CREAT | O_TRUNC;
        else if (openFlags & File::OpenCreateNew)
            flags |= O_CREAT | O_EXCL;
        else if (openFlags & File::OpenAlways)
            flags |= O_CREAT;
        else
            flags |= O_CREAT | O_EXCL;
    }
    const std::string systemPath = SystemPath(path.GetNativePath());
    int fd = open(systemPath.c_str(), flags | O_CLOEXEC, 0666);
    struct stat status;
    if (fd >= 0 && (fstat(fd, &status) != 0 || S_ISDIR(status.st_mode)))
    {
        // A directory is not opened as a file (Windows refuses it too).
        close(fd);
        fd = -1;
        errno = EISDIR;
    }
    if (fd < 0)
        AnalyzeError(path);

    posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    File* file = new FilePosix(path.GetVirtualPath(), this, fd, u64(status.st_size), openFlags);
    if (file == nullptr)
        close(fd); // the allocation reported it
    return file;
}

void DiskDrivePosix::DeleteFile(const PathObject& path)
{
    if (unlink(SystemPath(path.GetNativePath()).c_str()) != 0)
        AnalyzeError(path);
}

bool DiskDrivePosix::FileExists(const PathObject& path)
{
    bool found = false, isFile = false;
    Search(SystemPath(path.GetNativePath()),
           [&](const char*, bool isDirectory)
           {
               found = true;
               isFile = !isDirectory;
               return false;
           });
    return found && isFile;
}

bool DiskDrivePosix::DirectoryExists(const PathObject& path)
{
    const char* native = path.GetNativePath();
    if (native[0] == '\0')
        return true; // the root
    std::string directory = SystemPath(native);
    directory.pop_back(); // the trailing '/'
    if (directory.empty())
        return true;
    bool found = false;
    Search(directory,
           [&](const char*, bool)
           {
               found = true;
               return false;
           });
    return found;
}

void DiskDrivePosix::GetDirectoryList(const PathObject& path, PathObjectList& list)
{
    List(path.GetNativePath(), true, list);
}

void DiskDrivePosix::GetFileList(const PathObject& path, PathObjectList& list)
{
    List(path.GetNativePath(), false, list);
}

u32 DiskDrivePosix::CreateDirectory(const PathObject& path)
{
    if (mkdir(SystemPath(path.GetNativePath()).c_str(), 0777) == 0)
        return 0;
    const int number = errno;
    static ErrorManager::QueryUserFlag flag = 0;
    if (report::Warning(ErrorManager::BaseCategory, flag, __FILE__, __LINE__,
                        "Unable to create directory %s.",
                        path.GetNativePath()) == QueryDevice::Retry)
    {
        QEL_DEBUG_BREAK();
        return u32(number);
    }
    errno = number;
    AnalyzeError(path);
}

u32 DiskDrivePosix::DeleteDirectory(const PathObject& path)
{
    if (rmdir(SystemPath(path.GetNativePath()).c_str()) != 0)
        AnalyzeError(path);
    return 0;
}

void DiskDrivePosix::ReplaceFile(const PathObject& source, const PathObject& target)
{
    if (rename(SystemPath(source.GetNativePath()).c_str(),
               SystemPath(target.GetNativePath()).c_str()) != 0)
        AnalyzeError(target);
}

} // namespace qel
