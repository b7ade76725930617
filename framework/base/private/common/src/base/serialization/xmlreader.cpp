#include <qel/xmlreader.h>

#include "base/markup/xmltext.h"
#include "base/serialization/textformat.h"
#include "base/serialization/xmlreal.h"

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>

namespace qel
{

XMLFormatError::XMLFormatError(u32 line, const char* reason) : Exception(reason), m_Line(line) {}

XMLReader::XMLReader(InputStream* stream, u64 size)
    : GenericReader(stream, nullptr), m_At(reinterpret_cast<const char*>(m_Buffer)), m_End(m_At),
      m_Left(size)
{
}

void XMLReader::Fail(const char* format, ...)
{
    char message[Exception::ReasonSize - 32];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    char reason[Exception::ReasonSize];
    TextFormat::Print(reason, sizeof reason, "XML line %u: %s", unsigned(m_Line), message);
    throw XMLFormatError(m_Line, reason);
}

// ---- characters -----------------------------------------------------------------

bool XMLReader::Ensure(u32 count)
{
    const u32 left = u32(m_End - m_At);
    if (left >= count)
        return true;
    char* buffer = reinterpret_cast<char*>(m_Buffer);
    std::memmove(buffer, m_At, left);
    const u32 room = u32(sizeof m_Buffer) - left;
    const u32 read =
        m_Left == 0 ? 0 : m_Stream->Read(buffer + left, m_Left < room ? u32(m_Left) : room);
    m_Left -= read;
    m_At = buffer;
    m_End = buffer + left + read;
    return left + read >= count;
}

char XMLReader::Next()
{
    if (m_At == m_End && !Ensure(1))
        Fail("the document ends inside '%s'", m_Open.empty() ? "qel" : m_Element.c_str());
    const char c = *m_At++;
    if (c == '\n')
        ++m_Line;
    return c;
}

bool XMLReader::Skip(const char* text)
{
    const u32 length = u32(std::strlen(text));
    if (!Ensure(length) || std::memcmp(m_At, text, length) != 0)
        return false;
    for (u32 i = 0; i < length; ++i)
        Next();
    return true;
}

void XMLReader::SkipUntil(const char* text, const char* what)
{
    const u32 length = u32(std::strlen(text));
    for (;;)
    {
        if (!Ensure(length))
            Fail("the document ends inside %s", what);
        if (std::memcmp(m_At, text, length) == 0)
        {
            m_At += length;
            return;
        }
        Next();
    }
}

void XMLReader::SkipSpace()
{
    while (XmlText::IsSpace(Peek()))
        Next();
}

void XMLReader::SkipMisc()
{
    for (;;)
    {
        SkipSpace();
        if (Skip("<!--"))
            SkipUntil("-->", "a comment");
        else if (Skip("<?"))
            SkipUntil("?>", "a processing instruction");
        else if (Skip("<!DOCTYPE"))
        {
            // Internal subsets hold declarations in brackets, which may hold
            // '>' themselves.
            for (int depth = 0;;)
            {
                const char c = Next();
                if (c == '[')
                    ++depth;
                else if (c == ']')
                    --depth;
                else if (c == '>' && depth <= 0)
                    break;
            }
        }
        else
            return;
    }
}

void XMLReader::ReadName(Text& name)
{
    name.clear();
    if (!XmlText::IsNameStart(Peek()))
    {
        if (AtEnd())
            Fail("the document ends where an element name was expected");
        Fail("'%c' where an element name was expected", Peek());
    }
    while (XmlText::IsNameChar(Peek()))
        name += Next();
}

void XMLReader::Expect(char c, const char* context)
{
    SkipSpace();
    if (AtEnd())
        Fail("the document ends in %s", context);
    if (Peek() != c)
        Fail("'%c' where '%c' was expected in %s", Peek(), c, context);
    Next();
}

void XMLReader::ReadReference(Text& out)
{
    Ensure(12);
    char bytes[4];
    u32 written = 0;
    const std::size_t used =
        XmlText::DecodeReference(m_At, std::size_t(m_End - m_At), bytes, written);
    if (used == 0)
    {
        u32 shown = 1;
        while (shown < 12 && m_At + shown < m_End && m_At[shown] != ';' && m_At[shown] != '<')
            ++shown;
        Fail("unknown reference '%.*s' in '%s'", int(shown), m_At, m_Element.c_str());
    }
    out.append(bytes, written);
    m_At += used;
}

void XMLReader::ReadAttributes()
{
    m_Attributes.clear();
    Text name;
    for (;;)
    {
        SkipSpace();
        const char c = Peek();
        if (c == '>' || c == '/' || AtEnd())
            return;
        ReadName(name);
        Expect('=', "an attribute");
        SkipSpace();
        const char quote = Next();
        if (quote != '"' && quote != '\'')
            Fail("the value of attribute '%s' of '%s' is not quoted", name.c_str(),
                 m_Element.c_str());
        m_Attributes += name;
        m_Attributes += '\0';
        for (char v = Peek(); v != quote; v = Peek())
        {
            if (v == '&')
                ReadReference(m_Attributes);
            else if (v == '<' || AtEnd())
                Fail("the value of attribute '%s' of '%s' is not closed", name.c_str(),
                     m_Element.c_str());
            else
                m_Attributes += XmlText::IsSpace(Next()) ? ' ' : v;
        }
        Next();
        m_Attributes += '\0';
    }
}

const char* XMLReader::Attribute(const char* name) const
{
    for (std::size_t at = 0; at < m_Attributes.size();)
    {
        const char* key = m_Attributes.c_str() + at;
        const char* value = key + std::strlen(key) + 1;
        if (std::strcmp(key, name) == 0)
            return value;
        at = std::size_t(value - m_Attributes.c_str()) + std::strlen(value) + 1;
    }
    return nullptr;
}

// ---- elements -------------------------------------------------------------------

void XMLReader::Start()
{
    if (m_Started)
        return;
    m_Started = true;
    Skip("\xEF\xBB\xBF");
    SkipMisc();
    if (!Skip("<"))
        Fail(AtEnd() ? "the document is empty" : "no root element");
    ReadName(m_Element);
    if (m_Element != "qel")
        Fail("the root element is '%s', not 'qel'", m_Element.c_str());
    ReadAttributes();
    const char* format = Attribute("format");
    if (format != nullptr && std::strcmp(format, "qel/xml0") != 0)
        Fail("the document's format is '%s', not 'qel/xml0'", format);
    if (Skip("/>"))
        Fail("the root element is empty");
    Expect('>', "the root element");
}

const char* XMLReader::ExpectedName(const char* anonymous) const
{
    return m_Labelled && XmlText::IsName(m_Label.data(), m_Label.size()) ? m_Label.c_str()
                                                                         : anonymous;
}

bool XMLReader::ReadStartTag(const char* anonymous)
{
    Start();
    DropString();
    const char* expected = ExpectedName(anonymous);
    SkipMisc();
    if (AtEnd())
        Fail("the document ends where element '%s' was expected", expected);
    if (Ensure(2) && m_At[0] == '<' && m_At[1] == '/')
        Fail("expected element '%s', found the end of '%s'", expected, OpenBlock());
    if (Peek() != '<')
        Fail("text where element '%s' was expected", expected);
    Next();
    ReadName(m_Element);
    if (m_Element != expected)
        Fail("expected element '%s', found '%s'", expected, m_Element.c_str());
    ReadAttributes();
    if (m_Labelled && expected == anonymous)
    {
        const char* name = Attribute("name");
        if (name == nullptr || m_Label != name)
            Fail("expected '%s' named '%s', found %s'%s'", expected, m_Label.c_str(),
                 name ? "the name " : "no name", name ? name : "");
    }
    m_Labelled = false;
    if (Skip("/>"))
        return true;
    Expect('>', "a start tag");
    return false;
}

void XMLReader::ReadEndTag(const char* element)
{
    if (!Skip("</"))
    {
        SkipMisc();
        if (AtEnd())
            Fail("the document ends inside '%s'", element);
        if (!Skip("</"))
            Fail("'%s' holds more than was read", element);
    }
    Text name;
    ReadName(name);
    if (name != element)
        Fail("'%s' is closed by the end tag of '%s'", element, name.c_str());
    Expect('>', "an end tag");
}

void XMLReader::ReadValue()
{
    if (ReadStartTag("value"))
    {
        m_Text.clear();
        return;
    }
    m_Text.clear();
    for (;;)
    {
        if (m_At == m_End && !Ensure(1))
            Fail("the document ends inside '%s'", m_Element.c_str());
        // Plain characters in a run, straight from the buffer.
        const char* run = m_At;
        while (run != m_End && *run != '<' && *run != '&' && *run != '\r')
        {
            if (*run == '\n')
                ++m_Line;
            ++run;
        }
        m_Text.append(m_At, std::size_t(run - m_At));
        m_At = run;
        if (m_At == m_End)
            continue;
        const char c = *m_At;
        if (c == '&')
            ReadReference(m_Text);
        else if (c == '\r')
        {
            // Line ends read as one line feed, as XML wants them.
            Next();
            if (Peek() == '\n')
                Next();
            else
                ++m_Line;
            m_Text += '\n';
        }
        else if (Skip("<![CDATA["))
        {
            for (;;)
            {
                if (!Ensure(3))
                    Fail("the document ends inside a CDATA section of '%s'", m_Element.c_str());
                if (std::memcmp(m_At, "]]>", 3) == 0)
                    break;
                m_Text += Next();
            }
            m_At += 3;
        }
        else if (Skip("<!--"))
            SkipUntil("-->", "a comment");
        else if (Skip("<?"))
            SkipUntil("?>", "a processing instruction");
        else if (Ensure(2) && m_At[1] == '/')
            break;
        else
            Fail("'%s' holds elements where a value was expected", m_Element.c_str());
    }
    ReadEndTag(m_Element.c_str());
    const char* encoding = Attribute("encoding");
    if (encoding == nullptr)
        return;
    if (std::strcmp(encoding, "hex") != 0)
        Fail("'%s' has the unknown encoding '%s'", m_Element.c_str(), encoding);
    Text bytes;
    auto digit = [](char c) -> int
    {
        if (c >= '0' && c <= '9')
            return c - '0';
        c = char(c | 0x20);
        return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    };
    std::size_t i = 0;
    for (; i + 1 < m_Text.size(); i += 2)
    {
        const int high = digit(m_Text[i]), low = digit(m_Text[i + 1]);
        if (high < 0 || low < 0)
            break;
        bytes += char(high * 16 + low);
    }
    if (i != m_Text.size())
        Fail("'%s' holds '%s', which is no hexadecimal text", m_Element.c_str(), m_Text.c_str());
    m_Text.swap(bytes);
}

const char* XMLReader::OpenBlock() const
{
    if (m_Open.empty())
        return "qel";
    const std::size_t start = m_Open.rfind('\0', m_Open.size() - 2);
    return m_Open.c_str() + (start == Text::npos ? 0 : start + 1) + 1;
}

void XMLReader::DropString()
{
    m_InString = false;
}

void XMLReader::Identify(const char* name)
{
    DropString();
    m_Label.assign(name ? name : "");
    m_Labelled = true;
}

void XMLReader::Begin()
{
    const bool empty = ReadStartTag("block");
    m_Open += empty ? '/' : '+';
    m_Open += m_Element;
    m_Open += '\0';
}

void XMLReader::End()
{
    DropString();
    m_Labelled = false;
    if (m_Open.empty())
        return; // no block open: nothing to close
    m_Open.pop_back();
    const std::size_t start = m_Open.rfind('\0');
    const std::size_t from = start == Text::npos ? 0 : start + 1;
    const bool empty = m_Open[from] == '/';
    const Text element = m_Open.substr(from + 1);
    m_Open.erase(from);
    if (!empty)
        ReadEndTag(element.c_str());
}

void XMLReader::Finish()
{
    Start();
    DropString();
    while (!m_Open.empty())
        End();
    ReadEndTag("qel");
    SkipMisc();
    if (!AtEnd())
        Fail("content after the end of the root element");
}

// ---- values ---------------------------------------------------------------------

namespace
{

const char* Trimmed(const char* text, std::size_t& length)
{
    while (length > 0 && XmlText::IsSpace(*text))
        ++text, --length;
    while (length > 0 && XmlText::IsSpace(text[length - 1]))
        --length;
    return text;
}

template <class T>
const char* TypeName();
#define QEL_XML_TYPE_NAME(Type)                                                                    \
    template <>                                                                                    \
    const char* TypeName<Type>()                                                                   \
    {                                                                                              \
        return #Type;                                                                              \
    }
QEL_XML_TYPE_NAME(bool)
QEL_XML_TYPE_NAME(double)
QEL_XML_TYPE_NAME(float)
QEL_XML_TYPE_NAME(s64)
QEL_XML_TYPE_NAME(u64)
QEL_XML_TYPE_NAME(s32)
QEL_XML_TYPE_NAME(u32)
QEL_XML_TYPE_NAME(short)
QEL_XML_TYPE_NAME(unsigned short)
QEL_XML_TYPE_NAME(signed char)
QEL_XML_TYPE_NAME(unsigned char)
#undef QEL_XML_TYPE_NAME

template <class T>
bool ParseNumber(const char* text, std::size_t length, T& v)
{
    typedef std::conditional_t<std::is_signed<T>::value, long long, unsigned long long> Wide;
    Wide wide = 0;
    const std::from_chars_result result = std::from_chars(text, text + length, wide);
    if (result.ec != std::errc() || result.ptr != text + length ||
        wide < Wide(std::numeric_limits<T>::min()) || wide > Wide(std::numeric_limits<T>::max()))
        return false;
    v = T(wide);
    return true;
}

bool ParseNumber(const char* text, std::size_t length, double& v)
{
    return XmlReal::Parse(text, length, v);
}

bool ParseNumber(const char* text, std::size_t length, float& v)
{
    return XmlReal::Parse(text, length, v);
}

bool ParseNumber(const char* text, std::size_t length, bool& v)
{
    const std::string_view word(text, length);
    if (word == "True" || word == "true" || word == "1")
        v = true;
    else if (word == "False" || word == "false" || word == "0")
        v = false;
    else
        return false;
    return true;
}

} // namespace

template <class T>
void XMLReader::Parse(const char* text, std::size_t length, T& v)
{
    text = Trimmed(text, length);
    if (!ParseNumber(text, length, v))
        Fail("'%s' holds '%.*s', which is no %s", m_Element.c_str(), int(length < 64 ? length : 64),
             text, TypeName<T>());
}

template <class T>
void XMLReader::Number(T& v)
{
    ReadValue();
    Parse(m_Text.data(), m_Text.size(), v);
}

void XMLReader::Serialize(char& v)
{
    ReadValue();
    if (m_Text.size() != 1)
        Fail("'%s' holds %u characters where one was expected", m_Element.c_str(),
             unsigned(m_Text.size()));
    v = m_Text[0];
}

void XMLReader::Serialize(u32& v)
{
    ReadValue();
    const char* length = Attribute("length");
    if (length == nullptr)
    {
        Parse(m_Text.data(), m_Text.size(), v);
        return;
    }
    // A string: its characters wait for the char arrays that follow.
    Parse(length, std::strlen(length), v);
    if (v != m_Text.size())
        Fail("'%s' holds %u characters, not its length %u", m_Element.c_str(),
             unsigned(m_Text.size()), unsigned(v));
    m_InString = true;
    m_StringAt = 0;
}

#define QEL_XML_VALUE(Type)                                                                        \
    void XMLReader::Serialize(Type& v)                                                             \
    {                                                                                              \
        Number(v);                                                                                 \
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

// ---- arrays ---------------------------------------------------------------------

u32 XMLReader::Serialize(char* p, u32 count, u32 stride)
{
    if (m_InString)
    {
        // The characters of the string whose length was read last, in as
        // many pieces as the caller asks for.
        const u32 left = u32(m_Text.size()) - m_StringAt;
        const u32 taken = count < left ? count : left;
        for (u32 i = 0; i < taken; ++i)
            p[std::size_t(i) * stride] = m_Text[m_StringAt + i];
        m_StringAt += taken;
        m_InString = m_StringAt < m_Text.size();
        return taken;
    }
    ReadValue();
    if (m_Text.size() != count)
        Fail("'%s' holds %u characters where %u were expected", m_Element.c_str(),
             unsigned(m_Text.size()), unsigned(count));
    for (u32 i = 0; i < count; ++i)
        p[std::size_t(i) * stride] = m_Text[i];
    return count;
}

template <class T>
u32 XMLReader::Array(T* p, u32 count, u32 stride)
{
    ReadValue();
    const char* stored = Attribute("count");
    u32 storedCount = count;
    if (stored != nullptr)
        Parse(stored, std::strlen(stored), storedCount);
    if (storedCount != count)
        Fail("'%s' holds %s values where %u were expected", m_Element.c_str(), stored,
             unsigned(count));
    const char* at = m_Text.data();
    const char* end = at + m_Text.size();
    unsigned char* to = reinterpret_cast<unsigned char*>(p);
    for (u32 i = 0; i < count; ++i, to += stride)
    {
        while (at != end && XmlText::IsSpace(*at))
            ++at;
        const char* word = at;
        while (at != end && !XmlText::IsSpace(*at))
            ++at;
        if (word == at)
            Fail("'%s' holds %u values where %u were expected", m_Element.c_str(), unsigned(i),
                 unsigned(count));
        T value;
        Parse(word, std::size_t(at - word), value);
        std::memcpy(to, &value, sizeof value);
    }
    std::size_t rest = std::size_t(end - at);
    Trimmed(at, rest);
    if (rest != 0)
        Fail("'%s' holds more than %u values", m_Element.c_str(), unsigned(count));
    return count;
}

#define QEL_XML_ARRAY(Type)                                                                        \
    u32 XMLReader::Serialize(Type* p, u32 count, u32 stride)                                       \
    {                                                                                              \
        DropString();                                                                              \
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
