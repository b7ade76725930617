// Tour section: threads and time.
#include "tour.h"

#include <qel/clock.h>
#include <qel/criticalsection.h>
#include <qel/randomnormal.h>
#include <qel/randomuniform.h>
#include <qel/stopwatch.h>
#include <qel/threadmanager.h>

#include <cstdio>

namespace qeltool
{

namespace
{

const int kRounds = 100000;

} // namespace

void TourThread(const TourContext&)
{
    Banner("threads and locks");
    qel::StopWatch watch(true);

    struct Counting
    {
        qel::CriticalSection section;
        long counter = 0;
        static void Count(void* self)
        {
            Counting& counting = *static_cast<Counting*>(self);
            for (int i = 0; i < kRounds; ++i)
            {
                qel::ScopedLock<qel::CriticalSection> held(counting.section);
                ++counting.counter;
            }
        }
    } counting;
    const qel::u32 first = qel::ThreadManager::Create(&Counting::Count, &counting, 0, 0, false);
    const qel::u32 second = qel::ThreadManager::Create(&Counting::Count, &counting, 0, 0, false);
    qel::ThreadManager::Wait(qel::s32(first));
    qel::ThreadManager::Wait(qel::s32(second));
    std::printf("threads %u and %u counted to %ld under one critical section (expected %d)\n",
                unsigned(first), unsigned(second), counting.counter, 2 * kRounds);

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
