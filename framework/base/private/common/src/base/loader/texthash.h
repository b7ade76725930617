// The hash of the parsed string pool's texts, shared by the pool and by the
// parser, which hashes the texts of its block where it finds them.
#pragma once

#include <qel/types.h>

#include <cstring>

namespace qel
{
namespace TextHash
{

// The `sizeof(Word)` bytes at `at` as a little-endian number.
template <class Word>
inline u64 Little(const char* at)
{
    Word value;
    std::memcpy(&value, at, sizeof value);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    Word reversed = 0;
    for (unsigned i = 0; i < sizeof value; ++i, value >>= 8)
        reversed = Word(reversed << 8 | (value & 0xFF));
    value = reversed;
#endif
    return value;
}

// Eight bytes at a time: each word is folded in with a multiply, and the
// end mixes the top half down, so that the pool's slot (the low bits) and
// tag (the top bits) depend on every byte. With `ReadsPast` the last word
// is read whole, up to seven bytes past the text, and the bytes past it are
// cleared: the parser's block has room behind its end for that. Both give
// the same hash.
template <bool ReadsPast>
inline u32 Of(const char* text, u32 length)
{
    const u64 multiplier = 0x9E3779B97F4A7C15ull;
    u64 hash = 0x243F6A8885A308D3ull;
    u32 left = length;
    for (; left > 8; left -= 8, text += 8)
        hash = (hash ^ Little<u64>(text)) * multiplier;
    u64 last = 0;
    if (ReadsPast)
        last = left == 8 ? Little<u64>(text) : Little<u64>(text) & ~(~u64(0) << (8 * left));
    else if (left >= 4) // two words of four, which may overlap
        last = Little<u32>(text) | Little<u32>(text + left - 4) << (8 * (left - 4));
    else if (left > 0) // the first, middle and last bytes, which may be the same
        last = u64(static_cast<unsigned char>(text[0])) |
               u64(static_cast<unsigned char>(text[left / 2])) << (8 * (left / 2)) |
               u64(static_cast<unsigned char>(text[left - 1])) << (8 * (left - 1));
    hash = (hash ^ last ^ (u64(length) << 56)) * multiplier;
    hash = (hash ^ (hash >> 32)) * 0xD6E8FEB86659FD93ull;
    return u32(hash >> 32);
}

} // namespace TextHash
} // namespace qel
