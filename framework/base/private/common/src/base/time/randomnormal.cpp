#include <qel/randomnormal.h>

#include "base/time/single.h"

#include <cmath>

namespace qel
{
namespace
{

// -2/ln 2 in single precision (0xC038AA3B), not -2: the wider spread is part
// of the sequences.
const float kRadiusFactor = -2.885390043f;

} // namespace

RandomNormal::RandomNormal() : RandomNormal(0.0f, 1.0f, 0) {}

RandomNormal::RandomNormal(float mean, float variance, s64 seed)
    : m_Uniform(seed), m_Mean(mean), m_Deviation(Single(std::sqrt(variance))), m_GenerateNext(true),
      m_Spare(0.0f)
{
}

void RandomNormal::Randomize(s64 seed)
{
    m_Uniform.Randomize(seed);
    m_GenerateNext = true;
}

float RandomNormal::Random()
{
    return Generate(m_Mean, m_Deviation);
}

float RandomNormal::Random(float mean, float variance)
{
    return Generate(mean, Single(std::sqrt(variance)));
}

float RandomNormal::Generate(float mean, float deviation)
{
    if (!m_GenerateNext)
    {
        m_GenerateNext = true;
        return m_Spare;
    }
    float x1, x2, r;
    do
    {
        const float u1 = m_Uniform.Random();
        x1 = Single(Single(u1 + u1) - 1.0f);
        const float u2 = m_Uniform.Random();
        x2 = Single(Single(u2 + u2) - 1.0f);
        r = Single(Single(x1 * x1) + Single(x2 * x2));
    } while (!(r < 1.0f && r != 0.0f));

    // The logarithm and the root are taken in double precision and rounded
    // once, so that every platform's maths library gives the same floats.
    const double radius = std::log(double(r)) / double(r) * double(kRadiusFactor);
    const float f = Single(static_cast<float>(std::sqrt(radius)));
    const float g = Single(f * deviation);
    m_GenerateNext = false;
    m_Spare = Single(Single(x1 * g) + mean);
    return Single(Single(x2 * g) + mean);
}

} // namespace qel
