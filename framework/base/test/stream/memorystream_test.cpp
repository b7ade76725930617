// The growing output memory stream: what GetBuffer reports while the last
// odd byte waits in the staging block, the growth, and round trips into an
// input memory stream.
#include <qel/inputmemorystream.h>
#include <qel/outputmemorystream.h>

#include "roundtrip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace
{

using qel::OutputMemoryProvider;
using qel::OutputMemoryStream;
using qel::u32;

TEST(OutputMemoryStreamTest, OddLastByteIsMissingFromGetBufferUntilFlushOrDestruction)
{
    OutputMemoryStream stream;
    u32 size = 99;
    stream.Write("abc", 3);
    stream.GetBuffer(size);
    EXPECT_EQ(size, 2u);
    stream.Flush();
    unsigned char* data = stream.GetBuffer(size);
    ASSERT_EQ(size, 3u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data), 3), "abc");

    OutputMemoryProvider provider;
    {
        streamtest::ProviderOutput borrowing(&provider);
        borrowing.Write(static_cast<unsigned char>('x'));
        provider.GetBuffer(size);
        EXPECT_EQ(size, 0u);
    }
    data = provider.GetBuffer(size);
    ASSERT_EQ(size, 1u);
    EXPECT_EQ(data[0], 'x');
}

// Long writes and values that start between blocks skip the staging block;
// the bytes and the odd-byte rule must be as if every byte had gone
// through it.
TEST(OutputMemoryStreamTest, DirectAppendsKeepTheOrderAndTheOddByteRule)
{
    std::vector<unsigned char> expected;
    OutputMemoryStream stream;
    u32 total = 0;
    auto check = [&]
    {
        u32 size = 0;
        const unsigned char* data = stream.GetBuffer(size);
        ASSERT_EQ(size, total - total % 2);
        ASSERT_TRUE(std::equal(data, data + size, expected.begin()));
    };
    std::vector<unsigned char> block(1001);
    for (u32 i = 0; i < block.size(); ++i)
        block[i] = static_cast<unsigned char>(i * 31);
    for (int round = 0; round < 3; ++round)
    {
        stream.Write(block.data(), u32(block.size()));
        expected.insert(expected.end(), block.begin(), block.end());
        total += 1001;
        check();
        const u32 word = 0x0A0B0C0D + round;
        stream.Write(word);
        const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&word);
        expected.insert(expected.end(), bytes, bytes + 4);
        total += 4;
        check();
        stream.Write(static_cast<unsigned char>(round));
        expected.push_back(static_cast<unsigned char>(round));
        total += 1;
        check();
    }
    stream.Flush();
    u32 size = 0;
    const unsigned char* data = stream.GetBuffer(size);
    ASSERT_EQ(size, total);
    EXPECT_TRUE(std::equal(data, data + size, expected.begin()));
}

TEST(OutputMemoryStreamTest, GrowthKeepsEveryByteAndDoublesPastWhatIsNeeded)
{
    OutputMemoryProvider provider;
    std::vector<u32> capacities{provider.GetCapacity()};
    {
        streamtest::ProviderOutput stream(&provider);
        for (u32 i = 0; i < 5000; ++i)
        {
            stream.Write(static_cast<unsigned char>(i % 253));
            if (provider.GetCapacity() != capacities.back())
                capacities.push_back(provider.GetCapacity());
        }
    }
    // 2 bytes at a time: 2, then 2 * (2 + 2), 2 * (8 + 2), ...
    EXPECT_EQ(capacities, (std::vector<u32>{2, 8, 20, 44, 92, 188, 380, 764, 1532, 3068, 6140}));
    u32 size = 0;
    const unsigned char* data = provider.GetBuffer(size);
    ASSERT_EQ(size, 5000u);
    for (u32 i = 0; i < size; ++i)
        ASSERT_EQ(data[i], i % 253) << "at " << i;
}

TEST(OutputMemoryStreamTest, EveryWidthAndArrayFormSurvivesTheMemoryPair)
{
    OutputMemoryStream out;
    streamtest::WriteEverything(out);
    out.Flush();
    u32 size = 0;
    const unsigned char* data = out.GetBuffer(size);
    ASSERT_EQ(size, streamtest::RoundTripSize);
    qel::InputMemoryStream in(data, size);
    EXPECT_EQ(in.GetSize(), size);
    streamtest::CheckEverything(in);
}

} // namespace
