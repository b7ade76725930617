// Reproducible normally distributed pseudo-random numbers: the polar method
// over RandomUniform, one pair per two calls (the second value of a pair is
// kept as the spare and returned by the next call).
//
// The radius factor is -2/ln 2 rather than -2, so the spread is about 1.2011
// times the configured deviation; sequences depend on it.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/randomuniform.h>
#include <qel/types.h>

namespace qel
{

class QEL_API RandomNormal
{
public:
    QEL_ALLOCATION_OPERATORS

    // Mean 0, variance 1, seeded from the clock.
    RandomNormal();
    RandomNormal(float mean, float variance, s64 seed);

    // Reseeds as RandomUniform does and drops the spare.
    void Randomize(s64 seed);
    float Random();
    // With this mean and variance. A call that returns the spare returns the
    // value computed with the previous call's arguments.
    float Random(float mean, float variance);
    s64 GetSeed() const { return m_Uniform.GetSeed(); }

private:
    float Generate(float mean, float deviation);

    RandomUniform m_Uniform;
    float m_Mean;
    float m_Deviation;
    bool m_GenerateNext; // true: no spare is kept
    float m_Spare;
};

} // namespace qel
