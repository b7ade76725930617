// The library's own character tables (Windows-1252 / Latin-1 upper half).
//
// All case-insensitive work in the library goes through these tables and the
// two helpers below; the C runtime's locale-dependent case functions are never
// used. The tables keep some deliberate asymmetries: 0xD0, 0xD7, 0xDE and 0xDF
// have no lower-case mapping, 0xFF is a lower-case letter with no upper-case
// form, and 0x91-0x92 are printable while 0x93-0x9F are not.
#pragma once

#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API SystemBase
{
public:
    // Character class bits of ms_AsciiFlag.
    enum AsciiFlag : unsigned char
    {
        Printable = 0x80,
        UpperCase = 0x40,
        LowerCase = 0x20,
        WhiteSpace = 0x10,
        Letter = 0x08,
        HexDigit = 0x04,
        Digit = 0x02,
        BinaryDigit = 0x01,
    };

    static const unsigned char ms_LowerCase[256];
    static const unsigned char ms_UpperCase[256];
    static const unsigned char ms_AsciiFlag[256];

    static char ToLower(char c) { return char(ms_LowerCase[static_cast<unsigned char>(c)]); }

    static bool Is(char c, unsigned char flags)
    {
        return (ms_AsciiFlag[static_cast<unsigned char>(c)] & flags) != 0;
    }

    // Copies `source` lower-cased into `dest` (at most `capacity` - 1
    // characters, always terminated when capacity > 0) and returns the number
    // of characters copied.
    static u32 CopyLowerCase(char* dest, const char* source, u32 capacity);
};

} // namespace qel
