// Event: Set stays signalled for every waiter until Reset; Pulse and a fresh
// set event let one waiter through.
#include "waituntil.h"

#include <qel/event.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace
{

using qel::Event;

TEST(Event, SetStaysSignalledForEveryWaitUntilReset)
{
    Event event;
    EXPECT_FALSE(event.Wait(1));
    event.Set();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(event.Wait(0));
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

TEST(Event, PulseAfterResetLetsExactlyOneWaitThrough)
{
    Event event;
    event.Set();
    event.Reset();
    event.Pulse();
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0));
}

TEST(Event, MadeSetLetsOneWaitThrough)
{
    Event event(true);
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0));
}

// Starts `count` threads that each Wait without a time limit and count.
std::vector<std::thread> StartWaiters(Event& event, std::atomic<int>& passed, int count)
{
    std::vector<std::thread> waiters;
    for (int i = 0; i < count; ++i)
        waiters.emplace_back(
            [&]
            {
                event.Wait();
                ++passed;
            });
    return waiters;
}

// Pulses until every waiter has passed (bounded), then joins them: a broken
// event fails its test instead of hanging the suite.
void ReleaseAndJoin(Event& event, std::atomic<int>& passed, std::vector<std::thread>& waiters)
{
    WaitUntil(
        [&]
        {
            event.Pulse();
            return passed == int(waiters.size());
        });
    for (std::thread& waiter : waiters)
        waiter.join();
}

TEST(Event, SetReleasesEveryBlockedWaiter)
{
    Event event;
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters = StartWaiters(event, passed, 3);
    event.Set();
    EXPECT_TRUE(WaitUntil([&] { return passed == 3; }));
    ReleaseAndJoin(event, passed, waiters);
}

TEST(Event, PulseReleasesOneBlockedWaiter)
{
    Event event;
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters = StartWaiters(event, passed, 2);
    event.Pulse();
    EXPECT_TRUE(WaitUntil([&] { return passed >= 1; }));
    EXPECT_FALSE(event.Wait(0)); // the pulse is spent
    event.Pulse();
    EXPECT_TRUE(WaitUntil([&] { return passed == 2; }));
    ReleaseAndJoin(event, passed, waiters);
}

} // namespace
