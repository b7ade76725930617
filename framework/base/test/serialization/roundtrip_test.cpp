// Every value and array form through each writer, read back through the
// reader that GenericReader::Create picks from the stream's header.
#include "serialization/serializationtest.h"
#include "support/scriptedhost.h"

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
using qeltest::Record;
using qeltest::Sample;

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
}

// A host long is 4 bytes in every stream on every host, read back
// sign-extended (unsigned zero-extended). Where it is wider, a value that
// does not fit is reported with its field's label, its low 32 bits are
// written and the caller's variable is left as it was.
struct HostCase
{
    long long value;
    bool isUnsigned;
    const char* label;
    Bytes bytes;
    long long back;
    const char* warning; // "" for none
};

// Writes the value singly and as an array of two, and reads both back.
template <class T>
void CheckHostInteger(const HostCase& test)
{
    qeltest::ScriptedHost host;
    T single = T(test.value), pair[2] = {T(test.value), T(test.value)};
    const Bytes bytes = qeltest::Written(
        [&](qel::OutputStream& stream)
        {
            qel::BinaryWriter writer(&stream, nullptr);
            writer.Identify(test.label);
            writer.Serialize(single);
            writer.Serialize(pair, 2, sizeof(T));
        });
    Bytes expected;
    for (int i = 0; i < 3; ++i)
        expected.insert(expected.end(), test.bytes.begin(), test.bytes.end());
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(single, T(test.value));
    EXPECT_EQ(pair[1], T(test.value));
    std::vector<std::string> warnings;
    for (const auto& question : host.questions)
        if (question.text.rfind("The value", 0) == 0)
            warnings.push_back(question.text.substr(0, question.text.find('\n')));
    EXPECT_EQ(warnings, std::vector<std::string>(*test.warning ? 3 : 0, test.warning));

    qeltest::BytesInputStream stream(bytes);
    qel::BinaryReader reader(&stream, nullptr);
    reader.Serialize(single);
    reader.Serialize(pair, 2, sizeof(T));
    for (T each : {single, pair[0], pair[1]})
        EXPECT_EQ((long long)(each), test.back);
}

TEST(HostIntegers, AreFourBytesEverywhereAndTooWideOnesAreReported)
{
    std::vector<HostCase> cases = {
        {-5, false, "a", {0xFB, 0xFF, 0xFF, 0xFF}, -5, ""},
        {INT32_MIN, false, "a", {0x00, 0x00, 0x00, 0x80}, INT32_MIN, ""},
        {4000000000ll, true, "a", {0x00, 0x28, 0x6B, 0xEE}, 4000000000ll, ""},
    };
    if (sizeof(long) == 8)
        cases.insert(cases.end(),
                     {{0x100000005ll,
                       false,
                       "Count",
                       {0x05, 0, 0, 0},
                       5,
                       "The value 4294967301 of the field \"Count\" does not fit in 32 bits: its "
                       "low 32 bits are written."},
                      {-0x100000001ll,
                       false,
                       "Offset",
                       {0xFF, 0xFF, 0xFF, 0xFF},
                       -1,
                       "The value -4294967297 of the field \"Offset\" does not fit in 32 bits: "
                       "its low 32 bits are written."},
                      {0x1FFFFFFFFll,
                       true,
                       nullptr,
                       {0xFF, 0xFF, 0xFF, 0xFF},
                       0xFFFFFFFFll,
                       "The value 8589934591 does not fit in 32 bits: its low 32 bits are "
                       "written."}});
    for (const HostCase& test : cases)
    {
        SCOPED_TRACE(test.value);
        if (test.isUnsigned)
            CheckHostInteger<unsigned long>(test);
        else
            CheckHostInteger<long>(test);
    }
}

} // namespace
