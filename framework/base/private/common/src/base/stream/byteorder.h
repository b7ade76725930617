// Values as integers of 1 to 8 bytes in the host's byte order, for the
// per-value paths of the array reads and writes.
#pragma once

#include <qel/types.h>

#include <cstring>

namespace qel
{
namespace ByteOrder
{

inline bool HostIsLittleEndian()
{
    const u32 one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

// Where the `size` low-order bytes of a u64 lie in its host representation.
inline u32 LowBytesOffset(u32 size)
{
    return HostIsLittleEndian() ? 0 : 8 - size;
}

// Writes the `size` low-order bytes of `value` to `bytes`, in host order.
inline void ToLowBytes(u64 value, unsigned char* bytes, u32 size)
{
    unsigned char all[8];
    std::memcpy(all, &value, 8);
    std::memcpy(bytes, all + LowBytesOffset(size), size);
}

// The value of `size` bytes in host order, zero-extended.
inline u64 FromLowBytes(const unsigned char* bytes, u32 size)
{
    unsigned char all[8] = {};
    std::memcpy(all + LowBytesOffset(size), bytes, size);
    u64 value;
    std::memcpy(&value, all, 8);
    return value;
}

} // namespace ByteOrder
} // namespace qel
