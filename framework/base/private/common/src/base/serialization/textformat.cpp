#include "base/serialization/textformat.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace qel
{
namespace TextFormat
{

int Print(char* buffer, u32 size, const char* format, ...)
{
    char translated[256];
    u32 out = 0;
    for (const char* in = format; *in != 0; ++in)
    {
        if (out + 2 >= sizeof translated)
            return -1;
        if (in[0] == 'I' && in[1] == '6' && in[2] == '4')
        {
            translated[out++] = 'l';
            translated[out++] = 'l';
            in += 2;
        }
        else
            translated[out++] = *in;
    }
    translated[out] = 0;

    va_list arguments;
    va_start(arguments, format);
#if defined(__MINGW32__)
    const int result = __mingw_vsnprintf(buffer, size, translated, arguments);
#else
    const int result = std::vsnprintf(buffer, size, translated, arguments);
#endif
    va_end(arguments);
    return result;
}

namespace
{

// The texts of infinities and NaNs, or null for a number.
const char* Special(double value)
{
    if (std::isnan(value))
        return std::signbit(value) ? "-nan" : "nan";
    if (std::isinf(value))
        return value < 0 ? "-inf" : "inf";
    return nullptr;
}

} // namespace

int Double(char* buffer, u32 size, double value)
{
    const char* special = Special(value);
    return special ? Print(buffer, size, "%s", special) : Print(buffer, size, "%.20lg", value);
}

int Float(char* buffer, u32 size, float value)
{
    const double wide = value;
    const char* special = Special(wide);
    return special ? Print(buffer, size, "%s", special) : Print(buffer, size, "%.10g", wide);
}

} // namespace TextFormat
} // namespace qel
