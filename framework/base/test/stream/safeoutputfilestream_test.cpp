// Writing beside a file and putting it in the file's place: what the target
// holds after a commit, after none, over a temporary left by an earlier
// save, and for paths that do not leave room for the temporary's name.
#include <qel/diskdrive.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/safeoutputfilestream.h>

#include "disk/disktest.h"
#include "support/environment.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace
{

using qel::SafeOutputFileStream;

TEST(SafeOutputFileStream, TheTargetChangesOnlyOnCommitAndNoTemporaryStays)
{
    struct Case
    {
        const char* name;
        const char* previous; // null: no file there
        bool leftover;        // a temporary an earlier save left
        bool commit;
        bool durable;
        const char* expected; // null: no file there
    };
    const Case cases[] = {
        {"committed over a file", "old", false, true, false, "new and longer"},
        {"committed durably", "old", true, true, true, "new and longer"},
        {"committed in a new folder", nullptr, false, true, false, "new and longer"},
        {"not committed", "old", true, false, false, "old"},
        {"not committed, nothing before", nullptr, false, false, false, nullptr},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.name);
        qeltest::TemporaryFolder folder;
        const std::string local = folder.Path() + "sub/target.bin";
        const std::string temporary = local + SafeOutputFileStream::GetTemporarySuffix();
        if (test.previous || test.leftover)
            std::filesystem::create_directories(folder.Path() + "sub");
        if (test.previous)
            disktest::WriteFile(local, test.previous);
        if (test.leftover)
            disktest::WriteFile(temporary, "left by a killed save, longer than the rest");
        {
            SafeOutputFileStream stream((folder.VirtualPath() + "sub/target.bin").c_str());
            if (test.leftover)
            {
                EXPECT_EQ(std::filesystem::file_size(temporary), 0u) << "the leftover is there";
            }
            stream.Write("new and longer", 14);
            if (test.commit)
                stream.Commit(test.durable);
            // Until the commit, what was there stays.
            if (test.previous && !test.commit)
            {
                EXPECT_EQ(disktest::ReadFile(local), test.previous);
            }
        }
        EXPECT_FALSE(std::filesystem::exists(temporary));
        EXPECT_EQ(std::filesystem::exists(local), test.expected != nullptr);
        if (test.expected)
        {
            EXPECT_EQ(disktest::ReadFile(local), test.expected);
        }
    }
}

// Where the temporary's name would be cut to the path buffer it would name
// another file: such a target is refused before anything is touched.
TEST(SafeOutputFileStream, ATargetWithoutRoomForTheTemporarysNameIsRefused)
{
    qeltest::TemporaryFolder folder;
    const std::string root = folder.VirtualPath();
    const std::string target =
        root + std::string(qel::FileManager::PathSize - 4 - root.size(), 'x');
    const std::string cut = (target + SafeOutputFileStream::GetTemporarySuffix())
                                .substr(root.size(), qel::FileManager::PathSize - 1 - root.size());
    disktest::WriteFile(folder.Path() + cut, "another file");
    try
    {
        SafeOutputFileStream stream(target.c_str());
        ADD_FAILURE() << "opened";
    }
    catch (const qel::FileException& error)
    {
        EXPECT_EQ(std::string(error.GetReason()).rfind("Path too long", 0), 0u)
            << error.GetReason();
    }
    EXPECT_EQ(disktest::ReadFile(folder.Path() + cut), "another file");
    EXPECT_FALSE(std::filesystem::exists(folder.Path() + target.substr(root.size())));
}

TEST(SafeOutputFileStream, ReplacingAcrossTwoDrivesIsRefused)
{
    qeltest::TemporaryFolder folder;
    disktest::WriteFile(folder.Path() + "a.bin", "a");
    qel::FileManager& files = qel::FileManager::GetSingletonInstance();
    ASSERT_EQ(files.Mount("/qother/", qel::RefPtr<qel::DiskDrive>(new disktest::NativeDrive)),
              qel::FileManager::MountOk);
    try
    {
        files.ReplaceFile((folder.VirtualPath() + "a.bin").c_str(), "/qother/b.bin");
        ADD_FAILURE() << "replaced";
    }
    catch (const qel::FileException& error)
    {
        EXPECT_EQ(error.GetError(), qel::DiskDrive::DiskErrorDevice);
    }
    files.Unmount("/qother/");
    EXPECT_EQ(disktest::ReadFile(folder.Path() + "a.bin"), "a");
}

} // namespace
