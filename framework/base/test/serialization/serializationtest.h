// Helpers of the serialization tests: streams over byte vectors and a
// serializer that records what it is asked.
#pragma once

#include <qel/inputstream.h>
#include <qel/outputmemorystream.h>
#include <qel/provider.h>
#include <qel/serializer.h>
#include <qel/writer.h>

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace qeltest
{

typedef std::vector<unsigned char> Bytes;

// Reads a byte vector and reports its end: a block never reaches past it.
class BytesInputStream : public qel::InputStream
{
public:
    explicit BytesInputStream(const Bytes& bytes) : InputStream(&m_Source), m_Source(bytes) {}

private:
    struct Source : qel::Provider
    {
        explicit Source(const Bytes& bytes) : data(bytes) { m_Open = true; }
        void Request(qel::u64 position, unsigned char*& block, unsigned char*& current,
                     unsigned char*& end) override
        {
            block = current = data.data() + (position < data.size() ? position : data.size());
            end = data.data() + data.size();
        }
        Bytes data;
    } m_Source;
};

// Runs `write` on a memory stream and returns the bytes it wrote.
template <class Write>
Bytes Written(Write write)
{
    qel::OutputMemoryStream stream;
    write(stream);
    stream.Flush();
    qel::u32 size = 0;
    const unsigned char* data = stream.GetBuffer(size);
    return Bytes(data, data + size);
}

inline std::string Text(const Bytes& bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

// A writer that records each operation as one line: the slot's type and
// the value, "u32[] 3/4" for an array of 3 at stride 4, "Identify a",
// "Begin", "End".
class Recorder : public qel::Writer
{
public:
    std::vector<std::string> log;

#define QELTEST_RECORD(Type, Name, Format, Cast)                                                   \
    void Serialize(Type& v) override                                                               \
    {                                                                                              \
        Record(Name, Format, Cast(v));                                                             \
    }                                                                                              \
    qel::u32 Serialize(Type* p, qel::u32 count, qel::u32 stride) override                          \
    {                                                                                              \
        (void)p;                                                                                   \
        Record(Name "[]", "%u/%u", unsigned(count), unsigned(stride));                             \
        return count;                                                                              \
    }
    QELTEST_RECORD(char, "char", "%c", char)
    QELTEST_RECORD(double, "double", "%g", double)
    QELTEST_RECORD(float, "float", "%g", double)
    QELTEST_RECORD(qel::s64, "s64", "%lld", static_cast<long long>)
    QELTEST_RECORD(qel::u64, "u64", "%llu", static_cast<unsigned long long>)
    QELTEST_RECORD(qel::s32, "s32", "%ld", static_cast<long>)
    QELTEST_RECORD(qel::u32, "u32", "%lu", static_cast<unsigned long>)
    QELTEST_RECORD(short, "short", "%d", int)
    QELTEST_RECORD(unsigned short, "ushort", "%u", unsigned)
    QELTEST_RECORD(signed char, "schar", "%d", int)
    QELTEST_RECORD(unsigned char, "uchar", "%u", unsigned)
#undef QELTEST_RECORD
    void Serialize(bool& v) override
    {
        unsigned char byte;
        __builtin_memcpy(&byte, &v, 1);
        Record("bool", "%u", unsigned(byte));
    }
    qel::u32 Serialize(bool*, qel::u32 count, qel::u32 stride) override
    {
        Record("bool[]", "%u/%u", unsigned(count), unsigned(stride));
        return count;
    }
    void Identify(const char* name) override
    {
        log.push_back(std::string("Identify ") + name);
    }
    void Begin() override
    {
        log.push_back("Begin");
    }
    void End() override
    {
        log.push_back("End");
    }

private:
    template <class T>
    void Record(const char* name, const char* format, T value)
    {
        char text[64];
        std::snprintf(text, sizeof text, format, value);
        log.push_back(std::string(name) + " " + text);
    }
    template <class T, class U>
    void Record(const char* name, const char* format, T a, U b)
    {
        char text[64];
        std::snprintf(text, sizeof text, format, a, b);
        log.push_back(std::string(name) + " " + text);
    }
};

using qel::s32;
using qel::s64;
using qel::u32;
using qel::u64;

// A structure of every value type, single and in arrays (some strided),
// the host's own integer types and a string, and a sample of it with the
// extremes of each type.
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

inline Record Sample()
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
    r.hostLongs[0] = INT32_MIN, r.hostLongs[1] = INT32_MAX; // 4 bytes in every stream
    std::strcpy(r.name, "sample");
    return r;
}

} // namespace qeltest
