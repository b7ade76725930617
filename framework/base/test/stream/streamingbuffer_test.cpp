// The streaming ring: its capacity, the byte kept free, the lazy wraps of
// both pointers, the restart of an emptied ring, and the data surviving many
// laps of the ring.
#include <qel/streamingbuffer.h>

#include "memoryfile.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace
{

using qel::StreamingBuffer;
using qel::u32;
using streamtest::MemoryFile;
using streamtest::PatternByte;

// The bytes copied out of a buffer must be the file's from `from` on.
void ExpectFileBytes(const std::vector<unsigned char>& got, u32 from)
{
    for (u32 i = 0; i < got.size(); ++i)
        ASSERT_EQ(got[i], PatternByte(from + i)) << "byte " << from + i;
}

TEST(StreamingBufferTest, SizeOf1024HoldsAtMost1023BytesAndAFullRingReadsNothing)
{
    MemoryFile file(4096);
    StreamingBuffer buffer(1024);
    EXPECT_EQ(buffer.Size(), 1023u);
    EXPECT_EQ(buffer.DataAvailable(), 0u);

    EXPECT_EQ(buffer.Read(&file, 4096), 1023u);
    EXPECT_EQ(buffer.DataAvailable(), 1023u);
    EXPECT_EQ(buffer.Read(&file, 100), 0u);
    EXPECT_EQ(file.GetFilePosition(), 1023u) << "a full ring must not touch the file";

    std::vector<unsigned char> out(2000);
    EXPECT_EQ(buffer.Copy(out.data(), 2000), 1023u);
    out.resize(1023);
    ExpectFileBytes(out, 0);
    EXPECT_EQ(buffer.Copy(out.data(), 1), 0u);
}

// An emptied ring, wherever its pointers stood, takes its whole capacity
// again in one file read.
TEST(StreamingBufferTest, RingEmptiedAnywhereIsEmptyAndRefillsWholeInOneRead)
{
    const struct
    {
        u32 first; // read and copied out before the refill
        u32 refill;
    } cases[] = {{15, 15}, {10, 15}, {1, 15}, {14, 7}};
    for (const auto& c : cases)
    {
        MemoryFile file(4096);
        StreamingBuffer buffer(16); // capacity 15
        std::vector<unsigned char> out(32);
        ASSERT_EQ(buffer.Read(&file, c.first), c.first);
        ASSERT_EQ(buffer.Copy(out.data(), 32), c.first);
        EXPECT_EQ(buffer.DataAvailable(), 0u) << "after " << c.first;

        file.reads.clear();
        EXPECT_EQ(buffer.Read(&file, c.refill), c.refill) << "after " << c.first;
        EXPECT_EQ(file.reads, (std::vector<u32>{c.refill})) << "after " << c.first;
        out.assign(c.refill, 0);
        EXPECT_EQ(buffer.Copy(out.data(), c.refill), c.refill);
        ExpectFileBytes(out, c.first);
    }
}

TEST(StreamingBufferTest, ReadAndCopySplitAtTheWrapKeepTheBytesInOrder)
{
    MemoryFile file(4096);
    StreamingBuffer buffer(16);
    std::vector<unsigned char> out(16);
    ASSERT_EQ(buffer.Read(&file, 10), 10u);
    ASSERT_EQ(buffer.Copy(out.data(), 6), 6u); // read at 6, write at 10

    // 5 bytes up to the end, then 5 from the start, leaving the byte before
    // the read pointer free: two file reads.
    file.reads.clear();
    EXPECT_EQ(buffer.Read(&file, 100), 10u);
    EXPECT_EQ(file.reads, (std::vector<u32>{5, 5}));
    EXPECT_EQ(buffer.DataAvailable(), 14u);

    // The copy crosses the end as well.
    out.assign(14, 0);
    EXPECT_EQ(buffer.Copy(out.data(), 14), 14u);
    ExpectFileBytes(out, 6);
    EXPECT_EQ(buffer.DataAvailable(), 0u);
}

// Bytes taken by Copy, or looked at in place by Peek and passed by Skip
// after a Read has filled the room around them, in odd sizes over many laps.
TEST(StreamingBufferTest, ManyLapsOfOddSizesDeliverTheWholeFileCopiedOrInPlace)
{
    const u32 length = 100000;
    MemoryFile file(length);
    StreamingBuffer buffer(257);
    std::vector<unsigned char> all;
    std::vector<unsigned char> out(300);
    u32 step = 0;
    while (all.size() < length)
    {
        buffer.Read(&file, 1 + (step * 37) % 300);
        const u32 wanted = 1 + (step * 53) % 300;
        if (step % 2 == 0)
        {
            const u32 got = buffer.Copy(out.data(), wanted);
            all.insert(all.end(), out.begin(), out.begin() + got);
        }
        else
        {
            const unsigned char* data = nullptr;
            const u32 piece = buffer.Peek(data);
            ASSERT_EQ(piece == 0, data == nullptr);
            ASSERT_LE(piece, buffer.DataAvailable());
            buffer.Read(&file, 300); // must leave the peeked bytes alone
            const u32 used = std::min(piece, wanted);
            all.insert(all.end(), data, data + used);
            ASSERT_EQ(buffer.Skip(used), used);
        }
        ASSERT_LE(buffer.DataAvailable(), buffer.Size());
        ASSERT_LT(++step, 100000u) << "the ring stopped moving";
    }
    ASSERT_EQ(all.size(), length);
    ExpectFileBytes(all, 0);
    EXPECT_EQ(buffer.Skip(10), 0u);
    const unsigned char* data = &out[0];
    EXPECT_EQ(buffer.Peek(data), 0u);
    EXPECT_EQ(data, nullptr);
}

// The copy out takes another path when the caller's buffer lies just past
// the ring's bytes modulo 4 KB: every distance, with sizes around its 64-byte
// blocks, must deliver the bytes and touch nothing beside them.
TEST(StreamingBufferTest, CopyDeliversExactlyTheBytesAtEveryDistanceFromTheRing)
{
    const u32 sizes[] = {1, 63, 64, 65, 200, 1000};
    MemoryFile file(1u << 20);
    StreamingBuffer buffer(1024 + 1);
    std::vector<unsigned char> out(4096 + 1024 + 1);
    u32 from = 0;
    for (u32 offset = 0; offset < 4096; ++offset)
    {
        const u32 size = sizes[offset % 6];
        buffer.Reset(); // the ring's bytes start at its storage again
        ASSERT_EQ(buffer.Read(&file, size), size);
        std::fill(out.begin(), out.end(), 0xA5);
        ASSERT_EQ(buffer.Copy(out.data() + 1 + offset, size), size);
        for (u32 i = 0; i < size; ++i)
            ASSERT_EQ(out[1 + offset + i], PatternByte(from + i)) << "offset " << offset;
        ASSERT_EQ(out[offset], 0xA5) << "offset " << offset;
        ASSERT_EQ(out[1 + offset + size], 0xA5) << "offset " << offset;
        from += size;
    }
}

TEST(StreamingBufferTest, ShortReadAtTheEndOfTheFileStopsAndResetEmpties)
{
    MemoryFile file(10);
    StreamingBuffer buffer(64);
    file.readLimit = 4;
    EXPECT_EQ(buffer.Read(&file, 50), 4u);
    EXPECT_EQ(file.reads.size(), 1u) << "a short read ends the call";
    file.readLimit = 0xFFFFFFFFu;
    EXPECT_EQ(buffer.Read(&file, 50), 6u);
    EXPECT_EQ(buffer.Read(&file, 50), 0u);
    EXPECT_EQ(buffer.DataAvailable(), 10u);
    buffer.Reset();
    EXPECT_EQ(buffer.DataAvailable(), 0u);
    unsigned char byte = 0;
    EXPECT_EQ(buffer.Copy(&byte, 1), 0u);
}

TEST(StreamingBufferTest, SizeBelowTwoIsRefusedAndLeavesAnEmptyRing)
{
    qeltest::ScriptedHost host;
    MemoryFile file(16);
    for (u32 size : {0u, 1u})
    {
        StreamingBuffer buffer(size);
        EXPECT_FALSE(buffer.IsValid());
        EXPECT_EQ(buffer.Size(), 0u);
        EXPECT_EQ(buffer.Read(&file, 8), 0u);
        EXPECT_EQ(buffer.DataAvailable(), 0u);
    }
    const std::vector<std::string> asserts = streamtest::FailedAsserts(host);
    ASSERT_EQ(asserts.size(), 2u);
    EXPECT_NE(asserts[0].find("size >= 2"), std::string::npos);
    EXPECT_EQ(file.GetFilePosition(), 0u);
}

} // namespace
