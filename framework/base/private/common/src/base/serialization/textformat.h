// The one number formatter of every text the library writes, so that a
// file written on Windows and one written on Linux from the same data are
// byte for byte the same.
//
// Print is vsnprintf with C99 semantics on every platform (mingw's own
// conforming implementation on Windows, not the system runtime's, whose
// "%.20g" pads with zeros after 17 digits), and with "%I64" read as "ll"
// so that the library's 64-bit formats ("%I64u", "%I64i") work everywhere.
// Formats are at most 255 characters. The result is vsnprintf's: the
// length of the full text, or a negative number on failure.
//
// Double and Float write the library's two forms of a real number, "%.20lg"
// and "%.10g" (of the float widened), with the texts of the values that are
// no numbers written here rather than by the runtime, which differ in
// them (mingw drops a NaN's sign): "inf", "-inf", "nan" and "-nan".
#pragma once

#include <qel/export.h>
#include <qel/types.h>

namespace qel
{
namespace TextFormat
{

QEL_API int Print(char* buffer, u32 size, const char* format, ...);
QEL_API int Double(char* buffer, u32 size, double value);
QEL_API int Float(char* buffer, u32 size, float value);

} // namespace TextFormat
} // namespace qel
