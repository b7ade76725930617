#include <qel/filearchivedatabase.h>

#include <qel/outputstream.h>

#include "base/serialization/textformat.h"

#include <cstring>

namespace qel
{

FileArchiveDatabase::FileArchiveDatabase(OutputStream* output)
    : m_Output(output), m_Level(0), m_ValueWritten(false)
{
}

void FileArchiveDatabase::Put(const char* text, u32 length)
{
    m_Output->Write(text, length);
}

void FileArchiveDatabase::Indent()
{
    for (s32 i = 0; i < m_Level; ++i)
        Put("  ", 2);
}

void FileArchiveDatabase::Value(const char* type, const char* text, u32 length)
{
    if (m_ValueWritten)
        Indent();
    Put(type, u32(std::strlen(type)));
    Put("(", 1);
    Put(text, length);
    Put(")\n", 2);
    m_ValueWritten = true;
}

template <class T>
void FileArchiveDatabase::Number(const char* type, const char* format, T value)
{
    // A text that does not fit (none of these formats can overflow 48
    // characters) would be written as the whole buffer.
    char text[48];
    const int length = TextFormat::Print(text, sizeof text, format, value);
    Value(type, text, length > 0 && length < int(sizeof text) ? u32(length) : u32(sizeof text));
}

void FileArchiveDatabase::Identify(const char* name)
{
    Indent();
    Put(name, u32(std::strlen(name)));
    Put(": ", 2);
    m_ValueWritten = false;
}

void FileArchiveDatabase::Begin()
{
    if (m_ValueWritten)
        Indent();
    Put("{\n", 2);
    ++m_Level;
}

void FileArchiveDatabase::End()
{
    --m_Level;
    Indent();
    Put("}\n", 2);
}

u32 FileArchiveDatabase::Serialize(char* p, u32 count, u32 stride)
{
    if (stride != 1)
        return SerializeEach(p, count, stride);
    const void* zero = std::memchr(p, '\0', count);
    Value("char[]", p, zero ? u32(static_cast<const char*>(zero) - p) : count);
    return count;
}

void FileArchiveDatabase::Serialize(char& v)
{
    Value("char", &v, 1);
}

void FileArchiveDatabase::Serialize(bool& v)
{
    if (v)
        Value("bool", "True", 4);
    else
        Value("bool", "False", 5);
}

void FileArchiveDatabase::Serialize(double& v)
{
    Number("f64", "%.20lg", v);
}

void FileArchiveDatabase::Serialize(float& v)
{
    Number("f32", "%.10g", static_cast<double>(v));
}

void FileArchiveDatabase::Serialize(s64& v)
{
    Number("s64", "%I64i", static_cast<long long>(v));
}

void FileArchiveDatabase::Serialize(u64& v)
{
    Number("u64", "%I64u", static_cast<unsigned long long>(v));
}

void FileArchiveDatabase::Serialize(s32& v)
{
    Number("s32", "%li", static_cast<long>(v));
}

void FileArchiveDatabase::Serialize(u32& v)
{
    Number("u32", "%lu", static_cast<unsigned long>(v));
}

void FileArchiveDatabase::Serialize(short& v)
{
    Number("s16", "%hi", static_cast<int>(v));
}

void FileArchiveDatabase::Serialize(unsigned short& v)
{
    Number("u16", "%hu", static_cast<unsigned>(v));
}

void FileArchiveDatabase::Serialize(signed char& v)
{
    Number("s8", "%li", static_cast<long>(v));
}

void FileArchiveDatabase::Serialize(unsigned char& v)
{
    Number("u8", "%lu", static_cast<unsigned long>(v));
}

} // namespace qel
