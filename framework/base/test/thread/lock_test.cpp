// The recursive locks: exclusion under contention, re-entrance, and the
// ThreadMutex rule that a waiting thread already counts as the owner.
#include "waituntil.h"

#include <qel/criticalsection.h>
#include <qel/criticalsectionbase.h>
#include <qel/eventbase.h>
#include <qel/mutex.h>
#include <qel/mutexbase.h>
#include <qel/semaphore.h>
#include <qel/semaphorebase.h>
#include <qel/threadmutex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <type_traits>
#include <vector>

namespace
{

using namespace qel;

static_assert(std::is_empty_v<CriticalSectionBase> && std::is_empty_v<MutexBase> &&
                  std::is_empty_v<SemaphoreBase> && std::is_empty_v<EventBase>,
              "the single-threaded stand-ins carry no state");

// A semaphore of one count, used as a lock.
struct BinarySemaphore : Semaphore
{
    BinarySemaphore() : Semaphore(1, 1) {}
};

bool TryLock(CriticalSection& lock)
{
    return lock.TryEnter();
}

template <class Lock>
bool TryLock(Lock& lock)
{
    return lock.TestAndLock();
}

template <class Lock>
bool TryFromAnotherThread(Lock& lock)
{
    bool taken = false;
    std::thread other(
        [&]
        {
            taken = TryLock(lock);
            if (taken)
                lock.Unlock();
        });
    other.join();
    return taken;
}

template <class Lock>
class LockExclusion : public ::testing::Test
{
};
using Locks = ::testing::Types<CriticalSection, Mutex, ThreadMutex, BinarySemaphore>;
TYPED_TEST_SUITE(LockExclusion, Locks);

TYPED_TEST(LockExclusion, ConcurrentIncrementsAreNotLost)
{
    TypeParam lock;
    const int threads = 4, rounds = 10000;
    long counter = 0; // guarded by the lock alone
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back(
            [&]
            {
                for (int i = 0; i < rounds; ++i)
                {
                    ScopedLock<TypeParam> held(lock);
                    const long value = counter;
                    counter = value + 1;
                }
            });
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(counter, long(threads) * rounds);
}

template <class Lock>
class RecursiveLock : public ::testing::Test
{
};
using RecursiveLocks = ::testing::Types<CriticalSection, Mutex, ThreadMutex>;
TYPED_TEST_SUITE(RecursiveLock, RecursiveLocks);

TYPED_TEST(RecursiveLock, HeldUntilEveryLockIsUndone)
{
    TypeParam lock;
    lock.Lock();
    EXPECT_TRUE(TryLock(lock)); // the holder re-enters
    EXPECT_FALSE(TryFromAnotherThread(lock));
    lock.Unlock();
    EXPECT_FALSE(TryFromAnotherThread(lock));
    lock.Unlock();
    EXPECT_TRUE(TryFromAnotherThread(lock));
}

TEST(ThreadMutex, WaitingThreadCountsAsOwnerForAThirdOne)
{
    ThreadMutex lock;
    EXPECT_FALSE(lock.IsLocked());
    lock.Lock();
    std::atomic<bool> secondHolds{false};
    std::thread second(
        [&]
        {
            lock.Lock();
            secondHolds = true;
            lock.Unlock();
        });
    // Once the second thread has recorded itself, even the holder's own
    // TestAndLock fails.
    const bool secondWaits = WaitUntil(
        [&]
        {
            if (!lock.TestAndLock())
                return true;
            lock.Unlock();
            return false;
        });
    EXPECT_TRUE(secondWaits);

    bool thirdTook = true, thirdSawLocked = false;
    std::thread third(
        [&]
        {
            thirdTook = lock.TestAndLock();
            if (thirdTook)
                lock.Unlock();
            thirdSawLocked = lock.IsLocked();
        });
    third.join();
    EXPECT_FALSE(thirdTook);
    EXPECT_TRUE(thirdSawLocked);
    EXPECT_FALSE(secondHolds);

    lock.Unlock();
    second.join();
    EXPECT_TRUE(secondHolds);
    EXPECT_FALSE(lock.IsLocked());
}

} // namespace
