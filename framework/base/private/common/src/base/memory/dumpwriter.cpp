#include "base/memory/dumpwriter.h"

#include <qel/outputstream.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace qel
{
namespace memory
{

void Print(OutputStream& out, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    PrintArguments(out, format, arguments);
    va_end(arguments);
}

void PrintArguments(OutputStream& out, const char* format, va_list arguments)
{
    char text[512];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    if (length > 0)
        out.Write(text, u32(std::size_t(length) < sizeof text ? length : sizeof text - 1));
}

void WriteText(OutputStream& out, const char* text)
{
    out.Write(text, u32(std::strlen(text)));
}

} // namespace memory
} // namespace qel
