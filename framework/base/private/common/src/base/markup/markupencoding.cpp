#include "base/markup/markupencoding.h"

#include "base/markup/xmltext.h"

#include <cstring>

namespace qel
{
namespace MarkupEncoding
{

namespace
{

bool SameName(const char* name, std::size_t length, const char* known)
{
    std::size_t i = 0;
    for (; i < length && known[i]; ++i)
    {
        char c = name[i];
        if (c >= 'a' && c <= 'z')
            c = char(c - 'a' + 'A');
        if (c != known[i])
            return false;
    }
    return i == length && known[i] == 0;
}

// The next code of UTF-8 text, moving past it; a byte that starts no
// sequence is returned as it is, with `valid` false.
u32 NextCode(const unsigned char*& at, const unsigned char* end, bool& valid)
{
    const unsigned char lead = *at++;
    valid = true;
    if (lead < 0x80)
        return lead;
    u32 size, code, least;
    if ((lead & 0xE0) == 0xC0)
        size = 2, code = lead & 0x1Fu, least = 0x80;
    else if ((lead & 0xF0) == 0xE0)
        size = 3, code = lead & 0x0Fu, least = 0x800;
    else if ((lead & 0xF8) == 0xF0)
        size = 4, code = lead & 0x07u, least = 0x10000;
    else
        size = 0, code = 0, least = 0;
    if (size == 0 || u32(end - at) < size - 1)
    {
        valid = false;
        return lead;
    }
    for (u32 i = 0; i + 1 < size; ++i)
    {
        if ((at[i] & 0xC0) != 0x80)
        {
            valid = false;
            return lead;
        }
        code = (code << 6) | (at[i] & 0x3Fu);
    }
    if (code < least || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000))
    {
        valid = false;
        return lead;
    }
    at += size - 1;
    return code;
}

void AppendUtf8(u32 code, MarkupSTL::String& out)
{
    char bytes[4];
    if (code < 0x80)
        out += char(code);
    else if (code < 0x800)
    {
        bytes[0] = char(0xC0 | (code >> 6));
        bytes[1] = char(0x80 | (code & 0x3F));
        out.append(bytes, 2);
    }
    else if (code < 0x10000)
    {
        bytes[0] = char(0xE0 | (code >> 12));
        bytes[1] = char(0x80 | ((code >> 6) & 0x3F));
        bytes[2] = char(0x80 | (code & 0x3F));
        out.append(bytes, 3);
    }
    else
    {
        bytes[0] = char(0xF0 | (code >> 18));
        bytes[1] = char(0x80 | ((code >> 12) & 0x3F));
        bytes[2] = char(0x80 | ((code >> 6) & 0x3F));
        bytes[3] = char(0x80 | (code & 0x3F));
        out.append(bytes, 4);
    }
}

void AppendUnit(Kind kind, u32 unit, MarkupSTL::String& out)
{
    const char high = char(unit >> 8), low = char(unit & 0xFF);
    out += kind == kUtf16LE ? low : high;
    out += kind == kUtf16LE ? high : low;
}

} // namespace

const char* Name(u32 kind)
{
    static const char* const kNames[] = {"UTF-8", "UTF-16LE", "UTF-16BE", "ISO-8859-1"};
    return kNames[kind];
}

Kind Detect(const char* bytes, std::size_t length)
{
    if (length < 2)
        return kUtf8;
    const unsigned char a = static_cast<unsigned char>(bytes[0]);
    const unsigned char b = static_cast<unsigned char>(bytes[1]);
    if ((a == 0xFF && b == 0xFE) || (a == '<' && b == 0))
        return kUtf16LE;
    if ((a == 0xFE && b == 0xFF) || (a == 0 && b == '<'))
        return kUtf16BE;
    return kUtf8;
}

bool FromName(const char* name, std::size_t length, Kind& kind)
{
    static const char* const kUtf8Names[] = {"UTF-8", "UTF8", "US-ASCII", "ASCII"};
    static const char* const kUtf16Names[] = {"UTF-16", "UTF-16LE", "UTF-16BE", "UTF16",
                                              "ISO-10646-UCS-2"};
    static const char* const kLatin1Names[] = {"ISO-8859-1", "ISO_8859-1", "ISO8859-1",
                                               "LATIN1",     "LATIN-1",    "L1",
                                               "CP819",      "IBM819",     "ISO-IR-100"};
    for (const char* known : kUtf8Names)
        if (SameName(name, length, known))
            return kind = kUtf8, true;
    for (const char* known : kUtf16Names)
        if (SameName(name, length, known))
            return kind = kUtf16LE, true;
    for (const char* known : kLatin1Names)
        if (SameName(name, length, known))
            return kind = kLatin1, true;
    return false;
}

bool DeclaredValue(const char* text, std::size_t length, const char* attribute, std::size_t& at,
                   std::size_t& valueLength)
{
    std::size_t i = length >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0 ? 3 : 0;
    if (length - i < 6 || std::memcmp(text + i, "<?xml", 5) != 0 || !XmlText::IsSpace(text[i + 5]))
        return false;
    const std::size_t nameLength = std::strlen(attribute);
    for (i += 5; i < length && text[i] != '?';)
    {
        while (i < length && XmlText::IsSpace(text[i]))
            ++i;
        const std::size_t name = i;
        while (i < length && XmlText::IsNameChar(text[i]))
            ++i;
        const bool wanted =
            i - name == nameLength && std::memcmp(text + name, attribute, i - name) == 0;
        while (i < length && XmlText::IsSpace(text[i]))
            ++i;
        if (i == name || i == length || text[i] != '=')
            return false;
        ++i;
        while (i < length && XmlText::IsSpace(text[i]))
            ++i;
        if (i == length || (text[i] != '"' && text[i] != '\''))
            return false;
        const char quote = text[i++];
        const std::size_t value = i;
        while (i < length && text[i] != quote && text[i] != '>')
            ++i;
        if (i == length || text[i] != quote)
            return false;
        if (wanted)
        {
            at = value;
            valueLength = i - value;
            return true;
        }
        ++i;
    }
    return false;
}

bool ToUtf8(Kind kind, const char* bytes, std::size_t length, MarkupSTL::String& out)
{
    const unsigned char* at = reinterpret_cast<const unsigned char*>(bytes);
    const unsigned char* end = at + length;
    if (kind == kLatin1)
    {
        out.reserve(out.size() + length + length / 8);
        for (; at != end; ++at)
            AppendUtf8(*at, out);
        return true;
    }
    out.reserve(out.size() + length / 2 + length / 4);
    const int high = kind == kUtf16LE ? 1 : 0;
    while (end - at >= 2)
    {
        u32 code = u32(at[high]) << 8 | at[1 - high];
        at += 2;
        if (code >= 0xDC00 && code < 0xE000)
            return false;
        if (code >= 0xD800 && code < 0xDC00)
        {
            if (end - at < 2)
                return false;
            const u32 low = u32(at[high]) << 8 | at[1 - high];
            if (low < 0xDC00 || low >= 0xE000)
                return false;
            at += 2;
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        }
        AppendUtf8(code, out);
    }
    return at == end;
}

void FromUtf8(Kind kind, const char* text, std::size_t length, MarkupSTL::String& out)
{
    const unsigned char* at = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* end = at + length;
    out.reserve(out.size() + (kind == kLatin1 ? length : 2 * length));
    while (at != end)
    {
        bool valid;
        const u32 code = NextCode(at, end, valid);
        if (kind == kLatin1)
        {
            if (code < 0x100)
                out += char(code);
            else
            {
                char reference[16];
                std::size_t n = sizeof reference;
                reference[--n] = ';';
                for (u32 rest = code; rest != 0; rest /= 10)
                    reference[--n] = char('0' + rest % 10);
                reference[--n] = '#';
                reference[--n] = '&';
                out.append(reference + n, sizeof reference - n);
            }
            continue;
        }
        const u32 unit = valid ? code : 0xFFFD;
        if (unit < 0x10000)
            AppendUnit(kind, unit, out);
        else
        {
            AppendUnit(kind, 0xD800 + ((unit - 0x10000) >> 10), out);
            AppendUnit(kind, 0xDC00 + ((unit - 0x10000) & 0x3FF), out);
        }
    }
}

} // namespace MarkupEncoding
} // namespace qel
