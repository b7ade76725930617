// The streaming manager: its list and the requests that leave it, the sums
// over all requests, one worker pass per Execute, availability asked while
// one thread reads and another takes the bytes, and its teardown with
// requests listed.
#include <qel/instancemanager.h>
#include <qel/streamingmanager.h>
#include <qel/streamingrequest.h>

#include "../thread/waituntil.h"
#include "base/core/singleton.h"
#include "memoryfile.h"
#include "support/scriptedhost.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{

using qel::s32;
using qel::StreamingManager;
using qel::StreamingRequest;
using qel::u32;
using streamtest::MemoryFile;
using streamtest::PatternByte;

StreamingManager& Manager()
{
    return StreamingManager::GetSingletonInstance();
}

TEST(StreamingManagerTest, ListSumsTheRatesRefusesDuplicatesAndLetsDeletedRequestsGo)
{
    qeltest::ScriptedHost host;
    ASSERT_EQ(Manager().Count(), 0u);
    StreamingRequest* slow = StreamingRequest::Create(new MemoryFile(100), 100);
    StreamingRequest* fast = StreamingRequest::Create(new MemoryFile(100), 300);
    Manager().Add(slow);
    Manager().Add(fast);
    Manager().Add(fast);
    Manager().Add(nullptr);
    EXPECT_EQ(streamtest::FailedAsserts(host).size(), 2u);
    EXPECT_EQ(Manager().Count(), 2u);
    EXPECT_EQ(Manager().HighestDataRate(), 400u);

    slow->Read(100);
    fast->Read(100);
    EXPECT_EQ(Manager().TotalBytesAvailable(), 49u + 100u); // slow's ring holds 49

    delete slow; // still listed: it takes itself off
    EXPECT_EQ(Manager().Count(), 1u);
    EXPECT_EQ(Manager().HighestDataRate(), 300u);
    Manager().Remove(fast);
    Manager().Remove(fast); // not there any more: nothing happens
    EXPECT_EQ(Manager().Count(), 0u);
    EXPECT_EQ(Manager().TotalBytesAvailable(), 0u);
    delete fast;
}

TEST(StreamingManagerTest, EachExecuteWakesTheWorkerForOnePass)
{
    StreamingRequest* request = StreamingRequest::Create(new MemoryFile(100), 100);
    Manager().Add(request);
    const u32 before = Manager().GetWorkerPasses();
    for (u32 i = 1; i <= 3; ++i)
    {
        Manager().Execute(16 * i);
        ASSERT_TRUE(WaitUntil([&] { return Manager().GetWorkerPasses() >= before + i; }))
            << "the worker did not wake";
    }
    EXPECT_EQ(Manager().GetBudget(), 48u);
    // A worker that kept itself awake would be far past three passes by now.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(Manager().GetWorkerPasses(), before + 3);
    delete request;
}

// The owner's thread reads; this one takes the bytes, copied and in place in
// turn, and asks about availability. The bytes used in place are read after
// the owner had the chance to read around them.
TEST(StreamingManagerTest, OneThreadReadsWhileAnotherTakesTheBytesAndAsksAvailability)
{
    const u32 length = 1u << 20;
    StreamingRequest* request = StreamingRequest::Create(new MemoryFile(length), 64 * 1024);
    ASSERT_NE(request, nullptr);
    const u32 capacity = request->BufferCapacity();
    Manager().Add(request);

    std::atomic<u32> questions{0};
    std::thread owner(
        [&]
        {
            WaitUntil([&] { return questions.load() > 0; }); // both sides overlap
            qel::s64 target = 0;
            while (request->BytesRemaining64() > 0)
                if (request->Read(target += 3000) == 0)
                    std::this_thread::yield(); // the ring is full
        });
    std::vector<unsigned char> received;
    std::vector<unsigned char> out(4096);
    bool withinCapacity = true;
    while (received.size() < length)
    {
        withinCapacity &= Manager().TotalBytesAvailable() <= capacity;
        Manager().Execute(questions);
        request->Pause(questions % 2 == 0);
        if (++questions % 2 == 0)
        {
            const u32 got = request->Copy(out.data(), u32(out.size()));
            received.insert(received.end(), out.begin(), out.begin() + got);
            continue;
        }
        const void* data = nullptr;
        const u32 piece = request->Peek(data);
        std::this_thread::yield();
        const unsigned char* bytes = static_cast<const unsigned char*>(data);
        received.insert(received.end(), bytes, bytes + piece);
        request->Skip(piece);
    }
    owner.join();
    EXPECT_TRUE(withinCapacity);
    ASSERT_EQ(received.size(), length);
    for (u32 i = 0; i < length; ++i)
        ASSERT_EQ(received[i], PatternByte(i)) << i;
    delete request;
}

// Seeded stress: four threads each stream files through requests they add,
// read, pause and resume, and remove or delete while listed, as this thread
// runs the manager's passes and asks for its sums; every byte arrives, in
// order.
TEST(StreamingManagerTest, StressThreadsAddReadPauseAndRemoveRequests)
{
    const unsigned seed = 20261124;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::atomic<int> running{4}, bad{0};
    auto worker = [&](unsigned index)
    {
        std::mt19937 random(seed + index);
        std::vector<unsigned char> out(1500);
        for (int round = 0; round < 40; ++round)
        {
            const u32 length = 4096 + random() % 60000;
            StreamingRequest* request =
                StreamingRequest::Create(new MemoryFile(length), 1u << 20, 2048 + random() % 4096);
            Manager().Add(request);
            u32 got = 0;
            s32 target = 0;
            for (int step = 0; got < length && step < 200000; ++step)
            {
                if (random() % 8 == 0)
                    request->Pause(!request->Paused());
                target += s32(1 + random() % 3000);
                request->Read(target);
                const u32 copied = request->Copy(out.data(), u32(out.size()));
                for (u32 i = 0; i < copied; ++i)
                    if (out[i] != PatternByte(got + i))
                        ++bad;
                got += copied;
            }
            if (got != length)
                ++bad;
            if (random() % 2 == 0)
                Manager().Remove(request);
            delete request; // takes itself off when still listed
        }
        --running;
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back(worker, i);
    u32 passes = 0;
    while (running.load() > 0)
    {
        Manager().Execute(++passes);
        Manager().TotalBytesAvailable();
        Manager().HighestDataRate();
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_EQ(Manager().Count(), 0u);
}

// The teardown at exit: the worker stops and the listed requests are
// deleted with their files; asked for afterwards, the manager is gone.
std::atomic<int> g_Closed{0};

void CheckAfterTeardown()
{
    qeltest::ScriptedHost* host = ::new qeltest::ScriptedHost; // the allocators are gone
    const bool null = StreamingManager::GetSingletonInstancePointer() == nullptr;
    const bool box = host->questions.size() == 1 &&
                     host->questions[0].caption == "FATAL SINGLETON ERROR" &&
                     std::strstr(host->questions[0].text.c_str(),
                                 "for class StreamingManager but the instance is NULL") != nullptr;
    std::fprintf(stderr, "closed=%d null=%d box=%d\n", g_Closed.load(), null, box);
    std::fflush(stderr);
    std::_Exit(0);
}

TEST(StreamingManagerDeathTest, TeardownStopsTheWorkerAndDeletesListedRequests)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a fresh process: the worker is its own
    EXPECT_EXIT(
        {
            qel::InstanceManager::GetSingletonInstance();
            qel::RegisterExitHandler(&CheckAfterTeardown);
            StreamingRequest* first = StreamingRequest::Create(new MemoryFile(50, &g_Closed), 100);
            StreamingRequest* second = StreamingRequest::Create(new MemoryFile(50, &g_Closed), 100);
            Manager().Add(first);
            Manager().Add(second);
            Manager().Execute(1);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "closed=2 null=1 box=1");
}

} // namespace
