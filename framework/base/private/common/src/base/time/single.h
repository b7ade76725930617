// Rounding to single precision after each step of the generators, so that
// every platform draws the same numbers. Where the compiler keeps floats in
// wider registers (x87) a store to memory does the rounding; elsewhere every
// float operation rounds already.
#pragma once

#include <cfloat>

namespace qel
{

inline float Single(float value)
{
#if defined(FLT_EVAL_METHOD) && FLT_EVAL_METHOD != 0
    volatile float stored = value;
    return stored;
#else
    return value;
#endif
}

} // namespace qel
