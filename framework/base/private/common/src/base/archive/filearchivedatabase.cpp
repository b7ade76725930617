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
    char text[48];
    Formatted(type, text, TextFormat::Print(text, sizeof text, format, value));
}

void FileArchiveDatabase::Formatted(const char* type, const char* text, int length)
{
    // A text that does not fit (none of the formats can overflow 48
    // characters) would be written as the whole buffer.
    Value(type, text, length > 0 && length < 48 ? u32(length) : 48u);
}

void FileArchiveDatabase::Identify(const char* name)
{
    SetLabel(name);
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
    char text[48];
    Formatted("f64", text, TextFormat::Double(text, sizeof text, v));
}

void FileArchiveDatabase::Serialize(float& v)
{
    char text[48];
    Formatted("f32", text, TextFormat::Float(text, sizeof text, v));
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
