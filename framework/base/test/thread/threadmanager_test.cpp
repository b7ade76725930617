// The thread manager: suspended start, the table, waiting, self-suspension
// and priorities.
#include <qel/poolallocator.h>
#include <qel/threadmanager.h>

#include "thread/waituntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#if defined(__linux__)
#include <sys/resource.h>
#endif

namespace
{

using qel::ThreadManager;
using qel::u32;

// Counts its runs and notes the id the thread manager gives the thread.
struct Probe
{
    std::atomic<int> runs{0};
    std::atomic<u32> seen{0};
    static void Run(void* self)
    {
        static_cast<Probe*>(self)->seen = ThreadManager::GetThreadID();
        ++static_cast<Probe*>(self)->runs;
    }
};

// Started at once or suspended (then it runs only once resumed), a thread
// runs once under its own id, then leaves the table: unknown to Resume
// from then on, and a Wait for it returns at once.
TEST(ThreadManager, ThreadRunsOnceUnderItsOwnIdThenLeavesTheTable)
{
    for (const bool suspended : {false, true})
    {
        SCOPED_TRACE(suspended ? "suspended, default stack" : "at once, 64 KB of stack");
        Probe probe;
        const u32 id =
            ThreadManager::Create(&Probe::Run, &probe, suspended ? 0 : 64 * 1024, 0, suspended);
        ASSERT_NE(id, u32(ThreadManager::InvalidThreadId));
        if (suspended)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            EXPECT_EQ(probe.runs.load(), 0);
            EXPECT_TRUE(ThreadManager::Resume(id));
        }
        ThreadManager::Wait(qel::s32(id));
        EXPECT_EQ(probe.runs.load(), 1);
        EXPECT_EQ(probe.seen.load(), id);
        EXPECT_NE(ThreadManager::GetThreadID(), id);
        EXPECT_TRUE(WaitUntil([id] { return !ThreadManager::Resume(id); }));
        ThreadManager::Wait(qel::s32(id));
    }
    EXPECT_FALSE(ThreadManager::Resume(0x7FFFFFF0));
}

// Whoever waits for a thread may tear the allocators down next (the
// streaming manager's destructor does, at exit), and a Wait for a thread
// that has already left the table returns at once: by the time it leaves,
// the thread's allocator caches must be back. A thread-local object of the
// thread, whose destruction comes after everything else the thread ran,
// holds the thread until the test has looked.
TEST(ThreadManager, AThreadLeavesTheTableOnlyAfterItsCachesWentBack)
{
    struct Hold
    {
        std::shared_future<void> until;
        ~Hold()
        {
            if (until.valid())
                until.wait();
        }
    };
    struct Shared
    {
        qel::PoolAllocator pool;
        std::promise<void> looked;
        std::shared_future<void> until = looked.get_future().share();
        static void Run(void* self)
        {
            Shared& shared = *static_cast<Shared*>(self);
            shared.pool.Free(shared.pool.Malloc(16)); // into this thread's cache
            thread_local Hold hold;
            hold.until = shared.until;
        }
    } shared;
    shared.pool.EnableThreadCaches();
    const u32 id = ThreadManager::Create(&Shared::Run, &shared, 0, 0, false);
    ASSERT_NE(id, u32(ThreadManager::InvalidThreadId));
    EXPECT_TRUE(WaitUntil([id] { return !ThreadManager::Resume(id); }));
    EXPECT_EQ(shared.pool.GetTotals().currentAllocations, 0u);
    shared.looked.set_value();
    ThreadManager::Wait(qel::s32(id));
}

TEST(ThreadManager, SuspendedThreadGoesOnAfterResume)
{
    struct Sleeper
    {
        std::atomic<int> stage{0};
        static void Run(void* self)
        {
            Sleeper& sleeper = *static_cast<Sleeper*>(self);
            sleeper.stage = 1;
            ThreadManager::Suspend();
            sleeper.stage = 2;
        }
    } sleeper;
    const u32 id = ThreadManager::Create(&Sleeper::Run, &sleeper, 0, 0, false);
    ASSERT_TRUE(WaitUntil([&] { return sleeper.stage.load() == 1; }));
    // A resume that comes before the thread has suspended itself is lost,
    // as it is for the system's own threads: resume until it goes on.
    ASSERT_TRUE(WaitUntil(
        [&]
        {
            ThreadManager::Resume(id);
            return sleeper.stage.load() == 2;
        }));
    ThreadManager::Wait(qel::s32(id));
}

#if defined(__linux__)
// Linux keeps a nice value per thread: lowering the priority raises it.
TEST(ThreadManager, PriorityOutsideTheRangeStaysNormal)
{
    struct Nice
    {
        std::atomic<int> value{-100};
        static void Run(void* self)
        {
            static_cast<Nice*>(self)->value = getpriority(PRIO_PROCESS, 0);
        }
    };
    const int normal = getpriority(PRIO_PROCESS, 0);
    for (const int priority : {3, -3, 0})
    {
        Nice nice;
        ThreadManager::Wait(qel::s32(ThreadManager::Create(&Nice::Run, &nice, 0, priority, false)));
        EXPECT_EQ(nice.value.load(), normal) << priority;
    }
    Nice lowest;
    ThreadManager::Wait(qel::s32(ThreadManager::Create(&Nice::Run, &lowest, 0, -2, false)));
    // Under `nice -n 19` the process is already at the weakest value.
    if (normal < 19)
        EXPECT_GT(lowest.value.load(), normal);
    else
        EXPECT_EQ(lowest.value.load(), normal);
}
#endif

} // namespace
