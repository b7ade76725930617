// The encodings a markup document may come in, and their conversion to and
// from the UTF-8 the document is read in.
#pragma once

#include <qel/markupstl.h>

namespace qel
{
namespace MarkupEncoding
{

enum Kind : u32
{
    kUtf8,
    kUtf16LE,
    kUtf16BE,
    kLatin1,
};

const char* Name(u32 kind);

// UTF-16 by its byte order mark or its first character '<'; UTF-8
// otherwise (the declaration tells ISO-8859-1).
Kind Detect(const char* bytes, std::size_t length);

// The encoding a declared name stands for; false for one that is not
// read. "UTF-16" stands for either byte order (kUtf16LE).
bool FromName(const char* name, std::size_t length, Kind& kind);

// The value of `attribute` ("encoding", "standalone") in the XML
// declaration that starts `text` (after a UTF-8 byte order mark); false
// when there is none.
bool DeclaredValue(const char* text, std::size_t length, const char* attribute, std::size_t& at,
                   std::size_t& valueLength);

// Appends the UTF-8 form of UTF-16 or ISO-8859-1 bytes to `out`; false,
// with what came before converted, at a unit that is no UTF-16 (a lone
// surrogate, an odd last byte).
bool ToUtf8(Kind kind, const char* bytes, std::size_t length, MarkupSTL::String& out);

// Appends the UTF-8 text in `kind` to `out`.
void FromUtf8(Kind kind, const char* text, std::size_t length, MarkupSTL::String& out);

} // namespace MarkupEncoding
} // namespace qel
