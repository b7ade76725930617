#include "base/serialization/textformat.h"

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

} // namespace TextFormat
} // namespace qel
