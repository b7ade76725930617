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

// A slot is the record's offset from the window's base in 8-byte units
// (the general allocator's blocks are 8-byte aligned: 30 GB), or empty, or
// a tombstone left by a removal that lookups step over, or, from kFirstFar
// on, an index into the pool's list of the records that lie outside the
// window. Beside it, a tag of its text: the length (kLongTag for any
// longer) under the top bits of the hash, so that a probe reads a record
// nearly only for its text, and a compare never reads past a shorter one.
const u32 kEmpty = 0;
const u32 kRemoved = 1;
const u32 kFirstFar = 0xF0000000;
const u32 kUnit = 8;
const u32 kTagLengthBits = 5;
const u32 kLongTag = (1u << kTagLengthBits) - 1;

inline std::uint8_t TagOf(u32 hash, u32 length)
{
    return std::uint8_t(hash >> (24 + kTagLengthBits) << kTagLengthBits |
                        (length < kLongTag ? length : kLongTag));
}

// The slot a text's probe starts at in a table of `capacity` slots, which
// grows by half, not double, so that it stays near the size its texts
// need: the hash's low 24 bits scaled to the table (the top 8, whose top
// bits the slot's tag keeps, come last), rather than masked.
inline u32 HomeOf(u32 hash, u32 capacity)
{
    return u32((u64(hash << 8 | hash >> 24) * capacity) >> 32);
}

inline bool Holds(u32 slot)
{
    return slot > kRemoved;
}

inline bool IsNear(u32 slot)
{
    return slot - (kRemoved + 1) < kFirstFar - (kRemoved + 1);
}

// Whether the pooled text, of the same length or both at least kLongTag
// long, is `text` (whose `length` bytes are all that are read). A longer
// one is compared up to the pooled text's end, whatever its length.
inline bool SameText(const char* pooled, const char* text, u32 length)
{
    if (length >= kLongTag)
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
Record* NearRecord(std::uintptr_t base, u32 slot)
{
    return reinterpret_cast<Record*>(base + std::uintptr_t(slot) * kUnit);
}

// Whether the record of a slot of the text's tag holds `text`.
template <class Record>
#if defined(__GNUC__)
__attribute__((always_inline))
#endif
inline bool
HoldsText(const Record* record, const char* text, u32 length)
{
    const char* pooled = record->Text();
    return pooled == text || SameText(pooled, text, length);
}

// The record in a slot of the window when it holds the text `text` of tag
// `tag`, else null: a far record is left to the pool. In line wherever it
// is used: the parser makes one per text.
template <class Record>
#if defined(__GNUC__)
__attribute__((always_inline))
#endif
inline Record*
RecordHolding(std::uintptr_t base, u32 slot, std::uint8_t slotTag, std::uint8_t tag,
              const char* text, u32 length)
{
    if (slotTag != tag || !IsNear(slot))
        return nullptr;
    Record* record = NearRecord<Record>(base, slot);
    return HoldsText(record, text, length) ? record : nullptr;
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
