// The clock and the stop-watch, driven by the fake counter.
#include "fakecounter.h"

#include <qel/clock.h>
#include <qel/stopwatch.h>

#include <gtest/gtest.h>

namespace
{

using qel::Clock;
using qel::StopWatch;

const qel::CounterSource kFakeCounter = {[] { return fake::now.load(); },
                                         [] { return fake::frequency.load(); }};
[[maybe_unused]] const qel::CounterSource* const g_PlatformCounter =
    qel::ReplaceCounterSource(&kFakeCounter);

TEST(Clock, DivisorsAreTruncatedOnceAndResampleLeavesThem)
{
    EXPECT_EQ(Clock::GetFrequency(), 3579545u);
    EXPECT_EQ(Clock::GetFrequencyInMilliSecond(), 3579u);
    EXPECT_EQ(Clock::GetFrequencyInMicroSecond(), 3u);
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
    const qel::u64 first = native.ReadClock();
    EXPECT_NE(first, 0u);
    EXPECT_LE(first, native.ReadClock());
}

TEST(StopWatch, SecondStopCountsTheIntervalSinceTheLastStartAgain)
{
    fake::now = 1000;
    StopWatch watch(true);
    fake::now = 1500;
    watch.Stop();
    EXPECT_EQ(watch.Read(), 500u);
    fake::now = 1800;
    watch.Stop();
    EXPECT_EQ(watch.Read(), 1300u);
    EXPECT_FALSE(watch.IsStarted());
}

TEST(StopWatch, StartAfterStopResumesAndReStartClears)
{
    fake::now = 100;
    StopWatch watch;
    EXPECT_EQ(watch.Read(), 0u);
    watch.Start();
    fake::now = 300;
    watch.Stop();
    fake::now = 1000;
    watch.Start();
    fake::now = 1050;
    EXPECT_EQ(watch.Read(), 250u); // 200 kept, 50 running
    fake::now = 2000;
    watch.ReStart();
    fake::now = 2010;
    EXPECT_EQ(watch.Read(), 10u);
}

TEST(StopWatch, ResetStopsAndReadingsUseTheTruncatedDivisors)
{
    StopWatch watch(true);
    watch.Reset(10000000);
    fake::now += 999;
    EXPECT_FALSE(watch.IsStarted());
    EXPECT_EQ(watch.Read(), 10000000u);
    EXPECT_EQ(watch.ReadInSecond(), 2u);
    EXPECT_EQ(watch.ReadInMilliSecond(), 2794u); // not 2793 (10^7 / 3579.545)
    EXPECT_EQ(watch.ReadInMicroSecond(), 3333333u);
}

} // namespace
