// The file manager's mount table and path resolution under lines read from
// the input. Each line is one command, its first character the operation:
//   M name          mount a drive mount on the platform's drive
//   A name target   mount an alias of the target
//                   (neither when the name would nest with a mount's)
//   U name          unmount (never a name under a mount the run began with)
//   R path          resolve a virtual path
//   L path          turn a system path into its virtual form
//   C path          make a directory current
//   E path          ask whether a file or a directory is there
//   O path          open a path longer than 255 characters for reading
// After each command the table must still be in order, a resolved path must
// fit its buffer, and a path that does not fit must never resolve nor reach
// a drive (it would name another file): opening it throws "Path too long",
// and a local path turned virtual is cut only when it says so. At the end
// the mounts made are taken down again and the table and current directory
// must be what they were.
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/pathobject.h>

#include "fuzzhost.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using qel::FileManager;
using qel::MountPoint;
using qel::RefPtr;

[[noreturn]] void Fail(const char* what, const char* text)
{
    std::fprintf(stderr, "path fuzz: %s: \"%s\"\n", what, text);
    std::abort();
}

std::vector<std::string> Names(FileManager& manager)
{
    std::vector<RefPtr<MountPoint>> table;
    manager.GetMountTable(table);
    std::vector<std::string> names;
    for (const RefPtr<MountPoint>& mount : table)
        names.emplace_back(mount->GetName());
    return names;
}

// Neighbours ascend by signed bytes over their common length (a name and a
// longer one that it prefixes compare equal).
void CheckOrder(FileManager& manager)
{
    const std::vector<std::string> names = Names(manager);
    for (std::size_t i = 1; i < names.size(); ++i)
    {
        const std::string& a = names[i - 1];
        const std::string& b = names[i];
        const std::size_t n = a.size() < b.size() ? a.size() : b.size();
        for (std::size_t k = 0; k < n; ++k)
            if (a[k] != b[k])
            {
                if (static_cast<signed char>(a[k]) > static_cast<signed char>(b[k]))
                    Fail("the mount table is out of order", b.c_str());
                break;
            }
    }
}

// The table is searched by bisection, which nested mounts (one name
// prefixing another) can lead past a mount that prefixes the key; a table
// with such pairs cannot always be taken down name by name. Mounts that
// would nest are therefore not made.
bool Nests(FileManager& manager, const std::string& name)
{
    for (const std::string& mount : Names(manager))
        if (name.compare(0, mount.size(), mount) == 0 || mount.compare(0, name.size(), name) == 0)
            return true;
    return false;
}

bool UnderAny(const std::string& name, const std::vector<std::string>& mounts)
{
    for (const std::string& mount : mounts)
        if (name.compare(0, mount.size(), mount) == 0 || mount.compare(0, name.size(), name) == 0)
            return true;
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    qelfuzz::QuietHost::Install();
    FileManager& manager = FileManager::GetSingletonInstance();
    static const std::vector<std::string> initial = Names(manager);
    static const RefPtr<qel::DiskDrive> drive = []
    {
        RefPtr<MountPoint> disks;
        FileManager::GetSingletonInstance().FindMount("/disks/", disks);
        return RefPtr<qel::DiskDrive>(disks ? disks->GetDriveMount()->GetDrive() : nullptr);
    }();
    char current[FileManager::PathSize];
    manager.GetCurrentDirectory(current, sizeof current);

    qelfuzz::Bytes in(data, size);
    std::vector<std::string> mounted;
    for (int step = 0; step < 64 && !in.Empty(); ++step)
    {
        char line[600];
        in.Line(line, sizeof line);
        const char op = line[0];
        char* text = line[0] != '\0' ? line + 1 : line;
        char* second = std::strchr(text, ' ');
        if (second != nullptr)
            *second++ = '\0';

        switch (op)
        {
        case 'M':
            if (!Nests(manager, text) && manager.Mount(text, drive) == FileManager::MountOk)
                mounted.emplace_back(text);
            break;
        case 'A':
            if (!Nests(manager, text) &&
                manager.Mount(text, second ? second : "") == FileManager::MountOk)
                mounted.emplace_back(text);
            break;
        case 'U':
            if (!UnderAny(text, initial))
                manager.Unmount(text);
            break;
        case 'R':
        {
            qel::PathObject path;
            if (manager.ResolveVirtualPath(text, path) == FileManager::MountOk)
            {
                if (std::strlen(text) >= qel::PathObject::PathSize)
                    Fail("a path that does not fit resolved", text);
                if (std::strlen(path.GetNativePath()) >= qel::PathObject::PathSize ||
                    std::strlen(path.GetVirtualPath()) >= qel::PathObject::PathSize)
                    Fail("a resolved path overruns its buffer", text);
                if (!path.GetMountPoint())
                    Fail("a resolved path has no mount", text);
            }
            break;
        }
        case 'L':
        {
            char out[FileManager::PathSize + 1];
            out[FileManager::PathSize] = '\x7F';
            const bool whole = manager.ResolveLocalPath(text, out, FileManager::PathSize);
            if (out[FileManager::PathSize] != '\x7F' || std::strlen(out) >= FileManager::PathSize)
                Fail("a local path overruns its buffer", text);
            char roomy[sizeof line + 16];
            manager.ResolveLocalPath(text, roomy, sizeof roomy);
            if (whole != (std::strcmp(out, roomy) == 0))
                Fail("a local path was cut without saying so", text);
            break;
        }
        case 'O':
            // Shorter paths would reach the system: a fifo would block.
            if (std::strlen(text) >= qel::PathObject::PathSize)
            {
                try
                {
                    delete manager.OpenFile(text, qel::File::OpenRead | qel::File::OpenExisting);
                    Fail("a path that does not fit was opened", text);
                }
                catch (const qel::FileException& e)
                {
                    if (e.GetError() != qel::DiskDrive::DiskErrorPathTooLong)
                        Fail("a path that does not fit was taken for another", text);
                }
            }
            break;
        case 'C':
            manager.SetCurrentDirectory(text);
            break;
        case 'E':
            manager.FileExists(text);
            manager.DirectoryExists(text);
            break;
        default:
            break;
        }
        CheckOrder(manager);
    }

    // Take down what this input mounted, newest first.
    for (auto name = mounted.rbegin(); name != mounted.rend(); ++name)
        manager.Unmount(name->c_str());
    manager.SetCurrentDirectory(current);
    if (Names(manager) != initial)
        Fail("the mount table is not what it was", "");
    char after[FileManager::PathSize];
    manager.GetCurrentDirectory(after, sizeof after);
    if (std::strcmp(after, current) != 0)
        Fail("the current directory is not what it was", after);
    return 0;
}
