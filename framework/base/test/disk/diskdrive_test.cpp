// The platform's disk drive called directly with native paths in a
// temporary folder: existence tests and their quirks, and the exceptions
// that its failures become.
#include <qel/file.h>
#include <qel/fileexception.h>

#include "disk/disktest.h"
#include "support/environment.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

namespace
{

using disktest::MakePath;
using qel::DiskDrive;
using qel::FileException;

class DiskDriveTest : public ::testing::Test
{
protected:
    // A path object for `name` in the folder, with the virtual path
    // /v/<name> for the messages.
    qel::PathObject At(const std::string& name)
    {
        return MakePath("/v/" + name, disktest::Slashed(folder.Path()) + name);
    }

    qeltest::TemporaryFolder folder;
    disktest::NativeDrive drive;
};

TEST_F(DiskDriveTest, FileExistsIsFalseForDirectoriesAndMissingFiles)
{
    disktest::WriteFile(folder.Path() + "a.bin", "a");
    std::filesystem::create_directory(folder.Path() + "sub");
    EXPECT_TRUE(drive.FileExists(At("a.bin")));
    EXPECT_FALSE(drive.FileExists(At("sub")));
    EXPECT_FALSE(drive.FileExists(At("missing.bin")));
}

TEST_F(DiskDriveTest, DirectoryExistsDropsTheLastCharacterAndAcceptsAnyEntry)
{
    disktest::WriteFile(folder.Path() + "a.bin", "a");
    std::filesystem::create_directory(folder.Path() + "sub");
    EXPECT_TRUE(drive.DirectoryExists(At("sub/")));
    EXPECT_FALSE(drive.DirectoryExists(At("sub")));   // "su" is not there
    EXPECT_TRUE(drive.DirectoryExists(At("a.bin/"))); // a file once '/' is dropped
    EXPECT_FALSE(drive.DirectoryExists(At("missing/")));
    EXPECT_TRUE(drive.DirectoryExists(MakePath("/disks/", ""))); // a mount's own root
}

TEST_F(DiskDriveTest, MissingFileIsFileNotFoundWhenItsDirectoryExistsElsePathNotFound)
{
    try
    {
        drive.DeleteFile(At("missing.bin"));
        FAIL() << "no exception";
    }
    catch (const qel::FileNotFoundException& e)
    {
        EXPECT_EQ(e.GetError(), DiskDrive::DiskErrorFileNotFound);
        EXPECT_STREQ(e.GetReason(), "File not found - Virtual Path: /v/missing.bin");
        EXPECT_NE(e.GetSystemError(), 0u);
    }
    try
    {
        drive.DeleteFile(At("nowhere/missing.bin"));
        FAIL() << "no exception";
    }
    catch (const qel::FileNotFoundException& e)
    {
        EXPECT_EQ(e.GetError(), DiskDrive::DiskErrorPathNotFound);
        EXPECT_STREQ(e.GetReason(), "Path not found - Virtual Path: /v/nowhere/missing.bin");
        EXPECT_STREQ(e.GetPath().GetNativePath(), At("nowhere/missing.bin").GetNativePath());
    }
}

TEST_F(DiskDriveTest, DirectoryOperationsThrowWhatWentWrong)
{
    qeltest::ScriptedHost host; // answers the warning of the refused creation
    EXPECT_EQ(drive.CreateDirectory(At("sub/")), 0u);
    EXPECT_TRUE(std::filesystem::is_directory(folder.Path() + "sub"));
    try
    {
        drive.CreateDirectory(At("sub/"));
        FAIL() << "no exception";
    }
    catch (const qel::FileExistsException& e)
    {
        EXPECT_EQ(e.GetError(), DiskDrive::DiskErrorAlreadyExists);
        EXPECT_STREQ(e.GetReason(), "File already exists - Virtual Path: /v/sub/");
    }
    ASSERT_FALSE(host.questions.empty());
    EXPECT_EQ(host.questions[0].caption, "Warning");
    EXPECT_EQ(host.questions[0].text.rfind(
                  "Unable to create directory " + std::string(At("sub/").GetNativePath()) + ".", 0),
              0u);

    disktest::WriteFile(folder.Path() + "sub/inside.bin", "x");
    EXPECT_THROW(drive.DeleteDirectory(At("sub/")), FileException); // not empty
    std::filesystem::remove(folder.Path() + "sub/inside.bin");
    EXPECT_EQ(drive.DeleteDirectory(At("sub/")), 0u);
    EXPECT_FALSE(std::filesystem::exists(folder.Path() + "sub"));
}

// The system's reason rides along with the error, and a directory taken for
// a file says so, where Windows only says that access is denied.
TEST_F(DiskDriveTest, ErrorsCarryTheSystemsReason)
{
    std::filesystem::create_directory(folder.Path() + "sub");
    struct Case
    {
        const char* what;
        std::function<void()> operation;
        DiskDrive::DiskError error;
        const char* reason; // null: the system's own text for the error
    };
    const Case cases[] = {
        {"read a directory", [&] { drive.OpenFile(At("sub"), qel::File::OpenRead); },
         DiskDrive::DiskErrorAccessDenied, "Is a directory"},
        {"write a directory", [&] { drive.OpenFile(At("sub"), qel::File::OpenCreateAlways); },
         DiskDrive::DiskErrorAccessDenied, "Is a directory"},
        {"delete a directory", [&] { drive.DeleteFile(At("sub")); },
         DiskDrive::DiskErrorAccessDenied, "Is a directory"},
        {"read a missing file", [&] { drive.OpenFile(At("missing"), qel::File::OpenRead); },
         DiskDrive::DiskErrorFileNotFound, nullptr},
    };
    for (const Case& c : cases)
    {
        try
        {
            c.operation();
            ADD_FAILURE() << c.what << ": no exception";
        }
        catch (const FileException& e)
        {
            EXPECT_EQ(e.GetError(), c.error) << c.what;
            const std::string reason = e.GetSystemReason();
#if defined(_WIN32)
            const char* own = nullptr; // FormatMessage's, which differs between versions
#else
            const char* own = std::strerror(int(e.GetSystemError()));
#endif
            if (c.reason != nullptr || own != nullptr)
            {
                EXPECT_EQ(reason, c.reason ? c.reason : own) << c.what;
            }
            EXPECT_FALSE(reason.empty() || reason.back() == '\n' || reason.back() == '\r')
                << c.what << ": \"" << reason << "\"";
        }
    }
}

TEST_F(DiskDriveTest, RefusedCreationAnsweredRetryBreaksAndReturnsTheSystemError)
{
    qeltest::ScriptedHost host;
    host.Answer({qel::QueryDevice::Retry});
    const qel::u32 result = drive.CreateDirectory(At("missing/sub/"));
    EXPECT_NE(result, 0u);
    EXPECT_EQ(host.breaks, 1);
}

} // namespace
