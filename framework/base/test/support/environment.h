// Test helpers for the process environment and temporary folders.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qeltest
{

// Sets (or, with null, removes) an environment variable in a way that both
// the C runtime and, on Windows, the process environment block see.
void SetEnvironment(const char* name, const char* value);

// The full path of the file of the module (executable or library) that
// contains `address`.
std::string ModulePathOf(const void* address);

// Makes `path` a sparse file of `size` bytes, zeros but for the texts of
// `marks` at their offsets. False, with the reason in `why`, where the file
// system refuses such a file.
bool MakeSparseFile(const std::string& path, unsigned long long size,
                    const std::vector<std::pair<unsigned long long, std::string>>& marks,
                    std::string& why);

// A fresh empty folder under the system's temporary folder, removed with its
// contents when the object dies. Path ends with a separator.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    const std::string& Path() const { return m_Path; }
    // The folder as the file manager names it (a virtual path), ending in '/'.
    std::string VirtualPath() const;

private:
    std::string m_Path;
};

} // namespace qeltest
