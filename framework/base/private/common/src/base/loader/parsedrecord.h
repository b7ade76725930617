// The record of a text in the parsed string pool, which the parsed tree's
// nodes link to.
#pragma once

#include <qel/parsedstringpool.h>

#include "base/loader/texthash.h"

#include <cstdint>
#include <cstring>

namespace qel
{

// Its references, then the text itself when the pool copied it, or else
// the caller's pointer. One byte of head, so that a copied text of up to
// fourteen characters takes a block of sixteen. The head holds the low
// part of the count; a text held more often (the names every section
// repeats) keeps the rest in the pool's table of carries, which a count
// crosses once every kMostHeld + 1 references.
struct ParsedStringPool::Record
{
    enum : u32
    {
        kMostHeld = 0x3F
    };
    std::uint8_t references : 6;
    std::uint8_t carried : 1; // the count goes on in the table of carries
    std::uint8_t adopted : 1; // the caller's text, not a copy

    const char* Text() const
    {
        const char* behind = reinterpret_cast<const char*>(this + 1);
        if (!adopted)
            return behind;
        const char* text;
        std::memcpy(&text, behind, sizeof text);
        return text;
    }
};
static_assert(sizeof(ParsedStringPool::Record) == 1, "a record's head takes one byte");

// The pool's table, whose lookup the parser makes in line for the texts
// of its block, which are nearly all pooled already.
namespace pooledtext
{

const u64 kEmpty = 0;
const u64 kRemoved = 1;

// A slot keeps the record's address in its low bits (user-space addresses
// have at most 47 bits on the 64-bit targets), the text's length (255 for
// any longer) in its top byte, and as many top bits of the hash as fit
// between them: a lookup reads a record only for a text of its length and
// nearly always its hash, and compares them a word at a time.
const u32 kAddressBits = sizeof(void*) == 8 ? 48 : 32;
const u64 kAddressMask = (u64(1) << kAddressBits) - 1;
const u32 kLengthShift = 56;
const u32 kLongest = 255;

inline u64 KeyOf(u32 hash, u32 length)
{
    return u64(hash >> (32 - (kLengthShift - kAddressBits))) << kAddressBits |
           u64(length < kLongest ? length : kLongest) << kLengthShift;
}

// The slot a text's probe starts at in a table of `capacity` slots, which
// grows by half, not double, so that it stays near the size its texts
// need: the hash's low 24 bits scaled to the table (the top 8, which the
// slot keeps, come last), rather than masked.
inline u32 HomeOf(u32 hash, u32 capacity)
{
    return u32((u64(hash << 8 | hash >> 24) * capacity) >> 32);
}

inline bool Holds(u64 slot)
{
    return slot != kEmpty && slot != kRemoved;
}

// Whether the pooled text, of the same length or both longer than
// kLongest, is `text` (whose `length` bytes are all that are read).
inline bool SameText(const char* pooled, const char* text, u32 length)
{
    if (length >= kLongest)
        return std::strncmp(pooled, text, length) == 0 && pooled[length] == 0;
    if (length > 16)
        return std::memcmp(pooled, text, length) == 0;
    // Two words that may overlap, or the first, middle and last bytes.
    if (length >= 8)
        return TextHash::Little<u64>(pooled) == TextHash::Little<u64>(text) &&
               TextHash::Little<u64>(pooled + length - 8) ==
                   TextHash::Little<u64>(text + length - 8);
    if (length >= 4)
        return TextHash::Little<u32>(pooled) == TextHash::Little<u32>(text) &&
               TextHash::Little<u32>(pooled + length - 4) ==
                   TextHash::Little<u32>(text + length - 4);
    return length == 0 || (pooled[0] == text[0] && pooled[length / 2] == text[length / 2] &&
                           pooled[length - 1] == text[length - 1]);
}

template <class Record>
Record* RecordIn(u64 slot)
{
    return reinterpret_cast<Record*>(std::uintptr_t(slot & kAddressMask));
}

// The record in `slot` when it holds the text `text` of key `key`, else
// null. In line wherever it is used: the parser makes one per text.
template <class Record>
#if defined(__GNUC__)
__attribute__((always_inline))
#endif
inline Record*
RecordHolding(u64 slot, u64 key, const char* text, u32 length)
{
    if ((slot & ~kAddressMask) != key || !Holds(slot))
        return nullptr;
    Record* record = RecordIn<Record>(slot);
    const char* pooled = record->Text();
    return pooled == text || SameText(pooled, text, length) ? record : nullptr;
}

} // namespace pooledtext

// Takes one more reference on a record, without a call unless the count
// carries; false, the count unchanged, when the carry finds no memory.
inline bool TakeRecord(ParsedStringPool::Record* record)
{
    if (record->references == ParsedStringPool::Record::kMostHeld)
        return ParsedStringPool::Carry(record);
    ++record->references;
    return true;
}

// Drops a reference held on a record, without a call unless it is the
// last or the count borrows.
inline void DropRecord(ParsedStringPool::Record* record)
{
    if (record->references > 1)
        --record->references;
    else
        ParsedStringPool::ReleaseRecord(record);
}

} // namespace qel
