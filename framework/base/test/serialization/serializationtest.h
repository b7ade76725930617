// Helpers of the serialization tests: streams over byte vectors and a
// serializer that records what it is asked.
#pragma once

#include <qel/inputstream.h>
#include <qel/outputmemorystream.h>
#include <qel/provider.h>
#include <qel/writer.h>

#include <cstdio>
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
        void Request(qel::u32 position, unsigned char*& block, unsigned char*& current,
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

} // namespace qeltest
