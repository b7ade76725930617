// UTF-8, the library's text, to and from UTF-16, the text of the Win32 wide
// API through which the file layer reaches the system.
#pragma once

#include <qel/types.h>

namespace qel
{
namespace native
{

// False, with `out` empty and ERROR_NO_UNICODE_TRANSLATION or
// ERROR_INSUFFICIENT_BUFFER as the last error, when `text` is not UTF-8 or
// does not fit `size` code units with the terminator.
bool ToWide(const char* text, wchar_t* out, u32 size);
// False, with `out` empty, when the UTF-8 text does not fit `size` bytes
// with the terminator.
bool ToUtf8(const wchar_t* text, char* out, u32 size);

} // namespace native
} // namespace qel
