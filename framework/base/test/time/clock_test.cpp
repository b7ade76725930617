// The clock and the stop-watch, driven by the fake counter.
#include "fakecounter.h"

#include <qel/clock.h>
#include <qel/stopwatch.h>

#include <gtest/gtest.h>

namespace
{

using qel::Clock;
using qel::StopWatch;
using qel::u64;

const qel::CounterSource kFakeCounter = {[] { return fake::now.load(); },
                                         [] { return fake::frequency.load(); }};
[[maybe_unused]] const qel::CounterSource* const g_PlatformCounter =
    qel::ReplaceCounterSource(&kFakeCounter);

TEST(Clock, DivisorsAreTruncatedFromTheFrequency)
{
    EXPECT_EQ(Clock::GetFrequency(), 3579545u);
    EXPECT_EQ(Clock::GetFrequencyInMilliSecond(), 3579u);
    EXPECT_EQ(Clock::GetFrequencyInMicroSecond(), 3u);
}

TEST(Clock, ResampleUpdatesOnlyTheFrequency)
{
    Clock::GetSingletonInstance(); // made at the usual rate
    fake::frequency = 7000000;
    Clock::GetSingletonInstance().Resample();
    EXPECT_EQ(Clock::GetFrequency(), 7000000u);
    EXPECT_EQ(Clock::GetFrequencyInMilliSecond(), 3579u);
    EXPECT_EQ(Clock::GetFrequencyInMicroSecond(), 3u);
    fake::frequency = 3579545;
    Clock::GetSingletonInstance().Resample();
}

TEST(ClockNative, PlatformCounterRunsForwardAtAFixedRate)
{
    fake::PlatformCounter platform;
    qel::ClockNative native;
#if defined(_WIN32)
    EXPECT_GE(native.GetClockFrequency(), 1000000u);
#else
    EXPECT_EQ(native.GetClockFrequency(), 1000000000u);
#endif
    const u64 first = native.ReadClock();
    EXPECT_NE(first, 0u);
    EXPECT_LE(first, native.ReadClock());
}

class StopWatchTest : public ::testing::Test
{
protected:
    static void At(u64 ticks) { fake::now = ticks; }
};

TEST_F(StopWatchTest, SecondStopCountsTheIntervalSinceTheLastStartAgain)
{
    At(1000);
    StopWatch watch(true);
    At(1500);
    watch.Stop();
    EXPECT_EQ(watch.Read(), 500u);
    At(1800);
    watch.Stop();
    EXPECT_EQ(watch.Read(), 1300u);
    EXPECT_FALSE(watch.IsStarted());
}

TEST_F(StopWatchTest, StartAfterStopResumesAndReStartClears)
{
    At(100);
    StopWatch watch;
    EXPECT_FALSE(watch.IsStarted());
    EXPECT_EQ(watch.Read(), 0u);
    watch.Start();
    At(300);
    watch.Stop();
    At(1000);
    watch.Start();
    At(1050);
    EXPECT_TRUE(watch.IsStarted());
    EXPECT_EQ(watch.Read(), 250u); // 200 kept, 50 running
    At(2000);
    watch.ReStart();
    At(2010);
    EXPECT_EQ(watch.Read(), 10u);
}

TEST_F(StopWatchTest, ResetStopsWithTheGivenTicks)
{
    At(5);
    StopWatch watch(true);
    watch.Reset(42);
    At(999);
    EXPECT_FALSE(watch.IsStarted());
    EXPECT_EQ(watch.Read(), 42u);
}

TEST_F(StopWatchTest, ReadingsDivideByTheTruncatedDivisors)
{
    StopWatch watch;
    watch.Reset(10000000);
    EXPECT_EQ(watch.ReadInSecond(), 2u);
    EXPECT_EQ(watch.ReadInMilliSecond(), 2794u); // not 2793 (10^7 / 3579.545)
    EXPECT_EQ(watch.ReadInMicroSecond(), 3333333u);
}

} // namespace
