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

// A directory is no file, but DirectoryExists drops the last character and
// then accepts any entry.
TEST_F(DiskDriveTest, ExistenceTestsAndTheirQuirks)
{
    disktest::WriteFile(folder.Path() + "a.bin", "a");
    std::filesystem::create_directory(folder.Path() + "sub");
    const std::pair<const char*, bool> files[] = {
        {"a.bin", true}, {"sub", false}, {"missing.bin", false}};
    const std::pair<const char*, bool> directories[] = {
        {"sub/", true},
        {"sub", false},   // "su" is not there
        {"a.bin/", true}, // a file once '/' is dropped
        {"missing/", false}};
    for (const auto& c : files)
        EXPECT_EQ(drive.FileExists(At(c.first)), c.second) << c.first;
    for (const auto& c : directories)
        EXPECT_EQ(drive.DirectoryExists(At(c.first)), c.second) << c.first;
    EXPECT_TRUE(drive.DirectoryExists(MakePath("/disks/", ""))); // a mount's own root
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
// a file says so, where Windows only says that access is denied. A missing
// file is "File not found" when its directory exists, else "Path not found".
TEST_F(DiskDriveTest, ErrorsCarryTheSystemsReason)
{
    std::filesystem::create_directory(folder.Path() + "sub");
    struct Case
    {
        const char* name;
        std::function<void(const qel::PathObject&)> operation;
        DiskDrive::DiskError error;
        const char* reason;       // null: not checked
        const char* systemReason; // null: the system's own text for the error
    };
    const auto read = [&](const qel::PathObject& at) { drive.OpenFile(at, qel::File::OpenRead); };
    const auto remove = [&](const qel::PathObject& at) { drive.DeleteFile(at); };
    const Case cases[] = {
        {"sub", read, DiskDrive::DiskErrorAccessDenied, nullptr, "Is a directory"},
        {"sub", [&](const qel::PathObject& at) { drive.OpenFile(at, qel::File::OpenCreateAlways); },
         DiskDrive::DiskErrorAccessDenied, nullptr, "Is a directory"},
        {"sub", remove, DiskDrive::DiskErrorAccessDenied, nullptr, "Is a directory"},
        {"missing", read, DiskDrive::DiskErrorFileNotFound, nullptr, nullptr},
        {"missing.bin", remove, DiskDrive::DiskErrorFileNotFound,
         "File not found - Virtual Path: /v/missing.bin", nullptr},
        {"nowhere/missing.bin", remove, DiskDrive::DiskErrorPathNotFound,
         "Path not found - Virtual Path: /v/nowhere/missing.bin", nullptr},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE("case " + std::to_string(&c - cases) + ", " + c.name);
        const auto check = [&](const FileException& e, bool notFound)
        {
            EXPECT_EQ(e.GetError(), c.error);
            EXPECT_EQ(notFound, c.error == DiskDrive::DiskErrorFileNotFound ||
                                    c.error == DiskDrive::DiskErrorPathNotFound);
            if (c.reason != nullptr)
            {
                EXPECT_STREQ(e.GetReason(), c.reason);
            }
            EXPECT_STREQ(e.GetPath().GetNativePath(), At(c.name).GetNativePath());
            const std::string reason = e.GetSystemReason();
#if defined(_WIN32)
            const char* own = nullptr; // FormatMessage's, which differs between versions
#else
            const char* own = std::strerror(int(e.GetSystemError()));
#endif
            if (c.systemReason == nullptr)
            {
                EXPECT_NE(e.GetSystemError(), 0u);
            }
            if (c.systemReason != nullptr || own != nullptr)
            {
                EXPECT_EQ(reason, c.systemReason ? c.systemReason : own);
            }
            EXPECT_FALSE(reason.empty() || reason.back() == '\n' || reason.back() == '\r')
                << "\"" << reason << "\"";
        };
        try
        {
            c.operation(At(c.name));
            ADD_FAILURE() << "no exception";
        }
        catch (const qel::FileNotFoundException& e)
        {
            check(e, true);
        }
        catch (const FileException& e)
        {
            check(e, false);
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
