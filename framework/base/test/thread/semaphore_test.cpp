// Semaphore counts: the probes, the maximum, and a blocked Lock.
#include "waituntil.h"

#include <qel/semaphore.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace
{

using qel::Semaphore;

TEST(Semaphore, IsLockedProbeKeepsTheCountItTakesAndUnlockStopsAtTheMaximum)
{
    Semaphore semaphore(2, 2);
    EXPECT_FALSE(semaphore.IsLocked()); // leaves 1
    EXPECT_FALSE(semaphore.IsLocked()); // leaves 0
    EXPECT_TRUE(semaphore.IsLocked());
    for (int i = 0; i < 3; ++i)
        semaphore.Unlock(); // the third past the maximum
    EXPECT_TRUE(semaphore.TestAndLock());
    EXPECT_TRUE(semaphore.TestAndLock());
    EXPECT_FALSE(semaphore.TestAndLock());
}

TEST(Semaphore, LockWaitsForAnUnlockFromAnotherThread)
{
    Semaphore semaphore(0, 1);
    std::atomic<bool> passed{false};
    std::thread waiter(
        [&]
        {
            semaphore.Lock();
            passed = true;
        });
    EXPECT_FALSE(semaphore.TestAndLock());
    semaphore.Unlock();
    EXPECT_TRUE(WaitUntil([&] { return passed.load(); }));
    if (!passed)
        semaphore.Unlock();
    waiter.join();
    EXPECT_TRUE(semaphore.IsLocked()); // the waiter took the only count
}

} // namespace
