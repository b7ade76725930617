// One sequence of every value width and array form, written to an output
// stream and checked back from an input stream, shared by the streams over
// small blocks, files and memory; and an output stream over a provider of
// the test's own.
#pragma once

#include <qel/inputstream.h>
#include <qel/outputstream.h>

#include <gtest/gtest.h>

#include <cstring>

namespace streamtest
{

using qel::u32;
using qel::u64;

// An output stream over a provider that outlives it: what it holds goes to
// the provider when it dies.
struct ProviderOutput : qel::OutputStream
{
    explicit ProviderOutput(qel::Provider* provider) : OutputStream(provider) {}
    ~ProviderOutput() override { Finish(); }
};

// Bytes the sequence takes in the stream.
constexpr u32 RoundTripSize = 1 + 2 + 4 + 8 + 5 + 3 * 2 + 3 * 4 + 2 * 8 + 3 * 2 + 3 * 4 + 2 * 3 + 7;

inline void WriteEverything(qel::OutputStream& out)
{
    const unsigned char bytes[5] = {1, 2, 3, 4, 0xFF};
    const unsigned short shorts[3] = {0x1234, 0xFFFF, 0};
    const u32 longs[3] = {0x89ABCDEFu, 1, 0xFFFFFFFFu};
    const u64 wides[2] = {0x0123456789ABCDEFull, ~0ull};
    out.Write(static_cast<unsigned char>(0xA5));
    out.Write(static_cast<unsigned short>(0xBEEF));
    out.Write(static_cast<u32>(0xDEADBEEFu));
    out.Write(static_cast<u64>(0xFEDCBA9876543210ull));
    EXPECT_EQ(out.Write(bytes, 5, 1), 5u);
    EXPECT_EQ(out.Write(shorts, 3, 2), 3u);
    EXPECT_EQ(out.Write(longs, 3, 4), 3u);
    EXPECT_EQ(out.Write(wides, 2, 8), 2u);
    EXPECT_EQ(out.Write(longs, 3, 2), 3u);  // narrowed to the low 2 bytes
    EXPECT_EQ(out.Write(shorts, 3, 4), 3u); // widened
    EXPECT_EQ(out.Write(wides, 2, 3), 2u);  // narrowed to the low 3 bytes
    EXPECT_EQ(out.Write(longs, 3, 9), 0u);  // no such width
    EXPECT_EQ(out.Write("written", 7), 7u);
}

inline void CheckEverything(qel::InputStream& in)
{
    unsigned char byte = 0;
    unsigned short half = 0;
    u32 word = 0;
    u64 wide = 0;
    in.Read(byte);
    in.Read(half);
    in.Read(word);
    in.Read(wide);
    EXPECT_EQ(byte, 0xA5);
    EXPECT_EQ(half, 0xBEEF);
    EXPECT_EQ(word, 0xDEADBEEFu);
    EXPECT_EQ(wide, 0xFEDCBA9876543210ull);

    unsigned char bytes[5] = {};
    unsigned short shorts[3] = {};
    u32 longs[3] = {};
    u64 wides[2] = {};
    u32 narrowed[3] = {};
    u32 widened[3] = {};
    u64 low[2] = {};
    char text[8] = {};
    EXPECT_EQ(in.Read(bytes, 5, 1), 5u);
    EXPECT_EQ(in.Read(shorts, 3, 2), 3u);
    EXPECT_EQ(in.Read(longs, 3, 4), 3u);
    EXPECT_EQ(in.Read(wides, 2, 8), 2u);
    EXPECT_EQ(in.Read(narrowed, 3, 2), 3u);
    EXPECT_EQ(in.Read(widened, 3, 4), 3u);
    EXPECT_EQ(in.Read(low, 2, 3), 2u);
    EXPECT_EQ(in.Read(text, 7), 7u);
    EXPECT_EQ(bytes[4], 0xFF);
    EXPECT_EQ(bytes[0] + bytes[1] + bytes[2] + bytes[3], 10);
    EXPECT_EQ(shorts[0], 0x1234);
    EXPECT_EQ(shorts[1], 0xFFFF);
    EXPECT_EQ(longs[0], 0x89ABCDEFu);
    EXPECT_EQ(longs[2], 0xFFFFFFFFu);
    EXPECT_EQ(wides[0], 0x0123456789ABCDEFull);
    EXPECT_EQ(wides[1], ~0ull);
    EXPECT_EQ(narrowed[0], 0xCDEFu);
    EXPECT_EQ(narrowed[2], 0xFFFFu);
    EXPECT_EQ(widened[0], 0x1234u);
    EXPECT_EQ(widened[1], 0xFFFFu);
    EXPECT_EQ(low[0], 0xABCDEFull);
    EXPECT_EQ(low[1], 0xFFFFFFull);
    EXPECT_STREQ(text, "written");
    EXPECT_EQ(in.GetPosition(), RoundTripSize);
}

} // namespace streamtest
