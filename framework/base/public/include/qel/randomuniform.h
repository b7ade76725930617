// Reproducible uniform pseudo-random numbers: a subtractive lagged generator
// (modulus 1,000,000,000) scaled to [0, 1) in single precision.
//
// Only the low 32 bits of a seed count, and a seed and its negation give the
// same sequence; GetSeed returns the negative form. Seed 0 takes the low 32
// bits of the clock instead. The very top of the range may round to 1.0.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API RandomUniform
{
public:
    QEL_ALLOCATION_OPERATORS

    // Seeded from the clock.
    RandomUniform();
    explicit RandomUniform(s64 seed);

    void Randomize(s64 seed);
    float Random();
    // Random() * (max - min) + min.
    float Random(float min, float max);
    s64 GetSeed() const { return m_Seed; }

private:
    s32 m_Next;
    s32 m_Second;
    s32 m_Table[56]; // entries 1-55; 0 is never read
    s32 m_Seed;
};

} // namespace qel
