#include <qel/randomuniform.h>

#include <qel/clock.h>

#include "base/time/single.h"

namespace qel
{
namespace
{

const s32 kModulus = 1000000000;
const s32 kSeedConstant = 161803398;
// 1e-9 in single precision (0x3089705F).
const float kScale = 1e-9f;

} // namespace

RandomUniform::RandomUniform()
{
    Randomize(0);
}

RandomUniform::RandomUniform(s64 seed)
{
    Randomize(seed);
}

void RandomUniform::Randomize(s64 seed)
{
    s32 s = static_cast<s32>(static_cast<u32>(seed));
    if (s == 0)
        s = static_cast<s32>(static_cast<u32>(Clock::Read()));
    if (s > 0)
        s = -s;
    m_Seed = s;

    // |s| and the difference wrap in 32 bits, as for the most negative seed.
    const u32 magnitude = 0u - static_cast<u32>(s);
    s32 mj = static_cast<s32>(static_cast<u32>(kSeedConstant) - magnitude);
    mj = (mj < 0 ? -mj : mj) % kModulus;
    m_Table[0] = 0;
    m_Table[55] = mj;
    s32 mk = 1;
    for (int i = 1; i <= 54; ++i)
    {
        const int ii = (21 * i) % 55;
        m_Table[ii] = mk;
        mk = mj - mk;
        if (mk < 0)
            mk += kModulus;
        mj = m_Table[ii];
    }
    for (int round = 0; round < 4; ++round)
    {
        for (int i = 1; i <= 55; ++i)
        {
            m_Table[i] -= m_Table[1 + (i + 30) % 55];
            if (m_Table[i] < 0)
                m_Table[i] += kModulus;
        }
    }
    m_Next = 0;
    m_Second = 31;
}

float RandomUniform::Random()
{
    if (++m_Next == 56)
        m_Next = 1;
    if (++m_Second == 56)
        m_Second = 1;
    s32 mj = m_Table[m_Next] - m_Table[m_Second];
    if (mj < 0)
        mj += kModulus;
    m_Table[m_Next] = mj;
    return Single(Single(static_cast<float>(mj)) * kScale);
}

float RandomUniform::Random(float min, float max)
{
    return Single(Single(Random() * Single(max - min)) + min);
}

} // namespace qel
