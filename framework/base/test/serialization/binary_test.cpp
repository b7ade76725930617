#include "serialization/serializationtest.h"

#include <qel/binaryreader.h>
#include <qel/binaryswapperreader.h>
#include <qel/binaryswapperwriter.h>
#include <qel/binarywriter.h>
#include <qel/inputmemorystream.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace
{

using qel::u32;
using qeltest::Bytes;
using qeltest::Written;

// Writes with a fresh W and returns the bytes.
template <class W, class Body>
Bytes WriteWith(Body body)
{
    return Written(
        [&](qel::OutputStream& stream)
        {
            W writer(&stream, nullptr);
            body(writer);
        });
}

template <class R, class T>
T ReadOne(const Bytes& bytes)
{
    qeltest::BytesInputStream stream(bytes);
    R reader(&stream, nullptr);
    T value{};
    reader.Serialize(value);
    return value;
}

TEST(Binary, ValuesAreTheirBytesInTheTagsOrder)
{
    auto values = [](qel::Serializer& s)
    {
        u32 word = 0x01020304;
        float single = 1.0f;
        double dbl = 1.0;
        s.Serialize(word);
        s.Serialize(single);
        s.Serialize(dbl);
    };
    EXPECT_EQ(WriteWith<qel::BinaryWriter>(values),
              (Bytes{4, 3, 2, 1, 0, 0, 0x80, 0x3F, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
    EXPECT_EQ(WriteWith<qel::BinarySwapperWriter>(values),
              (Bytes{1, 2, 3, 4, 0x3F, 0x80, 0, 0, 0x3F, 0xF0, 0, 0, 0, 0, 0, 0}));

    EXPECT_EQ((ReadOne<qel::BinaryReader, u32>({4, 3, 2, 1})), 0x01020304u);
    EXPECT_EQ((ReadOne<qel::BinarySwapperReader, u32>({1, 2, 3, 4})), 0x01020304u);
    EXPECT_EQ((ReadOne<qel::BinarySwapperReader, float>({0x3F, 0x80, 0, 0})), 1.0f);
    EXPECT_EQ((ReadOne<qel::BinarySwapperReader, double>({0x3F, 0xF0, 0, 0, 0, 0, 0, 0})), 1.0);
    EXPECT_EQ((ReadOne<qel::BinarySwapperReader, short>({0xFF, 0xFE})), -2);
    EXPECT_EQ((ReadOne<qel::BinarySwapperReader, qel::s64>({0x80, 0, 0, 0, 0, 0, 0, 1})),
              qel::s64(0x8000000000000001ull));
}

TEST(Binary, BoolsAreOneOrZeroWhateverTheirByteAndOrder)
{
    // Bool objects holding bytes 2 and 0x80, as foreign data can make them.
    unsigned char raw[3] = {2, 0x80, 0};
    bool bools[3];
    std::memcpy(bools, raw, 3);
    auto body = [&](qel::Serializer& s)
    {
        s.Serialize(bools[0]);
        s.Serialize(bools, 3, 1);
        char c = 'x';
        signed char sc = -1;
        unsigned char uc = 0xAB;
        s.Serialize(c);
        s.Serialize(sc);
        s.Serialize(uc);
    };
    const Bytes expected{1, 1, 1, 0, 'x', 0xFF, 0xAB};
    EXPECT_EQ(WriteWith<qel::BinaryWriter>(body), expected);
    EXPECT_EQ(WriteWith<qel::BinarySwapperWriter>(body), expected);

    qeltest::BytesInputStream stream({0x80, 2, 0, 0x80});
    qel::BinarySwapperReader reader(&stream, nullptr);
    bool one = false;
    bool many[3] = {};
    reader.Serialize(one);
    reader.Serialize(many, 3, 1);
    unsigned char bytes[4];
    std::memcpy(bytes, &one, 1);
    std::memcpy(bytes + 1, many, 3);
    EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{1, 1, 0, 1}));
}

struct Item
{
    float position[3];
    u32 id;
};

// A stride longer than the element touches only the strided elements, in
// the block path (native), the element path (swapped) and the base loop; an
// empty array writes nothing.
template <class W, class R>
void CheckStride()
{
    Item items[3] = {{{1, 2, 3}, 10}, {{4, 5, 6}, 20}, {{7, 8, 9}, 30}};
    const Bytes bytes = WriteWith<W>(
        [&](qel::Serializer& s)
        {
            EXPECT_EQ(s.Serialize(&items[0].id, 3, sizeof(Item)), 3u);
            EXPECT_EQ(s.Serialize(&items[0].position[1], 3, sizeof(Item)), 3u);
            double* none = nullptr; // empty arrays move nothing
            EXPECT_EQ(s.Serialize(none, 0, 8), 0u);
            EXPECT_EQ(s.Serialize(reinterpret_cast<char*>(none), 0, 1), 0u);
        });
    ASSERT_EQ(bytes.size(), 24u);

    Item loaded[3];
    std::memset(loaded, 0xAA, sizeof loaded);
    qeltest::BytesInputStream stream(bytes);
    R reader(&stream, nullptr);
    EXPECT_EQ(reader.Serialize(&loaded[0].id, 3, sizeof(Item)), 3u);
    EXPECT_EQ(reader.Serialize(&loaded[0].position[1], 3, sizeof(Item)), 3u);
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(loaded[i].id, items[i].id);
        EXPECT_EQ(loaded[i].position[1], items[i].position[1]);
        unsigned char untouched[4];
        std::memcpy(untouched, &loaded[i].position[0], 4);
        EXPECT_EQ(untouched[0], 0xAA);
        std::memcpy(untouched, &loaded[i].position[2], 4);
        EXPECT_EQ(untouched[3], 0xAA);
    }
}

TEST(Binary, StridedArraysTouchOnlyTheirElements)
{
    CheckStride<qel::BinaryWriter, qel::BinaryReader>();
    CheckStride<qel::BinarySwapperWriter, qel::BinarySwapperReader>();
}

// Long arrays are reversed in batches and in vector registers: every element
// of every width must come out whole and in place, across the batch edges and
// the scalar tail, packed or strided.
template <class T>
void CheckLongSwappedArray(u32 count)
{
    std::vector<T> values(count);
    for (u32 i = 0; i < count; ++i)
        values[i] = static_cast<T>(0x0123456789ABCDEFull * (i + 1));
    const Bytes bytes = WriteWith<qel::BinarySwapperWriter>(
        [&](qel::Serializer& s)
        { EXPECT_EQ(s.Serialize(values.data(), count, sizeof(T)), count); });
    ASSERT_EQ(bytes.size(), count * sizeof(T));
    for (u32 i = 0; i < count; ++i)
    {
        unsigned char host[sizeof(T)];
        std::memcpy(host, &values[i], sizeof(T));
        for (u32 k = 0; k < sizeof(T); ++k)
            ASSERT_EQ(bytes[i * sizeof(T) + k], host[sizeof(T) - 1 - k]) << i << " byte " << k;
    }
    std::vector<T> read(count);
    qeltest::BytesInputStream stream(bytes);
    qel::BinarySwapperReader reader(&stream, nullptr);
    reader.Serialize(read.data(), count, sizeof(T));
    EXPECT_EQ(read, values);
}

TEST(Binary, LongSwappedArraysCrossTheirBatchesIntact)
{
    CheckLongSwappedArray<unsigned short>(5001);
    CheckLongSwappedArray<u32>(4099);
    CheckLongSwappedArray<qel::u64>(2051);

    std::vector<u32> pairs(2 * 4099);
    for (u32 i = 0; i < pairs.size(); ++i)
        pairs[i] = i * 2654435761u;
    const Bytes bytes = WriteWith<qel::BinarySwapperWriter>(
        [&](qel::Serializer& s) { EXPECT_EQ(s.Serialize(pairs.data(), 4099, 8), 4099u); });
    ASSERT_EQ(bytes.size(), 4 * 4099u);
    for (u32 i = 0; i < 4099; ++i)
        ASSERT_EQ(u32(bytes[4 * i]) << 24 | bytes[4 * i + 1] << 16 | bytes[4 * i + 2] << 8 |
                      bytes[4 * i + 3],
                  pairs[2 * i])
            << i;
    std::vector<u32> pairsRead(pairs.size(), 5);
    qeltest::BytesInputStream stream(bytes);
    qel::BinarySwapperReader reader(&stream, nullptr);
    reader.Serialize(pairsRead.data(), 4099, 8);
    for (u32 i = 0; i < pairs.size(); ++i)
        ASSERT_EQ(pairsRead[i], i % 2 ? 5 : pairs[i]) << i;
}

TEST(Binary, TheStreamHeaderPicksTheReader)
{
    const Bytes little =
        WriteWith<qel::BinaryWriter>([](qel::BinaryWriter& w) { w.WriteUniqueHeader(); });
    const Bytes big =
        WriteWith<qel::BinarySwapperWriter>([](qel::BinaryWriter& w) { w.WriteUniqueHeader(); });
    EXPECT_EQ(qeltest::Text(little), "qel/b0-l");
    EXPECT_EQ(qeltest::Text(big), "qel/b0-b");
    EXPECT_STREQ(qel::BinaryWriter::GetHeader(), "qel/b0-l");
    EXPECT_STREQ(qel::BinarySwapperWriter::GetHeader(), "qel/b0-b");

    qeltest::Recorder database;
    {
        qeltest::BytesInputStream stream(little);
        std::unique_ptr<qel::Reader> reader(qel::GenericReader::Create(&stream, &database));
        auto* binary = dynamic_cast<qel::BinaryReader*>(reader.get());
        ASSERT_NE(binary, nullptr);
        EXPECT_EQ(dynamic_cast<qel::BinarySwapperReader*>(binary), nullptr);
        EXPECT_EQ(binary->GetDatabase(true), &database);
        EXPECT_EQ(binary->GetVersion(), 0u);
        EXPECT_EQ(binary->GetArchive(), nullptr);
        EXPECT_EQ(stream.GetPosition(), 8u);
    }
    {
        qeltest::BytesInputStream stream(big);
        std::unique_ptr<qel::Reader> reader(qel::GenericReader::Create(&stream, nullptr));
        EXPECT_NE(dynamic_cast<qel::BinarySwapperReader*>(reader.get()), nullptr);
    }

    for (const Bytes& bad : {qeltest::Bytes{'q', 'e', 'l', '/', 't', 'e', 'x', 't'},
                             qeltest::Bytes{'q', 'e', 'l', '/', 'b', '0', '-', 'L'},
                             qeltest::Bytes{}, qeltest::Bytes{'q', 'e', 'l', '/', 'b'}})
    {
        qeltest::BytesInputStream stream(bad);
        EXPECT_THROW(qel::GenericReader::Create(&stream, nullptr), qel::UnknownFormat);
        EXPECT_EQ(stream.GetPosition(), u32(bad.size())) << "the header stays consumed";
    }
    // The global name is the same type.
    qeltest::BytesInputStream stream(Bytes{});
    EXPECT_THROW(qel::GenericReader::Create(&stream, nullptr), ::UnknownFormat);
}

TEST(Binary, TheDatabaseHearsEveryOperationOnlyWithScriptOutput)
{
    qeltest::Recorder database;
    auto body = [](qel::Serializer& s)
    {
        s.Identify("x");
        s.Begin();
        double d = 1.0;
        s.Serialize(d);
        u32 words[2] = {7, 8};
        s.Serialize(words, 2, 4);
        bool flag = true;
        s.Serialize(flag);
        s.End();
    };
    const Bytes quiet = Written(
        [&](qel::OutputStream& stream)
        {
            qel::BinarySwapperWriter writer(&stream, &database);
            EXPECT_EQ(writer.GetDatabase(false), nullptr);
            body(writer);
        });
    EXPECT_TRUE(database.log.empty());

    const Bytes traced = Written(
        [&](qel::OutputStream& stream)
        {
            qel::BinarySwapperWriter writer(&stream, &database);
            writer.EnableScriptOutput(true);
            body(writer);
        });
    EXPECT_EQ(traced, quiet) << "the mirror does not change the output";
    EXPECT_EQ(database.log,
              (std::vector<std::string>{"Identify x", "Begin", "u64 4607182418800017408",
                                        "u32[] 2/4", "bool 1", "End"}));

    // A reader's echo comes before the read; a bool's goes to a zero byte.
    database.log.clear();
    qeltest::BytesInputStream stream({0x80, 5, 0, 0, 0});
    qel::BinaryReader reader(&stream, &database);
    reader.EnableScriptOutput(true);
    bool flag = true;
    u32 word = 99;
    reader.Serialize(flag);
    reader.Serialize(word);
    EXPECT_TRUE(flag);
    EXPECT_EQ(word, 5u);
    EXPECT_EQ(database.log, (std::vector<std::string>{"uchar 0", "u32 99"}));

    // Script output on and no database: output unchanged, no crash.
    const Bytes alone = Written(
        [&](qel::OutputStream& out)
        {
            qel::BinarySwapperWriter writer(&out, nullptr);
            writer.EnableScriptOutput(true);
            body(writer);
        });
    EXPECT_EQ(alone, quiet);
}

} // namespace
