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

// Scripted rings. Each Read or Copy moves `moved` bytes; a Read makes the
// file reads listed (each cut to `limit` bytes). What is available follows
// from the bytes moved, and what is copied out is the file's bytes in order.
TEST(StreamingBufferTest, ScriptedReadsAndCopiesKeepTheByteFreeTheWrapAndTheOrder)
{
    enum Op
    {
        Read,
        Copy,
        Reset
    };
    struct Step
    {
        Op op;
        u32 count, moved;
        std::vector<u32> reads = {};
        u32 limit = 0xFFFFFFFFu;
    };
    const struct
    {
        const char* name;
        u32 size, length;
        std::vector<Step> steps;
    } cases[] = {
        // clang-format off
        {"1024 holds 1023 and a full ring reads nothing", 1024, 4096,
         {{Read, 4096, 1023, {1023}}, {Read, 100, 0}, {Copy, 2000, 1023}, {Copy, 1, 0}}},
        // An emptied ring, wherever its pointers stood, refills whole in one read.
        {"emptied full", 16, 4096,
         {{Read, 15, 15, {15}}, {Copy, 32, 15}, {Read, 15, 15, {15}}, {Copy, 15, 15}}},
        {"emptied inside", 16, 4096,
         {{Read, 10, 10, {10}}, {Copy, 32, 10}, {Read, 15, 15, {15}}, {Copy, 15, 15}}},
        {"emptied after a byte", 16, 4096,
         {{Read, 1, 1, {1}}, {Copy, 32, 1}, {Read, 15, 15, {15}}, {Copy, 15, 15}}},
        {"emptied, refilled in part", 16, 4096,
         {{Read, 14, 14, {14}}, {Copy, 32, 14}, {Read, 7, 7, {7}}, {Copy, 7, 7}}},
        // Up to the end, then from the start leaving the byte before the
        // read pointer free; the copy crosses the end as well.
        {"split at the wrap", 16, 4096,
         {{Read, 10, 10, {10}}, {Copy, 6, 6}, {Read, 100, 10, {5, 5}}, {Copy, 14, 14},
          {Copy, 1, 0}}},
        {"a short read ends the call; reset empties", 64, 10,
         {{Read, 50, 4, {50}, 4}, {Read, 50, 6, {50}}, {Read, 50, 0, {50}}, {Reset, 0, 0},
          {Copy, 1, 0}}},
        // clang-format on
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        MemoryFile file(c.length);
        StreamingBuffer buffer(c.size);
        EXPECT_EQ(buffer.Size(), c.size - 1);
        u32 available = 0, next = 0; // the file offset of the next byte to copy
        for (const Step& step : c.steps)
        {
            SCOPED_TRACE(testing::Message() << "step " << &step - c.steps.data());
            std::vector<unsigned char> out(step.count);
            file.reads.clear();
            file.readLimit = step.limit;
            if (step.op == Read)
            {
                EXPECT_EQ(buffer.Read(&file, step.count), step.moved);
                available += step.moved;
            }
            else if (step.op == Copy)
            {
                ASSERT_EQ(buffer.Copy(out.data(), step.count), step.moved);
                out.resize(step.moved);
                ExpectFileBytes(out, next);
                next += step.moved;
                available -= step.moved;
            }
            else
            {
                buffer.Reset(); // what the ring held is passed over
                next += available;
                available = 0;
            }
            EXPECT_EQ(file.reads, step.reads);
            EXPECT_EQ(buffer.DataAvailable(), available);
        }
    }
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
