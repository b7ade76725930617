// The Win32 disk drive and file. Native paths are UTF-8; every call to the
// system goes through the wide API with the path in UTF-16.
#include <qel/diskdrivewin32.h>
#include <qel/filewin32.h>

#include <qel/errormanager.h>
#include <qel/pathobject.h>
#include <qel/report.h>

#include "base/disk/diskerror.h"
#include "base/disk/widetext_native.h"
#include "base/platform/windows.h"

#include <cstring>

namespace qel
{

// ---- FileWin32 ---------------------------------------------------------------

FileWin32::FileWin32(const char* fileName, DiskDrive* owner, void* handle, u64 size, u32 openFlags)
    : File(fileName, owner, size, openFlags, true, true), m_Handle(handle)
{
}

FileWin32::~FileWin32()
{
    CloseHandle(m_Handle);
    m_Handle = INVALID_HANDLE_VALUE;
}

u32 FileWin32::DoRead(void* buffer, u32 count)
{
    DWORD read = 0;
    if (!ReadFile(m_Handle, buffer, count, &read, nullptr))
        QEL_FATAL_ERROR(ErrorManager::BaseCategory, "TODO: trow exceptions");
    return read;
}

u32 FileWin32::DoWrite(const void* buffer, u32 count)
{
    DWORD written = 0;
    if (!WriteFile(m_Handle, buffer, count, &written, nullptr))
        QEL_FATAL_ERROR(ErrorManager::BaseCategory, "TODO: trow exceptions");
    return written;
}

u64 FileWin32::DoSeek(u64 target)
{
    LARGE_INTEGER distance, position;
    distance.QuadPart = LONGLONG(target);
    if (!SetFilePointerEx(m_Handle, distance, &position, FILE_BEGIN))
    {
        QEL_FATAL_ERROR(ErrorManager::BaseCategory, "TODO: trow exceptions");
        return GetFilePosition();
    }
    return u64(position.QuadPart);
}

bool FileWin32::DoFlush()
{
    return FlushFileBuffers(m_Handle) != FALSE;
}

// ---- DiskDriveWin32 ----------------------------------------------------------

namespace
{

struct ErrorText
{
    DWORD number;
    DiskDrive::DiskError error;
    const char* text;
};

const ErrorText kErrors[] = {
    {ERROR_FILE_NOT_FOUND, DiskDrive::DiskErrorFileNotFound, "File not found"},
    {ERROR_PATH_NOT_FOUND, DiskDrive::DiskErrorPathNotFound, "Path not found"},
    {ERROR_TOO_MANY_OPEN_FILES, DiskDrive::DiskErrorTooManyOpenFiles, "Too many open files"},
    {ERROR_ACCESS_DENIED, DiskDrive::DiskErrorAccessDenied, "Access denied"},
    {ERROR_CURRENT_DIRECTORY, DiskDrive::DiskErrorDevice, "The directory cannot be removed."},
    {ERROR_NOT_READY, DiskDrive::DiskErrorDevice, "Device not ready"},
    {ERROR_BAD_COMMAND, DiskDrive::DiskErrorDevice, "The device doen't recognize the command."},
    {ERROR_SHARING_VIOLATION, DiskDrive::DiskErrorDevice,
     "The process cannot access the file because it is being used by another process."},
    {ERROR_HANDLE_DISK_FULL, DiskDrive::DiskErrorDiskFull, "Disk is full"},
    {ERROR_FILE_EXISTS, DiskDrive::DiskErrorAlreadyExists, "File already exists"},
    {ERROR_ALREADY_EXISTS, DiskDrive::DiskErrorAlreadyExists, "File already exists"},
};

// A native path in UTF-16. Every native path fits: a UTF-8 text never has
// more UTF-16 units than bytes.
struct WidePath
{
    explicit WidePath(const char* native)
        : valid(native::ToWide(native, text, PathObject::PathSize))
    {
    }
    wchar_t text[PathObject::PathSize];
    bool valid; // false for a text that is not UTF-8 (the last error says so)
};

// Runs FindFirstFileW/FindNextFileW over `pattern` and appends the entries
// whose directory attribute is `directories`, skipping names that begin
// with '.' and names whose UTF-8 form does not fit a path.
void List(const char* pattern, bool directories, PathObjectList& list)
{
    const WidePath wide(pattern);
    WIN32_FIND_DATAW entry;
    HANDLE search = wide.valid ? FindFirstFileW(wide.text, &entry) : INVALID_HANDLE_VALUE;
    if (search == INVALID_HANDLE_VALUE)
        return;
    do
    {
        const bool isDirectory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        char name[PathObject::PathSize];
        if (entry.cFileName[0] == L'.' || isDirectory != directories ||
            !native::ToUtf8(entry.cFileName, name, sizeof name))
            continue;
        list.emplace_back();
        list.back().SetNativePath(name);
    } while (FindNextFileW(search, &entry));
    FindClose(search);
}

// Whether anything matches `path`, and whether the first match is a
// directory.
bool Find(const WidePath& path, bool& isDirectory)
{
    WIN32_FIND_DATAW entry;
    HANDLE search = path.valid ? FindFirstFileW(path.text, &entry) : INVALID_HANDLE_VALUE;
    if (search == INVALID_HANDLE_VALUE)
        return false;
    FindClose(search);
    isDirectory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return true;
}

// Throws the error of a file operation on `path`. Windows refuses a
// directory taken for a file as access denied; the reason says what it is.
[[noreturn]] void AnalyzeFileError(const PathObject& path, const WidePath& wide)
{
    const DWORD number = GetLastError();
    const DWORD attributes = wide.valid ? GetFileAttributesW(wide.text) : INVALID_FILE_ATTRIBUTES;
    if (number == ERROR_ACCESS_DENIED && attributes != INVALID_FILE_ATTRIBUTES &&
        (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        ThrowDiskError(path, DiskDrive::DiskErrorAccessDenied, "Access denied", number,
                       kIsADirectory);
    SetLastError(number);
    DiskDriveWin32::AnalyzeError(path);
}

} // namespace

void DiskDriveWin32::AnalyzeError(const PathObject& path)
{
    const DWORD number = GetLastError();
    for (const ErrorText& known : kErrors)
        if (known.number == number)
            ThrowDiskError(path, known.error, known.text, number);
    ThrowDiskError(path, DiskErrorUnknown, "Unknown error", number);
}

File* DiskDriveWin32::OpenFile(const PathObject& path, u32 openFlags)
{
    DWORD access, disposition;
    if (openFlags & File::OpenRead)
    {
        access = GENERIC_READ;
        disposition = (openFlags & File::OpenExisting)   ? OPEN_EXISTING
                      : (openFlags & File::OpenAlways)   ? OPEN_ALWAYS
                      : (openFlags & File::OpenTruncate) ? TRUNCATE_EXISTING
                                                         : OPEN_EXISTING;
    }
    else
    {
        // A plain write refuses to overwrite: CREATE_NEW.
        access = GENERIC_WRITE;
        disposition = (openFlags & File::OpenCreateAlways) ? CREATE_ALWAYS
                      : (openFlags & File::OpenCreateNew)  ? CREATE_NEW
                      : (openFlags & File::OpenAlways)     ? OPEN_ALWAYS
                                                           : CREATE_NEW;
    }
    if (access == GENERIC_READ && disposition == TRUNCATE_EXISTING)
    {
        // Windows refuses to truncate without write access; some emulations
        // of it do not, so the refusal is made here on every system.
        SetLastError(ERROR_INVALID_PARAMETER);
        AnalyzeError(path);
    }
    const WidePath wide(path.GetNativePath());
    HANDLE handle = wide.valid
                        ? CreateFileW(wide.text, access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, disposition, FILE_FLAG_SEQUENTIAL_SCAN, nullptr)
                        : INVALID_HANDLE_VALUE;
    if (handle == INVALID_HANDLE_VALUE)
        AnalyzeFileError(path, wide);

    // The whole size: the low word all ones is a size like any other.
    LARGE_INTEGER size;
    if (!GetFileSizeEx(handle, &size))
        size.QuadPart = 0;
    File* file = new FileWin32(path.GetVirtualPath(), this, handle, u64(size.QuadPart), openFlags);
    if (file == nullptr)
        CloseHandle(handle); // the allocation reported it
    return file;
}

void DiskDriveWin32::DeleteFile(const PathObject& path)
{
    const WidePath wide(path.GetNativePath());
    if (!wide.valid || !DeleteFileW(wide.text))
        AnalyzeFileError(path, wide);
}

bool DiskDriveWin32::FileExists(const PathObject& path)
{
    bool isDirectory = false;
    return Find(WidePath(path.GetNativePath()), isDirectory) && !isDirectory;
}

bool DiskDriveWin32::DirectoryExists(const PathObject& path)
{
    char directory[PathObject::PathSize];
    std::strcpy(directory, path.GetNativePath());
    const std::size_t length = std::strlen(directory);
    if (length == 0)
        return true;
    if (length == 3 && directory[1] == ':')
    {
        // The file manager writes drive letters in lower case.
        const int drive = directory[0] - 'a';
        return drive >= 0 && drive < 26 && ((GetLogicalDrives() >> drive) & 1) != 0;
    }
    directory[length - 1] = '\0'; // the trailing '/'
    bool isDirectory = false;
    return Find(WidePath(directory), isDirectory);
}

void DiskDriveWin32::GetDirectoryList(const PathObject& path, PathObjectList& list)
{
    List(path.GetNativePath(), true, list);
}

void DiskDriveWin32::GetFileList(const PathObject& path, PathObjectList& list)
{
    List(path.GetNativePath(), false, list);
}

u32 DiskDriveWin32::CreateDirectory(const PathObject& path)
{
    const WidePath wide(path.GetNativePath());
    if (wide.valid && CreateDirectoryW(wide.text, nullptr))
        return 0;
    const DWORD number = GetLastError();
    static ErrorManager::QueryUserFlag flag = 0;
    if (report::Warning(ErrorManager::BaseCategory, flag, __FILE__, __LINE__,
                        "Unable to create directory %s.",
                        path.GetNativePath()) == QueryDevice::Retry)
    {
        QEL_DEBUG_BREAK();
        return number;
    }
    SetLastError(number);
    AnalyzeError(path);
}

u32 DiskDriveWin32::DeleteDirectory(const PathObject& path)
{
    const WidePath wide(path.GetNativePath());
    if (!wide.valid || !RemoveDirectoryW(wide.text))
        AnalyzeError(path);
    return 0;
}

void DiskDriveWin32::ReplaceFile(const PathObject& source, const PathObject& target)
{
    const WidePath from(source.GetNativePath());
    const WidePath to(target.GetNativePath());
    if (!from.valid || !to.valid || !MoveFileExW(from.text, to.text, MOVEFILE_REPLACE_EXISTING))
        AnalyzeError(target);
}

} // namespace qel
