#include <qel/xmlwriter.h>

#include "base/markup/xmltext.h"
#include "base/serialization/textformat.h"
#include "base/serialization/xmlreal.h"

#include <charconv>
#include <cstring>

namespace qel
{

namespace
{

const u32 kTabulation = 4;
const char kHex[] = "0123456789ABCDEF";

// One value's text in `buffer` (64 bytes); returns its length.
u32 Format(char* buffer, bool v)
{
    std::memcpy(buffer, v ? "True" : "False", v ? 4 : 5);
    return v ? 4 : 5;
}
// Reals by reference: a signalling NaN must not pass through a register.
u32 Format(char* buffer, const double& v)
{
    return XmlReal::Format(buffer, v);
}
u32 Format(char* buffer, const float& v)
{
    return XmlReal::Format(buffer, v);
}
template <class T>
u32 Format(char* buffer, T v)
{
    // Every integer type goes through the widest of its sign, so that a
    // signed char prints as a number.
    typedef std::conditional_t<std::is_signed<T>::value, long long, unsigned long long> Wide;
    return u32(std::to_chars(buffer, buffer + 64, Wide(v)).ptr - buffer);
}

// An array element, copied out so that it need not be aligned; a bool in
// memory may hold any byte, and only 0 is false.
template <class T>
void Element(const unsigned char* at, T& value)
{
    std::memcpy(&value, at, sizeof value);
}
void Element(const unsigned char* at, bool& value)
{
    value = *at != 0;
}

} // namespace

XMLWriter::XMLWriter(OutputStream* stream) : GenericWriter(stream, nullptr) {}

XMLWriter::~XMLWriter()
{
    if (m_Started)
        Finish();
}

const char* XMLWriter::GetUniqueHeader() const
{
    return "qel/xml0";
}

void XMLWriter::Put(const char* text)
{
    Put(text, u32(std::strlen(text)));
}

void XMLWriter::Start()
{
    if (m_Started)
        return;
    m_Started = true;
    Put("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<qel format=\"qel/xml0\">\n");
    m_Depth = 1;
}

void XMLWriter::Finish()
{
    Release();
    if (!m_Started)
        return;
    while (!m_Open.empty())
        End();
    Put("</qel>\n");
    m_Started = false;
    m_Depth = 0;
}

void XMLWriter::Identify(const char* name)
{
    Release();
    SetLabel(name);
    m_Label.assign(name ? name : "");
    m_Labelled = true;
}

void XMLWriter::Indent()
{
    static const char kSpaces[] = "                                ";
    for (u32 left = m_Depth * kTabulation; left > 0;)
    {
        const u32 piece = left < 32 ? left : 32;
        Put(kSpaces, piece);
        left -= piece;
    }
}

XMLWriter::Name XMLWriter::Open(const char* anonymous, const char* attributes, bool block)
{
    Start();
    const bool named = m_Labelled && XmlText::IsName(m_Label.data(), m_Label.size());
    const Name element = named ? Name{m_Label.data(), u32(m_Label.size())}
                               : Name{anonymous, u32(std::strlen(anonymous))};
    Indent();
    Put("<", 1);
    Put(element.text, element.length);
    if (m_Labelled && !named)
    {
        Put(" name=\"", 7);
        XmlText::Escape(m_Label.data(), m_Label.size(), true,
                        [this](const char* piece, std::size_t size) { Put(piece, u32(size)); });
        Put("\"", 1);
    }
    Put(attributes);
    Put(block ? ">\n" : ">", block ? 2 : 1);
    m_Labelled = false;
    return element;
}

void XMLWriter::Close(Name element)
{
    Put("</", 2);
    Put(element.text, element.length);
    Put(">\n", 2);
}

void XMLWriter::Begin()
{
    Release();
    const Name element = Open("block", "", true);
    m_Open.append(element.text, element.length + 1);
    ++m_Depth;
}

void XMLWriter::End()
{
    Release();
    if (m_Open.empty())
        return; // no block open: nothing to close
    m_Open.pop_back();
    const std::size_t start = m_Open.rfind('\0');
    const std::size_t from = start == Text::npos ? 0 : start + 1;
    --m_Depth;
    Indent();
    Close(Name{m_Open.data() + from, u32(m_Open.size() - from)});
    m_Open.erase(from);
    m_Labelled = false;
}

void XMLWriter::Value(const char* text, u32 length)
{
    Release();
    const Name element = Open("value", "", false);
    Put(text, length);
    Close(element);
}

void XMLWriter::WriteText(const char* text, u32 length, const char* attributes)
{
    const bool plain = XmlText::IsCharacterData(text, length);
    char all[64];
    TextFormat::Print(all, sizeof all, "%s%s", attributes, plain ? "" : " encoding=\"hex\"");
    const Name element = Open("value", all, false);
    if (plain)
    {
        XmlText::Escape(text, length, false,
                        [this](const char* piece, std::size_t size) { Put(piece, u32(size)); });
    }
    else
    {
        char pair[2];
        for (u32 i = 0; i < length; ++i)
        {
            const unsigned char c = static_cast<unsigned char>(text[i]);
            pair[0] = kHex[c >> 4];
            pair[1] = kHex[c & 15];
            Put(pair, 2);
        }
    }
    Close(element);
}

void XMLWriter::Release()
{
    if (!m_Holding)
        return;
    m_Holding = false;
    // The held length goes under its own label, which a later Identify may
    // have replaced.
    Text current;
    current.swap(m_Label);
    const bool currentLabelled = m_Labelled;
    m_Label.swap(m_HeldLabel);
    m_Labelled = m_HeldLabelled;
    char buffer[64];
    Value(buffer, Format(buffer, m_Held));
    m_Label.swap(current);
    m_Labelled = currentLabelled;
}

// ---- values -----------------------------------------------------------------

void XMLWriter::Serialize(char& v)
{
    Release();
    WriteText(&v, 1, "");
}

void XMLWriter::Serialize(u32& v)
{
    Release();
    Start();
    m_Holding = true;
    m_Held = v;
    m_HeldLabel.swap(m_Label);
    m_HeldLabelled = m_Labelled;
    m_Labelled = false;
}

#define QEL_XML_VALUE(Type)                                                                        \
    void XMLWriter::Serialize(Type& v)                                                             \
    {                                                                                              \
        char buffer[64];                                                                           \
        Value(buffer, Format(buffer, v));                                                          \
    }
QEL_XML_VALUE(bool)
QEL_XML_VALUE(double)
QEL_XML_VALUE(float)
QEL_XML_VALUE(s64)
QEL_XML_VALUE(u64)
QEL_XML_VALUE(s32)
QEL_XML_VALUE(short)
QEL_XML_VALUE(unsigned short)
QEL_XML_VALUE(signed char)
QEL_XML_VALUE(unsigned char)
#undef QEL_XML_VALUE

// ---- arrays -----------------------------------------------------------------

u32 XMLWriter::Serialize(char* p, u32 count, u32 stride)
{
    char attributes[32];
    const bool string = m_Holding && m_Held == count;
    if (string)
    {
        // The held length and these characters are one string: the
        // element takes the length's label.
        m_Holding = false;
        m_Label.swap(m_HeldLabel);
        m_Labelled = m_HeldLabelled;
        std::memcpy(attributes, " length=\"", 9);
    }
    else
    {
        Release();
        std::memcpy(attributes, " count=\"", 8);
    }
    const u32 prefix = string ? 9 : 8;
    const u32 digits = Format(attributes + prefix, count);
    attributes[prefix + digits] = '"';
    attributes[prefix + digits + 1] = 0;
    if (stride == 1 || count == 0)
        WriteText(p, count, attributes);
    else
    {
        Text gathered;
        gathered.reserve(count);
        for (u32 i = 0; i < count; ++i)
            gathered += p[std::size_t(i) * stride];
        WriteText(gathered.data(), count, attributes);
    }
    return count;
}

template <class T>
u32 XMLWriter::Array(T* p, u32 count, u32 stride)
{
    Release();
    char buffer[1 + 64]; // a space and a value
    Text attributes(" count=\"");
    attributes.append(buffer, Format(buffer, count));
    attributes += '"';
    const Name element = Open("value", attributes.c_str(), false);
    const unsigned char* at = reinterpret_cast<const unsigned char*>(p);
    for (u32 i = 0; i < count; ++i, at += stride)
    {
        T value;
        Element(at, value);
        const u32 length = Format(buffer + 1, value);
        if (i != 0)
        {
            buffer[0] = ' ';
            Put(buffer, length + 1);
        }
        else
            Put(buffer + 1, length);
    }
    Close(element);
    return count;
}

#define QEL_XML_ARRAY(Type)                                                                        \
    u32 XMLWriter::Serialize(Type* p, u32 count, u32 stride)                                       \
    {                                                                                              \
        return Array(p, count, stride);                                                            \
    }
QEL_XML_ARRAY(bool)
QEL_XML_ARRAY(double)
QEL_XML_ARRAY(float)
QEL_XML_ARRAY(s64)
QEL_XML_ARRAY(u64)
QEL_XML_ARRAY(s32)
QEL_XML_ARRAY(u32)
QEL_XML_ARRAY(short)
QEL_XML_ARRAY(unsigned short)
QEL_XML_ARRAY(signed char)
QEL_XML_ARRAY(unsigned char)
#undef QEL_XML_ARRAY

} // namespace qel
