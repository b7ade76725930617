// Tour section and commands of the file layer: the mount table, virtual
// paths resolved to native ones, and files opened, listed and created
// through the file manager.
#include "tour.h"

#include <qel/file.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace qeltool
{

namespace
{

using qel::FileManager;

// The virtual path of a folder of the system, ending in '/'.
std::string VirtualFolder(const std::string& local)
{
    std::string folder = VirtualPath(local);
    if (folder.empty() || folder.back() != '/')
        folder += '/';
    return folder;
}

} // namespace

std::string FileReason(const qel::FileException& error)
{
    if (error.GetSystemReason()[0] != '\0')
        return error.GetSystemReason();
    const std::string reason = error.GetReason();
    return reason.substr(0, reason.rfind(" - Virtual Path: "));
}

std::string WhyUnreadable(const std::string& virtualPath)
{
    try
    {
        delete FileManager::GetSingletonInstance().OpenFile(
            virtualPath.c_str(), qel::File::OpenRead | qel::File::OpenExisting);
    }
    catch (const qel::FileException& e)
    {
        return FileReason(e);
    }
    return std::string();
}

void PrintMountTable()
{
    std::vector<qel::RefPtr<FileManager::MountPoint>> mounts;
    FileManager::GetSingletonInstance().GetMountTable(mounts);
    for (const auto& mount : mounts)
    {
        if (mount->GetKind() == FileManager::MountPoint::DriveKind)
        {
            std::printf("%-10s drive\n", mount->GetName());
            continue;
        }
        auto* alias = static_cast<FileManager::AliasMount*>(mount.Get());
        std::printf("%-10s alias on %s (native \"%s\" on %s)\n", mount->GetName(),
                    alias->GetTarget(), alias->GetNativeBase(), alias->GetDriveMount()->GetName());
    }
}

int ResolvePaths(int count, char** paths)
{
    int failures = 0;
    for (int i = 0; i < count; ++i)
    {
        qel::PathObject resolved;
        const FileManager::MountResultCodes code =
            FileManager::GetSingletonInstance().ResolveVirtualPath(paths[i], resolved);
        if (code == FileManager::MountOk)
            std::printf("%s -> \"%s\" on %s\n", paths[i], resolved.GetNativePath(),
                        resolved.GetMountPoint()->GetName());
        else
        {
            std::fflush(stdout); // the lines stay in order when both streams go to one place
            std::fprintf(stderr, "%s: %s\n", paths[i],
                         code == FileManager::MountPathTooLong ? "Path too long"
                                                               : "Virtual path not found");
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}

void TourFiles(const TourContext& context)
{
    FileManager& manager = FileManager::GetSingletonInstance();
    Banner("mount table");
    PrintMountTable();
    char current[FileManager::PathSize];
    manager.GetCurrentDirectory(current, sizeof current);
    std::printf("current directory: %s\n", current);

    Banner("virtual paths");
    const std::string samples = VirtualFolder(context.dataDir);
    std::string paths[] = {"/exedir/", samples + "characters.txt", "characters.txt", "/nomount/a"};
    char* arguments[4];
    for (int i = 0; i < 4; ++i)
        arguments[i] = &paths[i][0];
    ResolvePaths(4, arguments);

    Banner("files");
    qel::PathObjectList names;
    manager.GetFileList((samples + "*").c_str(), names);
    std::printf("%s holds %u file(s):", samples.c_str(), unsigned(names.size()));
    for (const qel::PathObject& name : names)
        std::printf(" %s", name.GetVirtualPath());
    std::printf("\n");
    try
    {
        std::unique_ptr<qel::File> file(
            manager.OpenFile((samples + "characters.txt").c_str(), qel::File::OpenRead));
        char line[64] = {};
        file->Read(line, sizeof line - 1);
        for (char* c = line; *c; ++c)
            if (*c == '\n' || *c == '\r')
                *c = '\0';
        std::printf("characters.txt: %llu bytes, first line \"%s\"\n",
                    static_cast<unsigned long long>(file->GetFileSize()), line);
    }
    catch (const qel::FileException& e)
    {
        std::printf("%s\n", e.GetReason());
    }

    // A file two folders deep in a fresh folder: OpenCreatePath makes them.
    const std::string scratch =
        VirtualFolder(Utf8(std::filesystem::temp_directory_path() / "qeltool-tour"));
    const std::string note = scratch + "a/b/note.txt";
    try
    {
        {
            std::unique_ptr<qel::File> out(manager.OpenFile(
                note.c_str(), qel::File::OpenCreateAlways | qel::File::OpenCreatePath));
            out->Write("written through /disks/", 23);
        }
        std::printf("wrote %s; a/b/ exists: %s\n", note.c_str(),
                    manager.DirectoryExists((scratch + "a/b/").c_str()) ? "yes" : "no");
        try
        {
            delete manager.OpenFile(note.c_str(), 0); // writing never overwrites by default
        }
        catch (const qel::FileExistsException& e)
        {
            std::printf("opened again for writing: %s\n", e.GetReason());
        }
        manager.DeleteFile(note.c_str());
        manager.DeleteDirectory((scratch + "a/b/").c_str());
        manager.DeleteDirectory((scratch + "a/").c_str());
        manager.DeleteDirectory(scratch.c_str());
        std::printf("removed it again; exists: %s\n",
                    manager.FileExists(note.c_str()) ? "yes" : "no");
    }
    catch (const qel::FileException& e)
    {
        std::printf("%s\n", e.GetReason());
    }
}

} // namespace qeltool
