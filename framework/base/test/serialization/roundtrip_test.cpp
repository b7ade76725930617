// Every value and array form through each writer, read back through the
// reader that GenericReader::Create picks from the stream's header.
#include "serialization/serializationtest.h"

#include <qel/binaryreader.h>
#include <qel/binaryswapperwriter.h>
#include <qel/binarywriter.h>
#include <qel/genericreader.h>

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstring>
#include <memory>

namespace
{

using qel::s32;
using qel::s64;
using qel::u32;
using qel::u64;
using qeltest::Bytes;

struct Record
{
    char c = 0;
    bool b = false;
    double d = 0;
    float f = 0;
    s64 i64 = 0;
    u64 u64v = 0;
    s32 i32 = 0;
    u32 u32v = 0;
    short i16 = 0;
    unsigned short u16 = 0;
    signed char i8 = 0;
    unsigned char u8 = 0;
    long hostLong = 0;
    unsigned int hostUnsigned = 0;

    char chars[5] = {};
    bool bools[3] = {};
    double doubles[2] = {};
    float floats[2] = {};
    s64 i64s[2] = {};
    u64 u64s[2] = {};
    s32 i32s[2] = {};
    u32 u32s[3] = {};
    short i16s[2] = {};
    unsigned short u16s[2] = {};
    signed char i8s[2] = {};
    unsigned char u8s[2] = {};
    long hostLongs[2] = {};
    char name[16] = {};

    void Serialize(qel::Serializer& s)
    {
        s.Identify("single");
        s.Begin();
        s.Serialize(c), s.Serialize(b), s.Serialize(d), s.Serialize(f);
        s.Serialize(i64), s.Serialize(u64v), s.Serialize(i32), s.Serialize(u32v);
        s.Serialize(i16), s.Serialize(u16), s.Serialize(i8), s.Serialize(u8);
        s.Serialize(hostLong), s.Serialize(hostUnsigned);
        s.End();
        EXPECT_EQ(s.Serialize(chars, 5, 1), 5u);
        EXPECT_EQ(s.Serialize(bools, 3, 1), 3u);
        EXPECT_EQ(s.Serialize(doubles, 2, 8), 2u);
        EXPECT_EQ(s.Serialize(floats, 2, 4), 2u);
        EXPECT_EQ(s.Serialize(i64s, 2, 8), 2u);
        EXPECT_EQ(s.Serialize(u64s, 2, 8), 2u);
        EXPECT_EQ(s.Serialize(i32s, 2, 4), 2u);
        EXPECT_EQ(s.Serialize(u32s, 2, 8), 2u); // every other one
        EXPECT_EQ(s.Serialize(i16s, 2, 2), 2u);
        EXPECT_EQ(s.Serialize(u16s, 2, 2), 2u);
        EXPECT_EQ(s.Serialize(i8s, 2, 1), 2u);
        EXPECT_EQ(s.Serialize(u8s, 2, 1), 2u);
        EXPECT_EQ(s.Serialize(hostLongs, 2, u32(sizeof(long))), 2u);
        if (s.IsWriting())
            qel::WriteString(s, name);
        else
            qel::ReadString(s, name, sizeof name);
    }
};

Record Sample()
{
    Record r;
    r.c = 'q', r.b = true, r.d = -1.0 / 3, r.f = FLT_MIN, r.i64 = LLONG_MIN, r.u64v = ULLONG_MAX;
    r.i32 = -123456789, r.u32v = 0xDEADBEEF, r.i16 = SHRT_MIN, r.u16 = 0xBEEF, r.i8 = -128;
    r.u8 = 255, r.hostLong = -5, r.hostUnsigned = 4000000000u;
    std::memcpy(r.chars, "a\0b\nc", 5);
    r.bools[0] = true, r.bools[2] = true;
    r.doubles[0] = DBL_MAX, r.doubles[1] = -0.0, r.floats[0] = 0.1f, r.floats[1] = -FLT_MAX;
    r.i64s[0] = -1, r.i64s[1] = 0x0102030405060708ll, r.u64s[1] = 1;
    r.i32s[0] = INT32_MIN, r.i32s[1] = 1, r.u32s[0] = 1, r.u32s[2] = 3;
    r.i16s[0] = -1, r.u16s[1] = 0x1234, r.i8s[1] = 127, r.u8s[0] = 0x80;
    r.hostLongs[0] = LONG_MIN, r.hostLongs[1] = LONG_MAX;
    std::strcpy(r.name, "sample");
    return r;
}

template <class W>
void CheckRoundTrip(const char* tag)
{
    Record written = Sample();
    const Bytes bytes = qeltest::Written(
        [&](qel::OutputStream& stream)
        {
            W writer(&stream, nullptr);
            writer.WriteUniqueHeader();
            written.Serialize(writer);
        });
    ASSERT_EQ(qeltest::Text(Bytes(bytes.begin(), bytes.begin() + 8)), tag);

    Record read;
    read.u32s[1] = 77; // between the strided elements: must stay
    qeltest::BytesInputStream stream(bytes);
    std::unique_ptr<qel::Reader> reader(qel::GenericReader::Create(&stream, nullptr));
    read.Serialize(*reader);
    EXPECT_EQ(stream.GetPosition(), u32(bytes.size()));
    EXPECT_EQ(read.u32s[1], 77u);
    read.u32s[1] = 0;

    // Written again, the loaded record gives the same bytes: the writers'
    // encodings are pinned by the byte-exact tests, so equal bytes mean
    // equal fields.
    const Bytes again = qeltest::Written(
        [&](qel::OutputStream& out)
        {
            W writer(&out, nullptr);
            writer.WriteUniqueHeader();
            read.Serialize(writer);
        });
    EXPECT_EQ(again, bytes);
    EXPECT_EQ(read.d, -1.0 / 3);
    EXPECT_EQ(read.hostLongs[0], LONG_MIN);
    EXPECT_EQ(read.hostUnsigned, 4000000000u);
    EXPECT_EQ(std::memcmp(read.chars, "a\0b\nc", 5), 0);
    EXPECT_STREQ(read.name, "sample");
}

TEST(RoundTrip, EveryTypeThroughBothByteOrders)
{
    CheckRoundTrip<qel::BinaryWriter>("qel/b0-l");
    CheckRoundTrip<qel::BinarySwapperWriter>("qel/b0-b");
}

TEST(Strings, LengthThenCharactersAndLongOnesAreCutInStep)
{
    const Bytes bytes = qeltest::Written(
        [](qel::OutputStream& stream)
        {
            qel::BinaryWriter writer(&stream, nullptr);
            EXPECT_EQ(qel::WriteString(writer, "abcdef"), 6u);
            EXPECT_EQ(qel::WriteString(writer, nullptr), 0u);
            u32 after = 0x11223344;
            writer.Serialize(after);
        });
    EXPECT_EQ(bytes, (Bytes{6, 0, 0, 0, 'a', 'b', 'c', 'd', 'e', 'f', 0, 0, 0, 0, 0x44, 0x33, 0x22,
                            0x11}));

    qeltest::BytesInputStream stream(bytes);
    qel::BinaryReader reader(&stream, nullptr);
    char small[4];
    EXPECT_EQ(qel::ReadString(reader, small, sizeof small), 3u);
    EXPECT_STREQ(small, "abc");
    char empty[4] = "xyz";
    EXPECT_EQ(qel::ReadString(reader, empty, sizeof empty), 0u);
    EXPECT_STREQ(empty, "");
    u32 after = 0;
    reader.Serialize(after);
    EXPECT_EQ(after, 0x11223344u);

    // A length that lies: the text is what the data holds, and the reading
    // stops at the end of the data.
    qeltest::BytesInputStream lying(Bytes{0xF0, 0xFF, 0xFF, 0xFF, 'x', 'y'});
    qel::BinaryReader liar(&lying, nullptr);
    char text[8] = "1234567";
    EXPECT_EQ(qel::ReadString(liar, text, sizeof text), 2u);
    EXPECT_STREQ(text, "xy");
}

} // namespace

namespace
{

// A reader that loads 1, 2, 3... into whatever it is asked for, through the
// base element loop of the array forms.
struct CountingReader : qel::Reader
{
    int calls = 0;
    template <class T>
    void Next(T& v)
    {
        v = static_cast<T>(++calls);
    }
    void Serialize(char& v) override { Next(v); }
    void Serialize(bool& v) override { v = (++calls % 2) != 0; }
    void Serialize(double& v) override { Next(v); }
    void Serialize(float& v) override { Next(v); }
    void Serialize(s64& v) override { Next(v); }
    void Serialize(u64& v) override { Next(v); }
    void Serialize(s32& v) override { Next(v); }
    void Serialize(u32& v) override { Next(v); }
    void Serialize(short& v) override { Next(v); }
    void Serialize(unsigned short& v) override { Next(v); }
    void Serialize(signed char& v) override { Next(v); }
    void Serialize(unsigned char& v) override { Next(v); }
    void Identify(const char*) override {}
    void Begin() override {}
    void End() override {}
    using qel::Reader::Serialize;
};

TEST(BaseArrayLoop, CopiesThroughLocalsAndTouchesOnlyTheStridedElements)
{
    CountingReader reader;
    // Doubles at an odd stride: unaligned, and the bytes between kept.
    unsigned char bytes[1 + 3 * 11];
    std::memset(bytes, 0xEE, sizeof bytes);
    EXPECT_EQ(reader.Serialize(reinterpret_cast<double*>(bytes + 1), 3, 11), 3u);
    for (int i = 0; i < 3; ++i)
    {
        double v;
        std::memcpy(&v, bytes + 1 + 11 * i, 8);
        EXPECT_EQ(v, i + 1.0);
        EXPECT_EQ(bytes[1 + 11 * i + 8], 0xEE);
    }
    EXPECT_EQ(bytes[0], 0xEE);

    EXPECT_EQ(reader.Serialize(reinterpret_cast<u32*>(bytes), 0, 4), 0u);
    EXPECT_EQ(reader.calls, 3);

    // The host's own integer types go through their fixed-width slot.
    long wide[2] = {};
    unsigned int narrow = 0;
    EXPECT_EQ(reader.Serialize(wide, 2, u32(sizeof(long))), 2u);
    reader.Serialize(narrow);
    EXPECT_EQ(wide[0], 4);
    EXPECT_EQ(wide[1], 5);
    EXPECT_EQ(narrow, 6u);
}

} // namespace
