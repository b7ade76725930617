// File streams: round trips through real files in a temporary folder, blocks
// and their boundaries, where the file is sought, ownership of the File, and
// the failures of opening.
#include <qel/file.h>
#include <qel/fileexception.h>
#include <qel/filemanager.h>
#include <qel/inputfilestream.h>
#include <qel/outputfilestream.h>
#include <qel/streamingrequest.h>

#include "memoryfile.h"
#include "support/environment.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace
{

using qel::File;
using qel::FileManager;
using qel::InputFileStream;
using qel::OutputFileStream;
using qel::u32;
using qel::u64;
using streamtest::MemoryFile;
using streamtest::PatternByte;

constexpr u32 Block = qel::InputFileProvider::BufferSize;

class FileStreamTest : public ::testing::Test
{
protected:
    void SetUp() override { root = folder.VirtualPath(); }
    std::string Virtual(const char* name) const { return root + name; }
    u64 SizeOnDisk(const char* name) const
    {
        return std::filesystem::file_size(folder.Path() + name);
    }

    qeltest::TemporaryFolder folder;
    std::string root;
};

// The tail reaches the file when the stream flushes, opens another file or
// dies.
TEST_F(FileStreamTest, TailReachesTheFileOnlyWhenTheStreamFlushesReopensOrDies)
{
    {
        OutputFileStream out(Virtual("tail.bin").c_str());
        out.Write(static_cast<u32>(7));
        EXPECT_EQ(SizeOnDisk("tail.bin"), 0u);
        out.Flush();
        EXPECT_EQ(SizeOnDisk("tail.bin"), 4u);
        out.Write(static_cast<unsigned short>(9));
        out.Open(Virtual("second.bin").c_str());
        EXPECT_EQ(SizeOnDisk("tail.bin"), 6u);
        out.Write("abc", 3);
        EXPECT_EQ(out.GetPosition(), 3u);
        EXPECT_EQ(SizeOnDisk("second.bin"), 0u);
    }
    EXPECT_EQ(SizeOnDisk("second.bin"), 3u);
}

TEST_F(FileStreamTest, FileOfSeveralBlocksReadsBackExactlyWithValuesAcrossTheBoundary)
{
    const u32 size = 3 * Block + 123;
    std::vector<unsigned char> data(size);
    for (u32 i = 0; i < size; ++i)
        data[i] = PatternByte(i);
    {
        OutputFileStream out(Virtual("big.bin").c_str());
        // Odd pieces so that writes straddle every block boundary.
        for (u32 done = 0; done < size;)
        {
            const u32 piece = std::min<u32>(size - done, 4999);
            ASSERT_EQ(out.Write(data.data() + done, piece), piece);
            done += piece;
        }
    }
    ASSERT_EQ(SizeOnDisk("big.bin"), size);

    InputFileStream in(Virtual("big.bin").c_str());
    std::vector<unsigned char> back(size + 10);
    EXPECT_EQ(in.Read(back.data(), 1000), 1000u);
    EXPECT_EQ(in.Read(back.data() + 1000, size + 10 - 1000), size - 1000);
    back.resize(size);
    EXPECT_TRUE(back == data);

    // A 4-byte value starting 2 bytes before the end of the first block.
    InputFileStream straddle(Virtual("big.bin").c_str());
    straddle.Skip(Block - 2);
    u32 value = 0;
    straddle.Read(value);
    u32 expected = 0;
    std::memcpy(&expected, data.data() + Block - 2, 4);
    EXPECT_EQ(value, expected);
    unsigned char next = 0;
    straddle.Read(next);
    EXPECT_EQ(next, data[Block + 2]);
}

// An empty file reads nothing, from the first bulk read on.
TEST_F(FileStreamTest, ValuesReadPastTheEndAreZeroAndLeaveTheStreamSound)
{
    for (const std::string contents : {"", "abc"})
    {
        SCOPED_TRACE("a file of " + std::to_string(contents.size()) + " bytes");
        {
            OutputFileStream out(Virtual("short.bin").c_str());
            out.Write(contents.data(), u32(contents.size()));
        }
        InputFileStream in(Virtual("short.bin").c_str());
        EXPECT_EQ(in.GetSize(), contents.size());
        unsigned char bytes[16];
        ASSERT_EQ(in.Read(bytes, sizeof bytes), contents.size());
        unsigned char byte = 0xEE;
        in.Read(byte);
        EXPECT_EQ(byte, 0u);
        u32 word = 0xEEEEEEEEu;
        in.Read(word);
        EXPECT_EQ(word, 0u);
        EXPECT_EQ(in.GetPosition(), contents.size());
        unsigned char buffer[70000]; // a direct read, then a block read, both at the end
        EXPECT_EQ(in.Read(buffer, sizeof buffer), 0u);
        EXPECT_EQ(in.Read(buffer, 16), 0u);
    }
}

TEST_F(FileStreamTest, OpeningAMissingFileThrowsTheFileManagersException)
{
    EXPECT_THROW(InputFileStream(Virtual("missing.bin").c_str()), qel::FileNotFoundException);
    InputFileStream later;
    EXPECT_THROW(later.Open(Virtual("missing.bin").c_str()), qel::FileNotFoundException);
    EXPECT_FALSE(later.GetProvider()->IsOpen());
    EXPECT_THROW(OutputFileStream(Virtual("no/such/folder/x.bin").c_str(), File::OpenCreateNew),
                 qel::FileException);
}

// Past 4 GB of a sparse file: a stream's position and a streaming request's
// counts go on in 64 bits, and their 32-bit accessors stay at the top.
TEST_F(FileStreamTest, FilesOf4GBAndMoreStreamPastTheLowWord)
{
    const u64 size = 0x100000020ull, mark = 0x100000010ull;
    std::string why;
    if (!qeltest::MakeSparseFile(folder.Path() + "big.bin", size, {{mark, "MARK"}}, why))
        GTEST_SKIP() << why;
    char text[8] = {};
    InputFileStream in(Virtual("big.bin").c_str());
    EXPECT_EQ(in.GetSize(), size);
    in.Skip(0xFFFFFFF0u);
    in.Skip(0x20u);
    EXPECT_EQ(in.Read(text, 4), 4u);
    EXPECT_EQ(std::string(text, 4), "MARK");
    EXPECT_EQ(in.GetPosition64(), mark + 4);
    EXPECT_EQ(in.GetPosition(), 0xFFFFFFFFu);

    std::unique_ptr<qel::StreamingRequest> request(
        qel::StreamingRequest::Create(Virtual("big.bin").c_str(), 1000));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->BytesRemaining64(), size);
    EXPECT_EQ(request->BytesRemaining(), 0xFFFFFFFFu);
    request->Reset(mark);
    EXPECT_EQ(request->Read(qel::s64(size)), 32u - 16u);
    EXPECT_EQ(request->Copy(text, 8), 8u);
    EXPECT_EQ(std::string(text, 4), "MARK");
    EXPECT_EQ(request->BytesRead64(), 16u);
    EXPECT_EQ(request->BytesRemaining64(), 0u);
}

TEST(FileStreamSeekTest, SequentialReadingNeverSeeksAndSkipPastABlockSeeksOnTheNextRead)
{
    std::atomic<int> closed{0};
    auto* file = new MemoryFile(4 * Block, &closed);
    {
        InputFileStream in(file);
        std::vector<unsigned char> buffer(Block + 10);
        EXPECT_EQ(in.Read(buffer.data(), u32(buffer.size())), buffer.size());
        EXPECT_TRUE(file->seeks.empty());

        // Past the rest of the second block and into the third.
        in.Skip(2 * Block - 10 + 100);
        EXPECT_TRUE(file->seeks.empty()); // only the next read seeks
        unsigned char byte = 0;
        in.Read(byte);
        EXPECT_EQ(file->seeks, std::vector<u64>{3 * u64(Block) + 100});
        EXPECT_EQ(byte, PatternByte(3 * Block + 100));

        // A skip inside the block held is a plain pointer move.
        in.Skip(50);
        in.Read(byte);
        EXPECT_EQ(byte, PatternByte(3 * Block + 151));
        EXPECT_EQ(file->seeks.size(), 1u);
        EXPECT_EQ(closed, 0);
    }
    EXPECT_EQ(closed, 1);
}

TEST(FileStreamSeekTest, BigReadsGoStraightToTheCallersBuffer)
{
    auto* file = new MemoryFile(4 * Block);
    InputFileStream in(file);
    std::vector<unsigned char> buffer(2 * Block + 5);
    EXPECT_EQ(in.Read(buffer.data(), u32(buffer.size())), buffer.size());
    // One read of the whole request, no staging copy.
    EXPECT_EQ(file->reads, std::vector<u32>{u32(buffer.size())});
    for (u32 i = 0; i < buffer.size(); i += 4099)
        ASSERT_EQ(buffer[i], PatternByte(i));
    unsigned char byte = 0;
    in.Read(byte); // small reads go through a block again
    EXPECT_EQ(byte, PatternByte(2 * Block + 5));
    EXPECT_EQ(file->reads.size(), 2u);
    EXPECT_EQ(in.Read(buffer.data(), u32(buffer.size())), 2 * Block - 6); // short at the end
}

// A provider deletes the file it holds when it takes another; streams on no
// file are closed and move nothing.
TEST(FileStreamSeekTest, ProviderReplacesAndDeletesTheFileItHoldsOrHoldsNone)
{
    std::atomic<int> first{0}, second{0};
    qel::InputFileProvider provider(new MemoryFile(10, &first));
    EXPECT_TRUE(provider.IsOpen());
    provider.Set(new MemoryFile(20, &second));
    EXPECT_EQ(first, 1);
    EXPECT_EQ(provider.GetSize(), 20u);
    provider.Set(nullptr);
    EXPECT_EQ(second, 1);
    EXPECT_FALSE(provider.IsOpen());

    InputFileStream in(static_cast<File*>(nullptr));
    unsigned char buffer[4];
    EXPECT_FALSE(in.GetProvider()->IsOpen());
    EXPECT_EQ(in.Read(buffer, 4), 0u);
    OutputFileStream out(static_cast<File*>(nullptr));
    EXPECT_FALSE(out.GetProvider()->IsOpen());
    EXPECT_EQ(out.Write(buffer, 4), 0u);
}

} // namespace
