// Event: Set stays signalled for every waiter until Reset; Pulse and a fresh
// set event let one waiter through.
#include "waituntil.h"

#include <qel/event.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace
{

using qel::Event;

TEST(Event, SetStaysSignalledUntilResetAndPulseOrAFreshSetEventLetsOneWaitThrough)
{
    Event event;
    EXPECT_FALSE(event.Wait(1));
    event.Set();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(event.Wait(0));
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
    event.Pulse();
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0));
    Event fresh(true);
    EXPECT_TRUE(fresh.Wait(0));
    EXPECT_FALSE(fresh.Wait(0));
}

TEST(Event, PulseReleasesOneBlockedWaiter)
{
    Event event;
    std::atomic<int> passed{0};
    auto wait = [&]
    {
        event.Wait();
        ++passed;
    };
    std::thread first(wait), second(wait);
    event.Pulse();
    EXPECT_TRUE(WaitUntil([&] { return passed >= 1; }));
    EXPECT_FALSE(event.Wait(0)); // the pulse is spent
    // Pulse until both have passed: a broken event fails instead of hanging.
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            event.Pulse();
            return passed == 2;
        }));
    first.join();
    second.join();
}

} // namespace
