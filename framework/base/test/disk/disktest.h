// Helpers of the disk tests: the platform's drive, native paths of a
// temporary folder, and small file chores done without the library.
#pragma once

#include <qel/diskdrive.h>
#include <qel/pathobject.h>

#if defined(_WIN32)
#include <qel/diskdrivewin32.h>
#else
#include <qel/diskdriveposix.h>
#endif

#include "support/environment.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace disktest
{

#if defined(_WIN32)
typedef qel::DiskDriveWin32 NativeDrive;
#else
typedef qel::DiskDrivePosix NativeDrive;
#endif

// `path` with '/' separators, as native and virtual paths are written.
inline std::string Slashed(std::string path)
{
    for (char& c : path)
        if (c == '\\')
            c = '/';
    return path;
}

// The running executable's path, as the system gives it.
inline std::string ExecutablePath()
{
#if defined(_WIN32)
    return qeltest::ModulePathOf(reinterpret_cast<const void*>(&Slashed));
#else
    return std::filesystem::read_symlink("/proc/self/exe").string();
#endif
}

inline qel::PathObject MakePath(const std::string& virtualPath, const std::string& nativePath)
{
    qel::PathObject path;
    path.SetVirtualPath(virtualPath.c_str());
    path.SetNativePath(nativePath.c_str());
    return path;
}

inline void WriteFile(const std::string& path, const std::string& contents)
{
    std::ofstream(path, std::ios::binary) << contents;
}

inline std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace disktest
