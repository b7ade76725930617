// The file exceptions: the reason's form and bound, and the path they keep;
// the path texts' bound.
#include <qel/fileexception.h>

#include "disk/disktest.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using qel::DiskDrive;

TEST(FileExceptionTest, ReasonIsTheTextThenTheVirtualPathCutTo4095Characters)
{
    const qel::PathObject path = disktest::MakePath("/exedir/a.bin", "c:/game/a.bin");
    qel::FileExistsException exists("File already exists", path, DiskDrive::DiskErrorAlreadyExists,
                                    183);
    EXPECT_STREQ(exists.GetReason(), "File already exists - Virtual Path: /exedir/a.bin");
    EXPECT_STREQ(exists.GetPath().GetNativePath(), "c:/game/a.bin");
    EXPECT_EQ(exists.GetSystemError(), 183u);

    const std::string text(5000, 't');
    qel::FileException longOne(text.c_str(), path, DiskDrive::DiskErrorUnknown, 0);
    EXPECT_EQ(std::string(longOne.GetReason()), text.substr(0, 4095));
}

TEST(PathObjectTest, TextsAreCutTo255Characters)
{
    const std::string longPath(400, 'p');
    qel::PathObject path = disktest::MakePath(longPath, longPath);
    EXPECT_EQ(std::string(path.GetVirtualPath()), longPath.substr(0, 255));
    EXPECT_EQ(std::string(path.GetNativePath()), longPath.substr(0, 255));
}

} // namespace
