// A structure of every value type, every array form (counts and strides
// read from the input, within bounds) and strings, read from any serializer:
// what the reader targets ask of their input. Aborts when a read breaks a
// promise (a bool holding more than 0 or 1, a string overrunning its
// buffer, a strided array touching the bytes between its elements).
#pragma once

#include <qel/serializer.h>

#include <cstdlib>
#include <cstring>

namespace qelfuzz
{

using qel::u32;

template <class T>
inline void Array(qel::Serializer& s, u32 count, u32 stride)
{
    // Up to 64 elements at a stride of 1 to 4 times the element's size.
    unsigned char storage[64 * 4 * 8 + 8];
    std::memset(storage, 0xA5, sizeof storage);
    s.Serialize(reinterpret_cast<T*>(storage), count, stride * u32(sizeof(T)));
    // The bytes between strided elements are left alone.
    if (stride > 1 && count > 0 && storage[sizeof(T)] != 0xA5)
        std::abort();
}

inline void ReadAll(qel::Serializer& s)
{
    char c;
    bool b;
    double d;
    float f;
    qel::s64 i64;
    qel::u64 u64;
    qel::s32 i32;
    u32 u32v;
    short i16;
    unsigned short u16;
    signed char i8;
    unsigned char u8;
    s.Serialize(c), s.Serialize(b), s.Serialize(d), s.Serialize(f), s.Serialize(i64);
    s.Serialize(u64), s.Serialize(i32), s.Serialize(u32v), s.Serialize(i16), s.Serialize(u16);
    s.Serialize(i8), s.Serialize(u8);
    if (*reinterpret_cast<unsigned char*>(&b) > 1)
        std::abort();

    unsigned char shape = 0;
    s.Serialize(shape);
    const u32 count = shape % 65, stride = 1 + (shape >> 6);
    Array<char>(s, count, stride);
    Array<bool>(s, count, stride);
    Array<double>(s, count, stride);
    Array<float>(s, count, stride);
    Array<qel::s64>(s, count, stride);
    Array<qel::u64>(s, count, stride);
    Array<qel::s32>(s, count, stride);
    Array<u32>(s, count, stride);
    Array<short>(s, count, stride);
    Array<unsigned short>(s, count, stride);
    Array<signed char>(s, count, stride);
    Array<unsigned char>(s, count, stride);

    char text[32];
    for (int i = 0; i < 4; ++i)
    {
        qel::ReadString(s, text, sizeof text);
        if (std::strlen(text) >= sizeof text)
            std::abort();
    }
}

} // namespace qelfuzz
