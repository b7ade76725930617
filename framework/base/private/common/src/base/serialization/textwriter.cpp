#include <qel/textwriter.h>

#include "base/serialization/textformat.h"

#include <cstring>

namespace qel
{

TextWriter::TextWriter(OutputStream* stream) : GenericWriter(stream, nullptr) {}

void TextWriter::SetDefaults()
{
    m_Tabulation = 4;
    m_Spacing = ' ';
    m_Marking = ':';
    m_Opening = '{';
    m_Closing = '}';
    m_Skipping = '\n';
}

void TextWriter::Reset()
{
    m_Depth = 0;
    m_ValuePending = false;
    m_OpeningPending = false;
}

const char* TextWriter::GetUniqueHeader() const
{
    return "qel/text";
}

void TextWriter::Tabulate()
{
    for (u32 i = m_Depth * m_Tabulation; i > 0; --i)
        Put(m_Spacing);
}

void TextWriter::PrintOpening()
{
    if (m_ValuePending)
        Put(m_Skipping);
    Tabulate();
    ++m_Depth;
    Put(m_Opening);
    Put(m_Skipping);
    m_OpeningPending = false;
    m_ValuePending = false;
}

void TextWriter::Identify(const char* name)
{
    SetLabel(name);
    if (m_OpeningPending)
        PrintOpening();
    Tabulate();
    m_Stream->Write(name, static_cast<u32>(std::strlen(name)));
    Put(m_Marking);
    m_ValuePending = true;
}

void TextWriter::Begin()
{
    m_OpeningPending = true;
    m_BlockOpen = true;
}

void TextWriter::End()
{
    // An empty block still prints its braces, so the text stays balanced.
    if (m_OpeningPending)
        PrintOpening();
    if (!m_BlockOpen)
    {
        // A string since the Begin: the pair prints nothing of its own.
        m_BlockOpen = true;
        return;
    }
    if (m_Depth == 0)
        return;
    --m_Depth;
    Tabulate();
    Put(m_Closing);
    Put(m_Skipping);
}

void TextWriter::PrintValue(const char* text, u32 length)
{
    if (m_Depth == 0)
    {
        m_Stream->Write(text, length);
        return;
    }
    if (m_OpeningPending)
        PrintOpening();
    if (m_ValuePending)
    {
        m_ValuePending = false;
        Put(m_Spacing);
    }
    else
        Tabulate();
    m_Stream->Write(text, length);
    Put(m_Skipping);
}

template <class T>
void TextWriter::PrintNumber(const char* format, T value)
{
    char text[48] = {};
    PrintFormatted(text, TextFormat::Print(text, sizeof text, format, value));
}

void TextWriter::PrintFormatted(const char* text, int length)
{
    PrintValue(text, length >= 0 && length < 48 ? u32(length) : 48u);
}

void TextWriter::Translate(bool& v)
{
    // The byte, not the bool: any byte but 0 is true.
    unsigned char byte;
    std::memcpy(&byte, &v, 1);
    if (byte != 0)
        PrintValue("True", 4);
    else
        PrintValue("False", 5);
}

void TextWriter::Translate(char& v)
{
    PrintValue(&v, 1);
}

u32 TextWriter::Serialize(char* p, u32 count, u32 stride)
{
    if (stride != 1)
        return GenericWriter::Serialize(p, count, stride);
    m_OpeningPending = false;
    m_BlockOpen = false;
    if (m_Depth == 0)
    {
        m_Stream->Write(p, count);
        return count;
    }
    if (m_ValuePending)
    {
        m_ValuePending = false;
        Put(m_Spacing);
    }
    else
        Tabulate();
    m_Stream->Write(p, count);
    Put(m_Skipping);
    return count;
}

void TextWriter::Serialize(char& v)
{
    Translate(v);
}

void TextWriter::Serialize(bool& v)
{
    Translate(v);
}

void TextWriter::Serialize(double& v)
{
    char text[48] = {};
    PrintFormatted(text, TextFormat::Double(text, sizeof text, v));
}

void TextWriter::Serialize(float& v)
{
    char text[48] = {};
    PrintFormatted(text, TextFormat::Float(text, sizeof text, v));
}

void TextWriter::Serialize(s64& v)
{
    PrintNumber("%I64i", static_cast<long long>(v));
}

void TextWriter::Serialize(u64& v)
{
    PrintNumber("%I64u", static_cast<unsigned long long>(v));
}

void TextWriter::Serialize(s32& v)
{
    PrintNumber("%li", static_cast<long>(v));
}

void TextWriter::Serialize(u32& v)
{
    PrintNumber("%lu", static_cast<unsigned long>(v));
}

void TextWriter::Serialize(short& v)
{
    PrintNumber("%hi", static_cast<int>(v));
}

void TextWriter::Serialize(unsigned short& v)
{
    PrintNumber("%hu", static_cast<unsigned>(v));
}

void TextWriter::Serialize(signed char& v)
{
    PrintNumber("%li", static_cast<long>(v));
}

void TextWriter::Serialize(unsigned char& v)
{
    PrintNumber("%lu", static_cast<unsigned long>(v));
}

} // namespace qel
