#include "support/environment.h"

#include <qel/filemanager.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace qeltest
{

void SetEnvironment(const char* name, const char* value)
{
#if defined(_WIN32)
    SetEnvironmentVariableA(name, value);
    std::string assignment = std::string(name) + "=" + (value ? value : "");
    _putenv(assignment.c_str());
#else
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
#endif
}

std::string ModulePathOf(const void* address)
{
#if defined(_WIN32)
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                           GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<LPCSTR>(address), &module);
    char path[MAX_PATH];
    DWORD length = GetModuleFileNameA(module, path, sizeof path);
    return std::string(path, length);
#else
    Dl_info info{};
    return dladdr(address, &info) && info.dli_fname ? info.dli_fname : "";
#endif
}

TemporaryFolder::TemporaryFolder()
{
    std::random_device seed;
    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("qeltest-" + std::to_string(seed()));
    std::filesystem::create_directories(path);
    m_Path = path.string() + static_cast<char>(std::filesystem::path::preferred_separator);
}

std::string TemporaryFolder::VirtualPath() const
{
    char path[qel::FileManager::PathSize];
    qel::FileManager::GetSingletonInstance().ResolveLocalPath(m_Path.c_str(), path, sizeof path);
    std::string resolved = path;
    if (resolved.empty() || resolved.back() != '/')
        resolved += '/';
    return resolved;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
}

} // namespace qeltest
