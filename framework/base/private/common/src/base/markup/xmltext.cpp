#include "base/markup/xmltext.h"

namespace qel
{
namespace XmlText
{

namespace
{

bool IsAllowed(u32 code)
{
    if (code < 0x20)
        return code == '\t' || code == '\n' || code == '\r';
    return code < 0xD800 || (code >= 0xE000 && code <= 0xFFFD) ||
           (code >= 0x10000 && code <= 0x10FFFF);
}

} // namespace

bool IsName(const char* text, std::size_t length)
{
    if (length == 0 || !IsNameStart(text[0]))
        return false;
    for (std::size_t i = 1; i < length; ++i)
        if (!IsNameChar(text[i]))
            return false;
    return true;
}

bool IsCharacterData(const char* text, std::size_t length)
{
    return CharacterDataLength(text, length) == length;
}

std::size_t CharacterDataLength(const char* text, std::size_t length)
{
    const unsigned char* begin = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* at = begin;
    const unsigned char* end = at + length;
    while (at != end)
    {
        const unsigned char lead = *at;
        if (lead < 0x80)
        {
            if (lead < 0x20 && lead != '\t' && lead != '\n' && lead != '\r')
                break;
            ++at;
            continue;
        }
        // The length of the sequence and the smallest code it may carry,
        // so that over-long forms are refused.
        u32 size, code, least;
        if ((lead & 0xE0) == 0xC0)
            size = 2, code = lead & 0x1F, least = 0x80;
        else if ((lead & 0xF0) == 0xE0)
            size = 3, code = lead & 0x0F, least = 0x800;
        else if ((lead & 0xF8) == 0xF0)
            size = 4, code = lead & 0x07, least = 0x10000;
        else
            break;
        if (u32(end - at) < size)
            break;
        u32 i = 1;
        for (; i < size && (at[i] & 0xC0) == 0x80; ++i)
            code = (code << 6) | (at[i] & 0x3F);
        if (i < size || code < least || !IsAllowed(code))
            break;
        at += size;
    }
    return std::size_t(at - begin);
}

u32 EncodeUtf8(u32 code, char out[4])
{
    if (!IsAllowed(code))
        return 0;
    if (code < 0x80)
    {
        out[0] = char(code);
        return 1;
    }
    if (code < 0x800)
    {
        out[0] = char(0xC0 | (code >> 6));
        out[1] = char(0x80 | (code & 0x3F));
        return 2;
    }
    if (code < 0x10000)
    {
        out[0] = char(0xE0 | (code >> 12));
        out[1] = char(0x80 | ((code >> 6) & 0x3F));
        out[2] = char(0x80 | (code & 0x3F));
        return 3;
    }
    out[0] = char(0xF0 | (code >> 18));
    out[1] = char(0x80 | ((code >> 12) & 0x3F));
    out[2] = char(0x80 | ((code >> 6) & 0x3F));
    out[3] = char(0x80 | (code & 0x3F));
    return 4;
}

std::size_t DecodeReference(const char* text, std::size_t available, char out[4], u32& written)
{
    // The longest reference XML allows is "&#x10FFFF;" or "&#1114111;".
    std::size_t end = 1;
    while (end < available && end < 12 && text[end] != ';')
        ++end;
    if (end >= available || text[end] != ';')
        return 0;
    const char* body = text + 1;
    const std::size_t length = end - 1;
    static const struct
    {
        const char* name;
        char c;
    } kEntities[] = {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& entity : kEntities)
    {
        std::size_t i = 0;
        while (i < length && entity.name[i] != 0 && entity.name[i] == body[i])
            ++i;
        if (i == length && entity.name[i] == 0)
        {
            out[0] = entity.c;
            written = 1;
            return end + 1;
        }
    }
    if (length < 2 || body[0] != '#')
        return 0;
    const bool hex = body[1] == 'x';
    std::size_t i = hex ? 2 : 1;
    if (i == length)
        return 0;
    u32 code = 0;
    for (; i < length; ++i)
    {
        const char c = body[i];
        u32 digit;
        if (c >= '0' && c <= '9')
            digit = u32(c - '0');
        else if (hex && (c | 0x20) >= 'a' && (c | 0x20) <= 'f')
            digit = u32((c | 0x20) - 'a' + 10);
        else
            return 0;
        code = code * (hex ? 16 : 10) + digit;
        if (code > 0x10FFFF)
            return 0;
    }
    written = EncodeUtf8(code, out);
    return written ? end + 1 : 0;
}

} // namespace XmlText
} // namespace qel
