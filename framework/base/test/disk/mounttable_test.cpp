// The file manager's mount table and path resolution, over drives that only
// record what they are asked: the prefix order and its consequences,
// aliases, the current directory, the automatic mounts and the lock around
// drive calls.
#include <qel/fileexception.h>
#include <qel/filemanager.h>

#include "disk/disktest.h"
#include "support/environment.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{

using qel::DiskDrive;
using qel::FileManager;
using qel::PathObject;
using qel::RefPtr;

// Serves nothing; every directory exists, no file does. Records the calls
// that act on files.
class RecordingDrive : public DiskDrive
{
public:
    qel::File* OpenFile(const PathObject& path, qel::u32) override
    {
        if (onOpen)
            onOpen();
        Note("open", path);
        return nullptr;
    }
    void DeleteFile(const PathObject& path) override { Note("delete", path); }
    bool FileExists(const PathObject&) override { return false; }
    bool DirectoryExists(const PathObject&) override { return true; }
    void GetDirectoryList(const PathObject& path, qel::PathObjectList&) override
    {
        Note("list", path);
    }
    qel::u32 CreateDirectory(const PathObject& path) override
    {
        Note("mkdir", path);
        return 0;
    }
    qel::u32 DeleteDirectory(const PathObject& path) override
    {
        Note("rmdir", path);
        return 0;
    }

    void Note(const char* call, const PathObject& path)
    {
        calls.push_back(std::string(call) + " " + path.GetNativePath());
    }

    std::vector<std::string> calls;
    void (*onOpen)() = nullptr;
};

class MountTableTest : public ::testing::Test
{
protected:
    void SetUp() override { manager.GetCurrentDirectory(savedDirectory, sizeof savedDirectory); }
    void TearDown() override
    {
        // Every mount of these tests is named /q...
        std::vector<RefPtr<FileManager::MountPoint>> mounts;
        manager.GetMountTable(mounts);
        for (const auto& mount : mounts)
            if (std::strncmp(mount->GetName(), "/q", 2) == 0)
                manager.Unmount(mount->GetName());
        ASSERT_EQ(manager.SetCurrentDirectory(savedDirectory), FileManager::MountOk);
    }

    RefPtr<DiskDrive> Drive() { return RefPtr<DiskDrive>(new RecordingDrive); }

    // The name of the mount that `path` resolves through, and its native path.
    std::string Resolve(const char* path)
    {
        PathObject resolved;
        if (manager.ResolveVirtualPath(path, resolved) != FileManager::MountOk)
            return "(none)";
        return std::string(resolved.GetMountPoint()->GetName()) + " " + resolved.GetNativePath();
    }

    FileManager& manager = FileManager::GetSingletonInstance();
    char savedDirectory[FileManager::PathSize];
};

// The shorter of two prefixes wins whichever was mounted first, and the
// longer name unmounts it; paths are not folded, a mount's name resolves to
// an empty native path and a relative path is joined to the current
// directory.
TEST_F(MountTableTest, PathsResolveThroughTheirMount)
{
    ASSERT_EQ(manager.Mount("/qa/", Drive()), FileManager::MountOk);
    EXPECT_EQ(manager.Mount("/qa/b/", Drive()), FileManager::MountAlreadyMounted);
    EXPECT_EQ(manager.Unmount("/qa/b/"), FileManager::MountOk); // removes /qa/
    RefPtr<FileManager::MountPoint> found;
    ASSERT_EQ(manager.FindMount("/disks/", found), FileManager::MountOk);
    EXPECT_EQ(manager.FindMount("/qa/", found), FileManager::MountNotFound);
    EXPECT_FALSE(found); // a miss clears what was found before
    EXPECT_EQ(manager.Unmount("/qa/"), FileManager::MountNotFound);
    ASSERT_EQ(manager.Mount("/qa/b/", Drive()), FileManager::MountOk);
    ASSERT_EQ(manager.Mount("/qa/", Drive()), FileManager::MountOk);
    ASSERT_EQ(manager.Mount("/qd/", Drive()), FileManager::MountOk);
    ASSERT_EQ(manager.SetCurrentDirectory("/qd/game/"), FileManager::MountOk);
    const char* const cases[][2] = {
        {"/qa/b/x.bin", "/qa/ b/x.bin"},
        {"/qd/", "/qd/ "},
        {"/disks/", "/disks/ "},
        {"/QD/x", "(none)"},
        {"/qd\\x", "(none)"},
        {"/cdroms/x:/file", "/cdroms/ x:/file"},
        {"data/a.bin", "/qd/ game/data/a.bin"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Resolve(c[0]), c[1]) << c[0];
    // A path keeps its virtual text and may be resolved into the object
    // that holds it.
    PathObject path;
    ASSERT_EQ(manager.ResolveVirtualPath("data/a.bin", path), FileManager::MountOk);
    EXPECT_STREQ(path.GetVirtualPath(), "data/a.bin");
    ASSERT_EQ(manager.ResolveVirtualPath(path.GetVirtualPath(), path), FileManager::MountOk);
    EXPECT_STREQ(path.GetNativePath(), "game/data/a.bin");
}

TEST_F(MountTableTest, AliasesOfAliasesAreResolvedOnceWhenMounted)
{
    ASSERT_EQ(manager.Mount("/qd/", Drive()), FileManager::MountOk);
    ASSERT_EQ(manager.Mount("/qe/", "/qd/base/"), FileManager::MountOk);
    ASSERT_EQ(manager.Mount("/qf/", "/qe/deeper/"), FileManager::MountOk);
    EXPECT_EQ(manager.Mount("/qf/", "/qd/"), FileManager::MountAlreadyMounted);
    EXPECT_EQ(manager.Mount("/qg/", "/nowhere/"), FileManager::MountTargetNotFound);

    RefPtr<FileManager::MountPoint> alias;
    ASSERT_EQ(manager.FindMount("/qf/", alias), FileManager::MountOk);
    ASSERT_EQ(alias->GetKind(), FileManager::MountPoint::AliasKind);
    EXPECT_STREQ(static_cast<FileManager::AliasMount*>(alias.Get())->GetNativeBase(),
                 "base/deeper/");
    EXPECT_EQ(Resolve("/qf/x.bin"), "/qd/ base/deeper/x.bin");

    // The alias it was mounted on can go: the resolution stays.
    EXPECT_EQ(manager.Unmount("/qe/"), FileManager::MountOk);
    EXPECT_EQ(Resolve("/qf/x.bin"), "/qd/ base/deeper/x.bin");
}

TEST_F(MountTableTest, NamesAndTargetsWithoutTheirSlashesOrTooLongAreRefused)
{
    ASSERT_EQ(manager.Mount("/qd/", Drive()), FileManager::MountOk);
    const std::string longName = "/q" + std::string(300, 'n') + "/";
    const std::string deep = "/qd/" + std::string(240, 'd') + "/"; // 245 characters
    struct Case
    {
        std::string name, target; // an empty target mounts a drive
        FileManager::MountResultCodes expected;
    };
    const Case cases[] = {
        {"/qx", "", FileManager::MountBadName},
        {"qx/", "", FileManager::MountBadName},
        {"/qx", "/qd/", FileManager::MountBadName},
        {"/qx/", "/qd/sub", FileManager::MountBadName},
        {longName, "", FileManager::MountPathTooLong},
        {"/qx/", "/qd/" + std::string(300, 't') + "/", FileManager::MountPathTooLong},
        {"/qx/", deep, FileManager::MountOk},
    };
    for (const Case& c : cases)
    {
        const FileManager::MountResultCodes code =
            c.target.empty() ? manager.Mount(c.name.c_str(), Drive())
                             : manager.Mount(c.name.c_str(), c.target.c_str());
        EXPECT_EQ(code, c.expected) << c.name << " on " << c.target;
    }
    // An alias of that alias would put more than 255 characters in front.
    EXPECT_EQ(manager.Mount("/qy/", ("/qx/" + std::string(20, 'e') + "/").c_str()),
              FileManager::MountPathTooLong);
    EXPECT_EQ(manager.SetCurrentDirectory(longName.c_str()), FileManager::MountPathTooLong);
}

// A path that does not fit, cut, would name another file: it never reaches
// the drive, whichever step made it too long.
TEST_F(MountTableTest, PathsThatDoNotFitAreRefusedWithoutReachingTheDrive)
{
    RecordingDrive* drive = new RecordingDrive;
    ASSERT_EQ(manager.Mount("/qd/", RefPtr<DiskDrive>(drive)), FileManager::MountOk);
    const std::string deep = "/qd/" + std::string(200, 'd') + "/";
    ASSERT_EQ(manager.Mount("/qa/", deep.c_str()), FileManager::MountOk);
    ASSERT_EQ(manager.SetCurrentDirectory(deep.c_str()), FileManager::MountOk);
    const std::string fits = "/qd/" + std::string(251, 'f');
    EXPECT_EQ(Resolve(fits.c_str()), "/qd/ " + fits.substr(4));

    const std::string cut[] = {
        fits + "x",                    // as written
        std::string(60, 'r'),          // joined to the current directory
        "/qa/" + std::string(60, 'n'), // behind the alias's native base
    };
    for (const std::string& path : cut)
    {
        PathObject resolved;
        EXPECT_EQ(manager.ResolveVirtualPath(path.c_str(), resolved),
                  FileManager::MountPathTooLong);
        EXPECT_FALSE(resolved.GetMountPoint());
        EXPECT_FALSE(manager.FileExists(path.c_str()));
        EXPECT_FALSE(manager.DirectoryExists(path.c_str()));
        qel::PathObjectList list;
        const std::function<void()> operations[] = {
            [&] { manager.OpenFile(path.c_str(), qel::File::OpenCreatePath); },
            [&] { manager.DeleteFile(path.c_str()); },
            [&] { manager.CreateDirectory(path.c_str(), true); },
            [&] { manager.DeleteDirectory(path.c_str()); },
            [&] { manager.GetFileList(path.c_str(), list); },
            [&] { manager.GetDirectoryList(path.c_str(), list); },
        };
        for (const auto& operation : operations)
        {
            try
            {
                operation();
                ADD_FAILURE() << "no exception for " << path;
            }
            catch (const qel::FileException& e)
            {
                EXPECT_EQ(e.GetError(), DiskDrive::DiskErrorPathTooLong);
                EXPECT_EQ(e.GetReason(), "Path too long - Virtual Path: " + path.substr(0, 255));
            }
        }
    }
    EXPECT_EQ(drive->calls, std::vector<std::string>{});
}

TEST_F(MountTableTest, UnmountedMountLivesWhileAPathHoldsIt)
{
    ASSERT_EQ(manager.Mount("/qd/", Drive()), FileManager::MountOk);
    PathObject path;
    ASSERT_EQ(manager.ResolveVirtualPath("/qd/x.bin", path), FileManager::MountOk);
    PathObject copy(path);
    EXPECT_EQ(path.GetMountPoint()->GetRefCount(), 3); // the table and two paths
    ASSERT_EQ(manager.Unmount("/qd/"), FileManager::MountOk);
    EXPECT_EQ(copy.GetMountPoint()->GetRefCount(), 2);
    EXPECT_STREQ(copy.GetMountPoint()->GetName(), "/qd/");
    ASSERT_NE(copy.GetDrive(), nullptr);
}

TEST_F(MountTableTest, CurrentDirectoryIsTakenOverRefusesMissingDirectoriesAndCopiesBounded)
{
    char expected[FileManager::PathSize];
    manager.ResolveLocalPath(std::filesystem::current_path().string().c_str(), expected,
                             sizeof expected);
    std::string initial = expected;
    if (initial.back() != '/')
        initial += '/';
    EXPECT_EQ(std::string(savedDirectory), initial);

    qeltest::TemporaryFolder folder;
    manager.ResolveLocalPath(folder.Path().c_str(), expected, sizeof expected);
    EXPECT_EQ(manager.SetCurrentDirectory((std::string(expected) + "missing/").c_str()),
              FileManager::MountPathNotFound);
    EXPECT_EQ(manager.SetCurrentDirectory("/nomount/"), FileManager::MountPathNotFound);
    ASSERT_EQ(manager.SetCurrentDirectory(expected), FileManager::MountOk);

    char small[5];
    std::memset(small, 'x', sizeof small);
    manager.GetCurrentDirectory(small, 4);
    EXPECT_EQ(std::string(small), std::string(expected).substr(0, 3));
    EXPECT_EQ(small[4], 'x');
}

TEST_F(MountTableTest, OperationsUnderNoMountThrowOrAnswerNothing)
{
    try
    {
        manager.OpenFile("/nomount/a.bin", qel::File::OpenRead);
        FAIL() << "no exception";
    }
    catch (const qel::FileNotFoundException& e)
    {
        EXPECT_STREQ(e.GetReason(), "Virtual path not found - Virtual Path: /nomount/a.bin");
        EXPECT_EQ(e.GetError(), DiskDrive::DiskErrorPathNotFound);
    }
    EXPECT_THROW(manager.DeleteFile("/nomount/a.bin"), qel::FileNotFoundException);
    EXPECT_THROW(manager.CreateDirectory("/nomount/d/", true), qel::FileNotFoundException);
    EXPECT_THROW(manager.DeleteDirectory("/nomount/d/"), qel::FileNotFoundException);
    EXPECT_FALSE(manager.FileExists("/nomount/a.bin"));
    EXPECT_FALSE(manager.DirectoryExists("/nomount/"));
    qel::PathObjectList list(1);
    manager.GetFileList("/nomount/*", list);
    manager.GetDirectoryList("/nomount/*", list);
    EXPECT_EQ(list.size(), 1u);
}

TEST_F(MountTableTest, AutomaticMountsServeDisksAndTheExecutablesFolder)
{
    RefPtr<FileManager::MountPoint> mount;
    ASSERT_EQ(manager.FindMount("/disks/", mount), FileManager::MountOk);
    EXPECT_EQ(mount->GetKind(), FileManager::MountPoint::DriveKind);
    ASSERT_EQ(manager.FindMount("/cdroms/", mount), FileManager::MountOk);
    EXPECT_EQ(mount->GetKind(), FileManager::MountPoint::DriveKind);

    char executable[FileManager::PathSize];
    manager.ResolveLocalPath(disktest::ExecutablePath().c_str(), executable, sizeof executable);
    std::strrchr(executable, '/')[1] = '\0';
    ASSERT_EQ(manager.FindMount("/exedir/", mount), FileManager::MountOk);
    ASSERT_EQ(mount->GetKind(), FileManager::MountPoint::AliasKind);
    EXPECT_STREQ(static_cast<FileManager::AliasMount*>(mount.Get())->GetTarget(), executable);
    EXPECT_EQ(manager.Mount("/exedir/", "/disks/"), FileManager::MountAlreadyMounted);
    EXPECT_TRUE(manager.DirectoryExists("/exedir/"));

    // Calling it again changes nothing that is there.
    manager.AutoMount();
    RefPtr<FileManager::MountPoint> again;
    ASSERT_EQ(manager.FindMount("/disks/", again), FileManager::MountOk);
    ASSERT_EQ(manager.FindMount("/exedir/", mount), FileManager::MountOk);
    EXPECT_STREQ(static_cast<FileManager::AliasMount*>(mount.Get())->GetTarget(), executable);
}

#if defined(_WIN32)
TEST_F(MountTableTest, DriveLettersAreAliasesUnderDisksThatGoWithTheirDrive)
{
    char local[FileManager::PathSize];
    manager.ResolveLocalPath("C:\\Data\\File.TXT", local, sizeof local);
    EXPECT_STREQ(local, "/c/data/file.txt");

    // Wine maps C: to its prefix and Z: to the root.
    for (const char* letter : {"/c/", "/z/"})
    {
        RefPtr<FileManager::MountPoint> mount;
        ASSERT_EQ(manager.FindMount(letter, mount), FileManager::MountOk) << letter;
        ASSERT_EQ(mount->GetKind(), FileManager::MountPoint::AliasKind);
        const std::string target = std::string("/disks/") + letter[1] + ":/";
        EXPECT_EQ(static_cast<FileManager::AliasMount*>(mount.Get())->GetTarget(), target);
        EXPECT_TRUE(manager.DirectoryExists(letter));
    }
    EXPECT_EQ(Resolve("/c/game/data/a.bin"), "/disks/ c:/game/data/a.bin");

    // A letter with no drive behind it is dropped by the next AutoMount.
    ASSERT_EQ(manager.Mount("/q/", "/disks/q:/"), FileManager::MountOk);
    manager.AutoMount();
    RefPtr<FileManager::MountPoint> gone;
    EXPECT_EQ(manager.FindMount("/q/", gone), FileManager::MountNotFound);
}
#else
TEST_F(MountTableTest, PosixPathsGoUnderDisksWithTheirCase)
{
    char local[FileManager::PathSize];
    manager.ResolveLocalPath("/home/Ann/X.bin", local, sizeof local);
    EXPECT_STREQ(local, "/disks/home/Ann/X.bin");
    manager.ResolveLocalPath("Data\\A.bin", local, sizeof local);
    EXPECT_STREQ(local, "Data\\A.bin");
    EXPECT_TRUE(manager.ResolveLocalPath("/home/ann", local, 16));
    EXPECT_FALSE(manager.ResolveLocalPath("/home/ann/", local, 16));
    EXPECT_STREQ(local, "/disks/home/ann"); // cut, and said so
    EXPECT_EQ(Resolve("/disks/home/Ann/X.bin"), "/disks/ home/Ann/X.bin");
}
#endif

std::atomic<bool> g_OtherThreadDone{false};
std::thread g_OtherThread;

// Runs inside the drive call: another thread asks the manager for a mount
// and must wait for the call to end.
void AskFromAnotherThreadDuringTheCall()
{
    g_OtherThread = std::thread(
        []
        {
            RefPtr<FileManager::MountPoint> mount;
            FileManager::GetSingletonInstance().FindMount("/disks/", mount);
            g_OtherThreadDone = true;
        });
    for (int i = 0; i < 50 && !g_OtherThreadDone; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_FALSE(g_OtherThreadDone) << "the manager let another thread in during a drive call";
}

TEST_F(MountTableTest, LockIsHeldAcrossTheDriveCall)
{
    RecordingDrive* drive = new RecordingDrive;
    drive->onOpen = &AskFromAnotherThreadDuringTheCall;
    ASSERT_EQ(manager.Mount("/qd/", RefPtr<DiskDrive>(drive)), FileManager::MountOk);
    EXPECT_EQ(manager.OpenFile("/qd/a.bin", qel::File::OpenRead), nullptr);
    EXPECT_EQ(drive->calls, std::vector<std::string>{"open a.bin"});
    ASSERT_TRUE(g_OtherThread.joinable());
    g_OtherThread.join();
    EXPECT_TRUE(g_OtherThreadDone);
}

// Seeded stress: four threads mount, resolve, open through and unmount a
// drive of their own and resolve each other's paths. A path resolves
// through its own mount or through none, never another, and every drive is
// gone once its mounts and paths are.
std::atomic<int> g_LiveDrives{0};

class SharedDrive : public RecordingDrive
{
public:
    SharedDrive() { ++g_LiveDrives; }
    ~SharedDrive() override { --g_LiveDrives; }
    qel::File* OpenFile(const PathObject&, qel::u32) override
    {
        ++opens;
        return nullptr;
    }
    std::atomic<int> opens{0};
};

TEST_F(MountTableTest, StressThreadsMountResolveOpenAndUnmount)
{
    const unsigned seed = 20261124;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::atomic<int> wrong{0}, opened{0};
    auto worker = [&](unsigned index)
    {
        std::mt19937 random(seed + index);
        const std::string own = std::string("/qs") + char('a' + index) + "/";
        const std::string other = std::string("/qs") + char('a' + (index + 1) % 4) + "/";
        bool mounted = false;
        int opens = 0;
        for (int step = 0; step < 20000; ++step)
        {
            PathObject path;
            switch (random() % 5)
            {
            case 0:
                if (!mounted)
                    mounted = manager.Mount(own.c_str(), RefPtr<DiskDrive>(new SharedDrive)) ==
                              FileManager::MountOk;
                break;
            case 1:
            {
                // Unmounted, the path may still lie under a mount of the
                // process's own, such as the root.
                const bool ok = manager.ResolveVirtualPath((own + "f.bin").c_str(), path) ==
                                FileManager::MountOk;
                const bool through = ok && own == path.GetMountPoint()->GetName();
                if (through != mounted || (mounted && std::string(path.GetNativePath()) != "f.bin"))
                    ++wrong;
                break;
            }
            case 2:
                if (manager.ResolveVirtualPath((other + "g.bin").c_str(), path) ==
                        FileManager::MountOk &&
                    std::strncmp(path.GetMountPoint()->GetName(), "/qs", 3) == 0 &&
                    other != path.GetMountPoint()->GetName())
                    ++wrong;
                break;
            case 3:
                if (mounted)
                {
                    delete manager.OpenFile((own + "h.bin").c_str(), qel::File::OpenRead);
                    ++opens;
                }
                break;
            default:
                if (mounted && manager.Unmount(own.c_str()) != FileManager::MountOk)
                    ++wrong;
                mounted = false;
                break;
            }
        }
        if (mounted)
            manager.Unmount(own.c_str());
        opened += opens;
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back(worker, i);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GT(opened.load(), 0);
    EXPECT_EQ(g_LiveDrives.load(), 0);
}

} // namespace
