// Floats and doubles in the XML format, written and read back bit for bit.
//
// A number is written in the text forms of every text the library writes
// (TextFormat: "%.10g" for a float, "%.20lg" for a double), which read back
// to the same value, -0 and the infinities ("inf", "-inf") included. A NaN
// is "nan" or "-nan" when it is the default quiet NaN (only the quiet bit
// of its fraction set); any other NaN, a signalling one or one carrying a
// payload, is written with its fraction field (float 23 bits, double 52,
// quiet bit included) in hexadecimal: "nan(0x8000000000123)",
// "-nan(0x1)". Values are handled through their bytes only, so that no
// signalling NaN passes through a floating-point register on the way.
#pragma once

#include <qel/types.h>

#include <cstddef>

namespace qel
{
namespace XmlReal
{

// The text in `buffer` (64 bytes at least); returns its length.
u32 Format(char* buffer, const double& value);
u32 Format(char* buffer, const float& value);

// False when `text` (no white space around it) is none of the forms above,
// or a NaN whose fraction is 0 or does not fit; `value` is then untouched.
// Case does not matter in "nan" and "inf".
bool Parse(const char* text, std::size_t length, double& value);
bool Parse(const char* text, std::size_t length, float& value);

} // namespace XmlReal
} // namespace qel
