// Tour section: threads and time.
#include "tour.h"

#include <qel/clock.h>
#include <qel/criticalsection.h>
#include <qel/randomnormal.h>
#include <qel/randomuniform.h>
#include <qel/stopwatch.h>

#include <cstdio>
#include <thread>

namespace qeltool
{

void TourThread(const TourContext&)
{
    Banner("threads and locks");
    qel::StopWatch watch(true);

    // Plain std::threads for now: ThreadManager, the library's way to start
    // threads, does not exist yet.
    const int rounds = 100000;
    qel::CriticalSection section;
    long counter = 0;
    auto count = [&]
    {
        for (int i = 0; i < rounds; ++i)
        {
            qel::ScopedLock<qel::CriticalSection> held(section);
            ++counter;
        }
    };
    std::thread first(count), second(count);
    first.join();
    second.join();
    std::printf("two threads counted to %ld under one critical section (expected %d)\n", counter,
                2 * rounds);

    Banner("random numbers (seed 5)");
    qel::RandomUniform uniform(5);
    std::printf("uniform:");
    for (int i = 0; i < 5; ++i)
        std::printf(" %.6f", uniform.Random());
    qel::RandomNormal normal(0.0f, 1.0f, 5);
    std::printf("\nnormal: ");
    for (int i = 0; i < 5; ++i)
        std::printf(" %.6f", normal.Random());
    std::printf("\n");

    watch.Stop();
    Banner("clock");
    std::printf("counter frequency %llu Hz; this section took %llu us\n",
                static_cast<unsigned long long>(qel::Clock::GetFrequency()),
                static_cast<unsigned long long>(watch.ReadInMicroSecond()));
}

} // namespace qeltool
