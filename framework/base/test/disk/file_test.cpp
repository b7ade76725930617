// File's bookkeeping over a scripted file: where the position goes, when a
// seek reaches the system, what the size means, and the base class's fatal
// errors.
#include <qel/file.h>

#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using qel::File;
using qel::u32;
using qel::u64;

// A file of `length` bytes whose Do* operations are counted; reads stop at
// the end, writes grow it.
class CountingFile : public File
{
public:
    explicit CountingFile(u64 length, const char* name = "/test/file.bin")
        : File(name, nullptr, length, File::OpenRead, true, true), length(length)
    {
    }

    u64 length;
    std::vector<u64> seeks;

protected:
    u32 DoRead(void*, u32 count) override
    {
        const u64 position = GetFilePosition();
        const u64 left = position < length ? length - position : 0;
        return u32(count < left ? count : left);
    }
    u32 DoWrite(const void*, u32 count) override
    {
        if (GetFilePosition() + count > length)
            length = GetFilePosition() + count;
        return count;
    }
    u64 DoSeek(u64 target) override
    {
        seeks.push_back(target);
        return target;
    }
};

// Only the constructor: every Do* is the base's.
class BareFile : public File
{
public:
    BareFile() : File("/test/bare.bin", nullptr, 0, 0, false, false) {}
};

// Each mode computes its target; only a seek that moves reaches the system.
TEST(FileTest, SeekModesComputeTheirTargetsAndStayingPutMakesNoSystemCall)
{
    CountingFile file(100);
    const struct
    {
        File::SeekMode mode;
        u64 offset, position;
    } steps[] = {{File::SeekBegin, 40, 40}, {File::SeekBegin, 40, 40},  {File::SeekCurrent, 0, 40},
                 {File::SeekEnd, 60, 40},   {File::SeekCurrent, 5, 45}, {File::SeekEnd, 30, 70}};
    for (const auto& step : steps)
        EXPECT_EQ(file.Seek(step.mode, step.offset), step.position) << "step " << &step - steps;
    EXPECT_EQ(file.seeks, (std::vector<u64>{40, 45, 70}));
}

TEST(FileTest, WritesMoveThePositionButNotTheSizeSoSeekEndUsesTheOpeningSize)
{
    CountingFile file(10);
    char bytes[32] = {};
    file.Seek(File::SeekEnd, 0);
    EXPECT_EQ(file.Write(bytes, 32), 32u);
    EXPECT_EQ(file.GetFilePosition(), 42u);
    EXPECT_EQ(file.GetFileSize(), 10u);
    EXPECT_EQ(file.Seek(File::SeekEnd, 0), 10u);
}

TEST(FileTest, ReadAtEndOfFileReturnsZeroAndLeavesThePosition)
{
    CountingFile file(6);
    char bytes[8];
    EXPECT_EQ(file.Read(bytes, 8), 6u);
    EXPECT_EQ(file.Read(bytes, 8), 0u);
    EXPECT_EQ(file.GetFilePosition(), 6u);
}

TEST(FileTest, FileNameIsCutTo255Characters)
{
    const std::string name(300, 'n');
    CountingFile file(0, name.c_str());
    EXPECT_EQ(std::string(file.GetFileName()), name.substr(0, 255));
}

TEST(FileTest, BaseDoOperationsAreFatalErrorsWithTheirTexts)
{
    qeltest::ScriptedHost host;
    BareFile file;
    char byte = 0;
    std::vector<int> exits;
    EXPECT_EQ(file.Read(&byte, 1), 0u);
    exits.push_back(host.exits);
    EXPECT_EQ(file.Write(&byte, 1), 0u);
    exits.push_back(host.exits);
    file.Seek(File::SeekBegin, 5);
    exits.push_back(host.exits);
    EXPECT_TRUE(file.Flush());
    EXPECT_EQ(host.exits, exits.back());

    ASSERT_EQ(host.questions.size(), 3u);
    const char* names[] = {"DoRead", "DoWrite", "DoSeek"};
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_GT(exits[i], i == 0 ? 0 : exits[i - 1]) << names[i] << " let the process go on";
        const std::string& text = host.questions[i].text;
        EXPECT_EQ(host.questions[i].caption, "Error");
        EXPECT_NE(text.find(std::string("This methods need to be implemented: File::") + names[i]),
                  std::string::npos);
        EXPECT_NE(text.find("framework/base/private/common/src/base/disk/file"), std::string::npos);
    }
}

} // namespace
