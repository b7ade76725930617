#include "support/environment.h"

#include <qel/filemanager.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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

bool MakeSparseFile(const std::string& path, unsigned long long size,
                    const std::vector<std::pair<unsigned long long, std::string>>& marks,
                    std::string& why)
{
    std::error_code error;
    std::ofstream(path, std::ios::binary).close();
    std::filesystem::resize_file(path, size, error);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    for (const auto& mark : marks)
        if (!error && file)
            file.seekp(std::streamoff(mark.first))
                .write(mark.second.data(), std::streamsize(mark.second.size()));
    if (error || !file.flush() || std::filesystem::file_size(path, error) != size)
    {
        why = "no sparse file of " + std::to_string(size) + " bytes here: " + error.message();
        file.close();
        std::filesystem::remove(path, error);
        return false;
    }
    return true;
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
