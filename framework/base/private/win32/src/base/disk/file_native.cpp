// The Win32 disk drive and file.
#include <qel/diskdrivewin32.h>
#include <qel/filewin32.h>

#include <qel/errormanager.h>
#include <qel/pathobject.h>
#include <qel/report.h>

#include "base/disk/diskerror.h"
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
    LONG high = LONG(target >> 32);
    DWORD low = SetFilePointer(m_Handle, LONG(target & 0xFFFFFFFFu), &high, FILE_BEGIN);
    if (low == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR)
    {
        QEL_FATAL_ERROR(ErrorManager::BaseCategory, "TODO: trow exceptions");
        return GetFilePosition();
    }
    return (u64(DWORD(high)) << 32) | low;
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

// Runs FindFirstFileA/FindNextFileA over `pattern` and appends the entries
// whose directory attribute is `directories`, skipping names that begin
// with '.'.
void List(const char* pattern, bool directories, PathObjectList& list)
{
    WIN32_FIND_DATAA entry;
    HANDLE search = FindFirstFileA(pattern, &entry);
    if (search == INVALID_HANDLE_VALUE)
        return;
    do
    {
        const bool isDirectory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (entry.cFileName[0] == '.' || isDirectory != directories)
            continue;
        list.emplace_back();
        list.back().SetNativePath(entry.cFileName);
    } while (FindNextFileA(search, &entry));
    FindClose(search);
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
    HANDLE handle = CreateFileA(path.GetNativePath(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, disposition, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        AnalyzeError(path);

    DWORD high = 0;
    DWORD low = GetFileSize(handle, &high);
    const u64 size = low == INVALID_FILE_SIZE ? 0 : (u64(high) << 32) | low;
    File* file = new FileWin32(path.GetVirtualPath(), this, handle, size, openFlags);
    if (file == nullptr)
        CloseHandle(handle); // the allocation reported it
    return file;
}

void DiskDriveWin32::DeleteFile(const PathObject& path)
{
    if (!DeleteFileA(path.GetNativePath()))
        AnalyzeError(path);
}

bool DiskDriveWin32::FileExists(const PathObject& path)
{
    WIN32_FIND_DATAA entry;
    HANDLE search = FindFirstFileA(path.GetNativePath(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    FindClose(search);
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
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
    WIN32_FIND_DATAA entry;
    HANDLE search = FindFirstFileA(directory, &entry);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    FindClose(search);
    return true;
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
    if (CreateDirectoryA(path.GetNativePath(), nullptr))
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
    if (!RemoveDirectoryA(path.GetNativePath()))
        AnalyzeError(path);
    return 0;
}

namespace
{

// MoveFileExW over two UTF-8 paths, converted to UTF-16. False with the
// system's error set when a path is no UTF-8 or the move is refused.
bool MoveReplacing(const char* source, const char* target)
{
    wchar_t from[MAX_PATH], to[MAX_PATH];
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, source, -1, from, MAX_PATH) != 0 &&
           MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, target, -1, to, MAX_PATH) != 0 &&
           MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING) != FALSE;
}

} // namespace

void DiskDriveWin32::ReplaceFile(const PathObject& source, const PathObject& target)
{
    if (!MoveReplacing(source.GetNativePath(), target.GetNativePath()))
        AnalyzeError(target);
}

} // namespace qel
