// Fixed-width integer types of the library's interface.
//
// u32/s32 are the 32-bit integers of the original interface; they are
// `unsigned long`/`long` where those are 32 bits wide (Windows, 32-bit Linux)
// so that overloads taking `unsigned long` keep their meaning there, and
// `unsigned int`/`int` on LP64 hosts.
#pragma once

#include <climits>
#include <cstdint>

namespace qel
{

#if ULONG_MAX == 0xFFFFFFFFul
typedef unsigned long u32;
typedef long s32;
#else
typedef unsigned int u32;
typedef int s32;
#endif

typedef unsigned long long u64;
typedef long long s64;

static_assert(sizeof(u32) == 4 && sizeof(s32) == 4, "u32/s32 must be 32 bits");
static_assert(sizeof(u64) == 8 && sizeof(s64) == 8, "u64/s64 must be 64 bits");

} // namespace qel
