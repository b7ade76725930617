// The generators against reference draws.
//
// The reference values come from random_reference.py beside this file, which
// redoes both generators in exact integer arithmetic and rounds every float
// step to single precision through Python's struct module.
#include "fakecounter.h"

#include <qel/randomnormal.h>
#include <qel/randomuniform.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <vector>

namespace
{

using qel::RandomNormal;
using qel::RandomUniform;
using qel::s64;

// Seed 5: draws 1-5, then 24 and 25 (the second index wraps), 55 and 56
// (the first one wraps) and 1000.
const int kPicks[] = {1, 2, 3, 4, 5, 24, 25, 55, 56, 1000};
const float kSeed5[] = {0x1.6bf8dp-2f,  0x1.225db8p-2f, 0x1.1f12b4p-1f, 0x1.11e258p-1f,
                        0x1.c21fecp-4f, 0x1.eed34cp-4f, 0x1.63abbp-1f,  0x1.9b31aap-1f,
                        0x1.5b6728p-2f, 0x1.c44b8p-1f};
const float kSeedMinimum[] = {0x1.4218dp-1f, 0x1.5ca5a6p-3f, 0x1.be29bcp-2f}; // -2^31
const float kSeedMinus7[] = {0x1.c4a1fap-1f, 0x1.15a1e8p-4f, 0x1.a627fep-1f};

// Normal, seed 5: mean 0 and variance 1; then mean 10 and variance 4.
const float kNormal01[] = {-0x1.9d3664p+0f, -0x1.13fb7cp+0f, 0x1.ae1b82p+0f, 0x1.75a5dcp+1f};
const float kNormal104[] = {0x1.b164cep+2f, 0x1.f60242p+2f};

TEST(RandomUniform, SeedFiveMatchesTheReferenceAcrossTableWraps)
{
    RandomUniform random(5);
    size_t pick = 0;
    for (int draw = 1; draw <= 1000; ++draw)
    {
        const float value = random.Random();
        if (draw == kPicks[pick])
        {
            EXPECT_EQ(value, kSeed5[pick]) << "draw " << draw;
            ++pick;
        }
    }
}

// A seed is cut to its low half and made negative (the most negative one
// wraps in 32 bits; zero takes the low half of the clock), given to a
// constructor or to Randomize, and the draws follow from what it became.
TEST(RandomUniform, SeedIsNormalisedFromItsLowHalfToANegativeValue)
{
    const std::vector<float> five(kSeed5, kSeed5 + 3);
    const struct
    {
        s64 seed;
        qel::u64 clock;
        qel::s32 normalised;
        std::vector<float> draws;
    } cases[] = {
        {5, 0, -5, five},
        {-5, 0, -5, five},
        {(s64(0x7654321) << 32) | 5, 0, -5, five},
        {0x80000000ll, 0, INT32_MIN, {std::begin(kSeedMinimum), std::end(kSeedMinimum)}},
        {0, 0x0000000500000007ull, -7, {std::begin(kSeedMinus7), std::end(kSeedMinus7)}},
        {0, 0x80000005ull, -2147483643, {}}, // negative already: kept
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << "seed " << c.seed << ", clock " << c.clock);
        fake::now = c.clock;
        RandomUniform constructed = c.seed ? RandomUniform(c.seed) : RandomUniform(), reseeded(1);
        reseeded.Random();
        reseeded.Randomize(c.seed);
        for (RandomUniform* random : {&constructed, &reseeded})
        {
            EXPECT_EQ(random->GetSeed(), c.normalised);
            for (float expected : c.draws)
                EXPECT_EQ(random->Random(), expected);
        }
    }
}

// Seed 5 made so, or set by Randomize over a generator that keeps a spare
// draw: the spare is dropped and the draws start afresh.
TEST(RandomNormal, SeedFiveMatchesTheReferenceAndRandomizeDropsTheSpare)
{
    RandomNormal standard(0.0f, 1.0f, 5), shifted(10.0f, 4.0f, 5), reseeded(0.0f, 1.0f, 77);
    reseeded.Random(); // keeps a spare
    reseeded.Randomize(5);
    const struct
    {
        const char* made;
        RandomNormal& random;
        std::vector<float> draws;
    } rows[] = {
        {"mean 0, variance 1", standard, {std::begin(kNormal01), std::end(kNormal01)}},
        {"mean 10, variance 4", shifted, {std::begin(kNormal104), std::end(kNormal104)}},
        {"seed 77 with a spare, randomized to 5", reseeded, {kNormal01[0], kNormal01[1]}},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.made);
        EXPECT_EQ(row.random.GetSeed(), -5);
        for (float expected : row.draws)
            EXPECT_FLOAT_EQ(row.random.Random(), expected);
    }
}

TEST(RandomNormal, SpareWasComputedWithThePreviousCallsArguments)
{
    RandomNormal random(0.0f, 1.0f, 5);
    EXPECT_FLOAT_EQ(random.Random(0.0f, 1.0f), kNormal01[0]);
    EXPECT_FLOAT_EQ(random.Random(100.0f, 4.0f), kNormal01[1]);
    EXPECT_FLOAT_EQ(random.Random(100.0f, 4.0f), 0x1.9d70dcp+6f);
    EXPECT_FLOAT_EQ(random.Random(0.0f, 1.0f), 0x1.a75a5ep+6f);
}

} // namespace
