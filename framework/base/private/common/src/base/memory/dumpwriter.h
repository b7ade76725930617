// Writing statistics dumps: each line is formatted in a stack buffer and
// written to the stream, so a dump never allocates from the allocator it
// describes. Addresses print with "0x%08" PRIXPTR: 8 digits on 32-bit hosts,
// the whole pointer on 64-bit ones.
#pragma once

#include <qel/types.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdint>

namespace qel
{

class OutputStream;

namespace memory
{

// Formats into a 512-byte buffer (longer lines are cut) and writes it.
void Print(OutputStream& out, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;
void PrintArguments(OutputStream& out, const char* format, va_list arguments);

// Writes `text` whole (a dump's title has no length limit).
void WriteText(OutputStream& out, const char* text);

inline std::uintptr_t Address(const void* p)
{
    return reinterpret_cast<std::uintptr_t>(p);
}

} // namespace memory
} // namespace qel
