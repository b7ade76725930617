// Characters of XML text, shared by the serializer's XML back-ends and the
// markup document: names, escaping and the decoding of references.
//
// Names are the ASCII part of XML's: a letter, '_' or ':' and then letters,
// digits, '-', '.', '_' and ':'; bytes of 0x80 and above are name
// characters too, so that names in other scripts pass through.
#pragma once

#include <qel/types.h>

#include <cstddef>

namespace qel
{
namespace XmlText
{

// The classes of a byte, one table for every scan of XML text.
enum ByteClass : unsigned char
{
    kNameStart = 1,
    kNameChar = 2,
    kSpace = 4,
    kTextStop = 8,        // where a scan of content stops: '<', '&' and NUL
    kValueStop = 16,      // ... of an attribute value: the quotes too
    kDecodedInData = 32,  // what decoding content does not copy as it is
    kDecodedInValue = 64, // ... an attribute value: white space too
};

struct ByteClasses
{
    unsigned char bits[256];
    constexpr ByteClasses() : bits()
    {
        for (int c = 0; c < 256; ++c)
        {
            const bool start = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c >= 0x80 ||
                               c == '_' || c == ':';
            const bool rest = start || (c >= '0' && c <= '9') || c == '-' || c == '.';
            const bool space = c == ' ' || c == '\n' || c == '\t' || c == '\r';
            const bool stop = c == '<' || c == '&' || c == 0;
            const bool decoded = c == '&' || c == '<' || c == '\r';
            bits[c] = static_cast<unsigned char>(
                (start ? kNameStart : 0) | (rest ? kNameChar : 0) | (space ? kSpace : 0) |
                (stop ? kTextStop : 0) | (stop || c == '"' || c == '\'' ? kValueStop : 0) |
                (decoded ? kDecodedInData : 0) | (decoded || space ? kDecodedInValue : 0));
        }
    }
};
constexpr ByteClasses kClasses;

inline unsigned ClassOf(char c)
{
    return kClasses.bits[static_cast<unsigned char>(c)];
}
inline bool IsNameStart(char c)
{
    return (ClassOf(c) & kNameStart) != 0;
}
inline bool IsNameChar(char c)
{
    return (ClassOf(c) & kNameChar) != 0;
}
bool IsName(const char* text, std::size_t length);

inline bool IsSpace(char c)
{
    return (ClassOf(c) & kSpace) != 0;
}

// Whether two runs of bytes are the same, compared in place: for names,
// too short to be worth a call.
inline bool SameBytes(const char* a, const char* b, std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i)
        if (a[i] != b[i])
            return false;
    return true;
}
// Whether the `length` bytes at `bytes` (a name, so no NUL among them) are
// the text `name`; a shorter `name` differs at its NUL.
inline bool SameName(const char* bytes, std::size_t length, const char* name)
{
    return SameBytes(bytes, name, length) && name[length] == 0;
}

// Whether the bytes can stand in a document as they are once escaped:
// valid UTF-8 with no character that XML 1.0 forbids (controls below 0x20
// other than tab, line feed and carriage return).
bool IsCharacterData(const char* text, std::size_t length);
// The length of the longest start of the text that is character data.
std::size_t CharacterDataLength(const char* text, std::size_t length);

// Escapes text for element content (`attribute` false: '<', '&', '>' and
// carriage return, so that "]]>" never appears and a CR survives the
// reader's line-end normalisation) or for an attribute value between double
// quotes (also '"', tab and line feed). Calls sink(const char*, size_t) for
// each piece, in order.
template <class Sink>
void Escape(const char* text, std::size_t length, bool attribute, Sink&& sink)
{
    std::size_t done = 0;
    for (std::size_t i = 0; i < length; ++i)
    {
        const char* entity;
        switch (text[i])
        {
        case '<':
            entity = "&lt;";
            break;
        case '>':
            entity = "&gt;";
            break;
        case '&':
            entity = "&amp;";
            break;
        case '\r':
            entity = "&#13;";
            break;
        case '"':
            entity = attribute ? "&quot;" : nullptr;
            break;
        case '\t':
            entity = attribute ? "&#9;" : nullptr;
            break;
        case '\n':
            entity = attribute ? "&#10;" : nullptr;
            break;
        default:
            entity = nullptr;
            break;
        }
        if (entity == nullptr)
            continue;
        if (i > done)
            sink(text + done, i - done);
        std::size_t entityLength = 0;
        while (entity[entityLength])
            ++entityLength;
        sink(entity, entityLength);
        done = i + 1;
    }
    if (length > done)
        sink(text + done, length - done);
}

// Decodes the reference whose '&' is at `text[0]`, among `available`
// bytes: one of the five predefined entities or a decimal ("&#65;") or
// hexadecimal ("&#x41;") character reference. Writes its UTF-8 bytes (one
// to four) to `out` and returns the number of bytes the reference takes,
// ';' included; 0 when it is not a reference XML allows (unknown entity,
// no ';', a character XML forbids).
std::size_t DecodeReference(const char* text, std::size_t available, char out[4], u32& written);

// Appends the UTF-8 form of `code` (at most 0x10FFFF) to `out`; returns the
// number of bytes, 0 for a code XML does not allow.
u32 EncodeUtf8(u32 code, char out[4]);

} // namespace XmlText
} // namespace qel
