// Streams over small-block test providers and over caller buffers: values
// straddling blocks, when blocks go back, skipping, the per-value array
// paths, and the buffer providers' bounds.
#include <qel/inputbufferstream.h>
#include <qel/outputbufferstream.h>

#include "roundtrip.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{

using qel::u32;
using qel::u64;

// Hands out blocks of at most `blockSize` bytes of `data`, and records the
// positions asked for and the blocks given back.
class SmallBlockInput : public qel::Provider
{
public:
    SmallBlockInput(std::vector<unsigned char> bytes, u32 blockSize)
        : data(std::move(bytes)), m_BlockSize(blockSize)
    {
        m_Open = true;
    }
    void Request(u64 position, unsigned char*& block, unsigned char*& current,
                 unsigned char*& end) override
    {
        requests.push_back(position);
        const u32 size = u32(data.size());
        const u32 start = u32(position < size ? position : size);
        const u32 stop = start + m_BlockSize < size ? start + m_BlockSize : size;
        block = current = data.data() + start;
        end = data.data() + stop;
    }
    void Return(void*) override { ++returns; }

    std::vector<unsigned char> data;
    std::vector<u64> requests;
    int returns = 0;

private:
    u32 m_BlockSize;
};

// Collects what is written in blocks of `blockSize` bytes.
class SmallBlockOutput : public qel::Provider
{
public:
    explicit SmallBlockOutput(u32 blockSize) : m_Block(blockSize) { m_Open = true; }
    void Request(u64, unsigned char*& block, unsigned char*& current, unsigned char*& end) override
    {
        block = current = m_Block.data();
        end = m_Block.data() + m_Block.size();
    }
    void Return(void* block, void* end) override
    {
        written.insert(written.end(), static_cast<unsigned char*>(block),
                       static_cast<unsigned char*>(end));
    }
    void Return(void* block) override
    {
        Return(block, static_cast<unsigned char*>(block) + m_Block.size());
    }
    std::vector<unsigned char> written;

private:
    std::vector<unsigned char> m_Block;
};

struct TestInput : qel::InputStream
{
    explicit TestInput(qel::Provider* provider) : InputStream(provider) {}
};

std::vector<unsigned char> Bytes(u32 count)
{
    std::vector<unsigned char> bytes(count);
    for (u32 i = 0; i < count; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    return bytes;
}

TEST(InputStream, ReadingExactlyWhatIsLeftGivesTheBlockBack)
{
    SmallBlockInput provider(Bytes(10), 4);
    TestInput stream(&provider);
    unsigned char out[10];
    EXPECT_EQ(stream.Read(out, 4), 4u);
    EXPECT_EQ(provider.returns, 1);
    EXPECT_FALSE(stream.HasPendingBlock());
    EXPECT_EQ(stream.Read(out + 4, 3), 3u);
    EXPECT_TRUE(stream.HasPendingBlock());
    EXPECT_EQ(stream.Read(out + 7, 10), 3u); // short at the end of the data
    EXPECT_EQ(std::vector<unsigned char>(out, out + 10), Bytes(10));
    EXPECT_EQ(stream.Read(out, 1), 0u);
    EXPECT_EQ(stream.GetPosition(), 10u);
}

TEST(InputStream, SkipPastTheBlockMakesTheNextReadAskAtTheNewPosition)
{
    SmallBlockInput provider(Bytes(20), 8);
    TestInput stream(&provider);
    unsigned char c = 0;
    stream.Read(c);
    stream.Skip(2); // within the block
    stream.Read(c);
    EXPECT_EQ(c, Bytes(20)[3]);
    stream.Skip(9); // past the block's end
    EXPECT_FALSE(stream.HasPendingBlock());
    stream.Read(c);
    EXPECT_EQ(c, Bytes(20)[13]);
    EXPECT_EQ(provider.requests, (std::vector<u64>{0, 13}));
}

TEST(OutputStream, FullBlocksGoBackAtOnceAndTheTailOnDestruction)
{
    SmallBlockOutput provider(4);
    {
        streamtest::ProviderOutput stream(&provider);
        stream.Write(static_cast<unsigned short>(0x1122));
        stream.Write(u32(0x33445566)); // straddles
        EXPECT_EQ(provider.written.size(), 4u);
        stream.Write(static_cast<unsigned char>(0x77));
        EXPECT_EQ(stream.Write(Bytes(5).data(), 5), 5u);
        EXPECT_EQ(provider.written.size(), 12u);
    }
    EXPECT_EQ(provider.written.size(), 12u); // the tail was empty
    std::vector<unsigned char> expected(12);
    const unsigned short s = 0x1122;
    const u32 l = 0x33445566;
    std::memcpy(&expected[0], &s, 2);
    std::memcpy(&expected[2], &l, 4);
    expected[6] = 0x77;
    std::memcpy(&expected[7], Bytes(5).data(), 5);
    EXPECT_EQ(provider.written, expected);
}

// Blocks of 2 bytes split every value but the first byte, blocks of 3 end
// right after the first short, and blocks of 5 split the arrays' elements:
// the per-value paths assemble them and give each block back as it ends.
TEST(Streams, EveryWidthAndArrayFormCrossesSmallBlocks)
{
    for (u32 blockSize : {2u, 3u, 5u})
    {
        SCOPED_TRACE("blocks of " + std::to_string(blockSize));
        SmallBlockOutput sink(blockSize);
        {
            streamtest::ProviderOutput out(&sink);
            streamtest::WriteEverything(out);
        }
        ASSERT_EQ(sink.written.size(), streamtest::RoundTripSize);
        SmallBlockInput source(sink.written, blockSize);
        TestInput in(&source);
        streamtest::CheckEverything(in);
        u64 past = 0;
        EXPECT_EQ(in.Read(&past, 1, 8), 0u); // end of data: no whole value
    }
}

TEST(BufferStreams, InputOverflowsAtItsSize)
{
    const auto data = Bytes(6);
    qel::InputBufferStream stream(data.data(), data.data() + data.size());
    unsigned char out[6];
    EXPECT_EQ(stream.Read(out, 6), 6u);
    unsigned char c;
    EXPECT_THROW(stream.Read(c), qel::BufferOverflow);
    qel::InputBufferProvider provider(data.data(), data.data() + data.size());
    unsigned char *block, *current, *end;
    EXPECT_THROW(provider.Request(6, block, current, end), qel::BufferOverflow);
    provider.Request(5, block, current, end);
    EXPECT_EQ(end - current, 1);
}

TEST(BufferStreams, OutputRecordsTheWrittenEndAndOverflowsAtCapacity)
{
    unsigned char buffer[8] = {};
    qel::OutputBufferStream stream(buffer, buffer, buffer + 8);
    stream.Write(u32(0xAABBCCDD));
    EXPECT_EQ(stream.GetWrittenSize(), 0u); // still in the held block
    stream.Flush();
    EXPECT_EQ(stream.GetWrittenSize(), 4u);
    EXPECT_EQ(stream.Write(Bytes(4).data(), 4), 4u);
    EXPECT_EQ(stream.GetWrittenSize(), 8u); // a full buffer goes back whole
    EXPECT_THROW(stream.Write(static_cast<unsigned char>(1)), qel::BufferOverflow);

    stream.Reset();
    stream.Write(static_cast<unsigned char>(0x42));
    stream.Flush();
    EXPECT_EQ(stream.GetWrittenSize(), 1u);
    EXPECT_EQ(buffer[0], 0x42);
}

} // namespace
