// The value moves shared by the four binary back-ends: each value as the
// unsigned integer of its width, reversed or not, to or from a stream.
//
// `Reverse` is true when the stored order differs from the host's: the
// "qel/b0-l" back-ends reverse on a big-endian host, the "qel/b0-b" ones on
// a little-endian host.
#pragma once

#include <qel/inputstream.h>
#include <qel/outputstream.h>
#include <qel/serializer.h>
#include <qel/types.h>

#include <cstring>

namespace qel
{
namespace BinaryCodec
{

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr bool HostIsLittleEndian = false;
#else
constexpr bool HostIsLittleEndian = true;
#endif

// Reverse for "qel/b0-l" and for "qel/b0-b".
constexpr bool ReverseLittle = !HostIsLittleEndian;
constexpr bool ReverseBig = HostIsLittleEndian;

template <unsigned Size>
struct Bits;
template <>
struct Bits<1>
{
    typedef unsigned char Type;
};
template <>
struct Bits<2>
{
    typedef unsigned short Type;
};
template <>
struct Bits<4>
{
    typedef u32 Type;
};
template <>
struct Bits<8>
{
    typedef u64 Type;
};

inline unsigned char Swap(unsigned char v)
{
    return v;
}
inline unsigned short Swap(unsigned short v)
{
    return static_cast<unsigned short>((v >> 8) | (v << 8));
}
inline u32 Swap(u32 v)
{
    return __builtin_bswap32(v);
}
inline u64 Swap(u64 v)
{
    return __builtin_bswap64(v);
}

// The bits of a value, in the stored order.
template <bool Reverse, class T>
typename Bits<sizeof(T)>::Type Encode(const unsigned char* at)
{
    typename Bits<sizeof(T)>::Type bits;
    std::memcpy(&bits, at, sizeof bits);
    return Reverse ? Swap(bits) : bits;
}

template <bool Reverse, class T>
void Put(OutputStream& stream, const T& v)
{
    stream.Write(Encode<Reverse, T>(reinterpret_cast<const unsigned char*>(&v)));
}

template <bool Reverse, class T>
void Get(InputStream& stream, T& v)
{
    typename Bits<sizeof(T)>::Type bits;
    stream.Read(bits);
    if (Reverse)
        bits = Swap(bits);
    std::memcpy(&v, &bits, sizeof v);
}

// Arrays: one block when the elements are packed and need no reversal,
// otherwise element by element at the stride.
template <bool Reverse, class T>
u32 PutArray(OutputStream& stream, const T* p, u32 count, u32 stride)
{
    if (!Reverse && stride == sizeof(T))
        return stream.Write(p, count * u32(sizeof(T))) / u32(sizeof(T));
    const unsigned char* at = reinterpret_cast<const unsigned char*>(p);
    for (u32 i = 0; i < count; ++i, at += stride)
        stream.Write(Encode<Reverse, T>(at));
    return count;
}

// Packed elements are read in one block and reversed in place.
template <bool Reverse, class T>
u32 GetArray(InputStream& stream, T* p, u32 count, u32 stride)
{
    typedef typename Bits<sizeof(T)>::Type Word;
    unsigned char* at = reinterpret_cast<unsigned char*>(p);
    if (stride == sizeof(T))
    {
        const u32 read = stream.Read(p, count * u32(sizeof(T))) / u32(sizeof(T));
        if (Reverse)
            for (u32 i = 0; i < read; ++i, at += sizeof(T))
            {
                Word bits;
                std::memcpy(&bits, at, sizeof bits);
                bits = Swap(bits);
                std::memcpy(at, &bits, sizeof bits);
            }
        return Reverse ? count : read;
    }
    for (u32 i = 0; i < count; ++i, at += stride)
    {
        Word bits;
        stream.Read(bits);
        if (Reverse)
            bits = Swap(bits);
        std::memcpy(at, &bits, sizeof bits);
    }
    return count;
}

} // namespace BinaryCodec
} // namespace qel
