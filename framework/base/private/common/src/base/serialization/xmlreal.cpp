#include "base/serialization/xmlreal.h"

#include "base/serialization/textformat.h"

#include <charconv>
#include <cstring>

namespace qel
{
namespace XmlReal
{

namespace
{

template <class T>
struct Layout;
template <>
struct Layout<double>
{
    typedef u64 Word;
    static constexpr unsigned Fraction = 52;
};
template <>
struct Layout<float>
{
    typedef u32 Word;
    static constexpr unsigned Fraction = 23;
};

template <class T>
struct Bits
{
    typedef typename Layout<T>::Word Word;
    static constexpr Word FractionMask = (Word(1) << Layout<T>::Fraction) - 1;
    static constexpr Word Sign = Word(1) << (sizeof(Word) * 8 - 1);
    static constexpr Word Exponent = ~FractionMask & ~Sign;
    static constexpr Word Quiet = Word(1) << (Layout<T>::Fraction - 1);
};

int Number(char* buffer, const double& value)
{
    return TextFormat::Double(buffer, 64, value);
}
int Number(char* buffer, const float& value)
{
    return TextFormat::Float(buffer, 64, value);
}

template <class T>
u32 FormatReal(char* buffer, const T& value)
{
    typedef Bits<T> B;
    typename B::Word bits;
    std::memcpy(&bits, &value, sizeof bits);
    const typename B::Word fraction = bits & B::FractionMask;
    if ((bits & B::Exponent) != B::Exponent || fraction == 0)
        return u32(Number(buffer, value));
    const char* sign = (bits & B::Sign) != 0 ? "-" : "";
    if (fraction == B::Quiet)
        return u32(TextFormat::Print(buffer, 64, "%snan", sign));
    return u32(TextFormat::Print(buffer, 64, "%snan(0x%I64x)", sign,
                                 static_cast<unsigned long long>(fraction)));
}

bool Word(const char* text, std::size_t length, const char* word)
{
    for (std::size_t i = 0; i < length; ++i)
        if (char(text[i] | 0x20) != word[i])
            return false;
    return true;
}

template <class T>
bool ParseReal(const char* text, std::size_t length, T& value)
{
    typedef Bits<T> B;
    const bool negative = length > 0 && text[0] == '-';
    const std::size_t at = negative ? 1 : 0;
    if (length < at + 3 || !Word(text + at, 3, "nan"))
    {
        T parsed;
        const std::from_chars_result result = std::from_chars(text, text + length, parsed);
        if (result.ec != std::errc() || result.ptr != text + length)
            return false;
        std::memcpy(&value, &parsed, sizeof value);
        return true;
    }
    typename B::Word fraction = B::Quiet;
    const char* payload = text + at + 3;
    const char* end = text + length;
    if (payload != end)
    {
        // "(0x" hexadecimal digits ")"
        unsigned long long read = 0;
        if (end - payload < 5 || std::memcmp(payload, "(0", 2) != 0 || (payload[2] | 0x20) != 'x' ||
            end[-1] != ')')
            return false;
        const std::from_chars_result result = std::from_chars(payload + 3, end - 1, read, 16);
        if (result.ec != std::errc() || result.ptr != end - 1 || read == 0 ||
            read > B::FractionMask)
            return false;
        fraction = typename B::Word(read);
    }
    const typename B::Word bits = (negative ? B::Sign : 0) | B::Exponent | fraction;
    std::memcpy(&value, &bits, sizeof value);
    return true;
}

} // namespace

u32 Format(char* buffer, const double& value)
{
    return FormatReal(buffer, value);
}
u32 Format(char* buffer, const float& value)
{
    return FormatReal(buffer, value);
}
bool Parse(const char* text, std::size_t length, double& value)
{
    return ParseReal(text, length, value);
}
bool Parse(const char* text, std::size_t length, float& value)
{
    return ParseReal(text, length, value);
}

} // namespace XmlReal
} // namespace qel
