// File's bookkeeping over a scripted file: where a seek goes and when it
// reaches the system, the name's bound, and the base class's fatal errors.
#include <qel/file.h>

#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using qel::File;
using qel::u64;

// A file of `length` bytes whose seeks are recorded.
class SeekingFile : public File
{
public:
    explicit SeekingFile(u64 length, const char* name = "/test/file.bin")
        : File(name, nullptr, length, File::OpenRead, true, true)
    {
    }

    std::vector<u64> seeks;

protected:
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
    SeekingFile file(100);
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

TEST(FileTest, FileNameIsCutTo255Characters)
{
    const std::string name(300, 'n');
    SeekingFile file(0, name.c_str());
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
