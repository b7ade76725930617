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

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// Reverses each of `count` words of `Size` bytes from `from` into `to` (the
// same place is fine; neither needs alignment), sixteen bytes at a time
// where SSE2 is there: the bytes of each 16-bit lane swap by shifts, the
// lanes of each word by a shuffle.
template <unsigned Size>
void SwapWords(const unsigned char* from, unsigned char* to, u32 count)
{
    typedef typename Bits<Size>::Type Word;
    u32 i = 0;
#if defined(__SSE2__)
    constexpr u32 PerVector = 16 / Size;
    constexpr int Lanes = Size == 4 ? 0xB1 : 0x1B; // (2,3,0,1) or (0,1,2,3)
    if (Size > 1)
        for (; i + PerVector <= count; i += PerVector)
        {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i * Size));
            v = _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
            if (Size > 2)
                v = _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, Lanes), Lanes);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i * Size), v);
        }
#endif
    for (; i < count; ++i)
    {
        Word word;
        std::memcpy(&word, from + i * Size, Size);
        word = Swap(word);
        std::memcpy(to + i * Size, &word, Size);
    }
}

// Hands a single value to the database mirror. Out of line and cold, so
// that the value moves without a mirror stay short and save no registers.
template <class T>
#if defined(__GNUC__)
__attribute__((noinline, cold))
#endif
void Echo(Serializer& mirror, T& v)
{
    mirror.Serialize(v);
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

// Arrays: one block when the elements are packed and need no reversal.
// Otherwise each element is encoded on its own, at the stride, and the
// encoded elements go to the stream a kilobyte at a time: the bytes are
// those of one write per element, for a fraction of the calls.
template <bool Reverse, class T>
u32 PutArray(OutputStream& stream, const T* p, u32 count, u32 stride)
{
    if (!Reverse && stride == sizeof(T))
        return stream.Write(p, count * u32(sizeof(T))) / u32(sizeof(T));
    typedef typename Bits<sizeof(T)>::Type Word;
    enum
    {
        Batch = 1024 / sizeof(T)
    };
    Word chunk[Batch];
    const unsigned char* at = reinterpret_cast<const unsigned char*>(p);
    for (u32 done = 0; done < count;)
    {
        const u32 n = count - done < u32(Batch) ? count - done : u32(Batch);
        if (stride == sizeof(T))
            SwapWords<sizeof(T)>(at, reinterpret_cast<unsigned char*>(chunk), n);
        else
            for (u32 i = 0; i < n; ++i)
                chunk[i] = Encode<Reverse, T>(at + i * stride);
        at += n * stride;
        stream.Write(chunk, n * u32(sizeof(T)));
        done += n;
    }
    return count;
}

// Packed elements are read in one block and, when reversed, in blocks of
// 16 KB each reversed in place while it is still in the cache.
template <bool Reverse, class T>
u32 GetArray(InputStream& stream, T* p, u32 count, u32 stride)
{
    typedef typename Bits<sizeof(T)>::Type Word;
    unsigned char* at = reinterpret_cast<unsigned char*>(p);
    if (stride == sizeof(T) && !Reverse)
        return stream.Read(p, count * u32(sizeof(T))) / u32(sizeof(T));
    if (stride == sizeof(T))
    {
        const u32 batch = (16u << 10) / u32(sizeof(T));
        for (u32 done = 0; done < count;)
        {
            const u32 n = count - done < batch ? count - done : batch;
            const u32 read = stream.Read(at, n * u32(sizeof(T))) / u32(sizeof(T));
            SwapWords<sizeof(T)>(at, at, read);
            if (read < n)
                break; // the end of the data
            at += n * sizeof(T);
            done += n;
        }
        return count;
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
