// Uncontended lock and unlock of CriticalSection against the recursive locks
// a user would pick instead: a recursive pthread mutex and
// std::recursive_mutex. The pool allocator takes a lock on every call, so
// this pair of operations is on its fast path.
#include <qel/criticalsection.h>

#include <benchmark/benchmark.h>

#include <mutex>

#include <pthread.h>

namespace
{

void BM_QelCriticalSection(benchmark::State& state)
{
    qel::CriticalSection section;
    for (auto _ : state)
    {
        section.Enter();
        section.Leave();
    }
}
BENCHMARK(BM_QelCriticalSection);

void BM_PthreadRecursiveMutex(benchmark::State& state)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attributes);
    for (auto _ : state)
    {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_destroy(&mutex);
    pthread_mutexattr_destroy(&attributes);
}
BENCHMARK(BM_PthreadRecursiveMutex);

void BM_StdRecursiveMutex(benchmark::State& state)
{
    std::recursive_mutex mutex;
    for (auto _ : state)
    {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(BM_StdRecursiveMutex);

// Re-entering a section already held: the recursion count alone.
void BM_QelCriticalSectionReentered(benchmark::State& state)
{
    qel::CriticalSection section;
    section.Enter();
    for (auto _ : state)
    {
        section.Enter();
        section.Leave();
    }
    section.Leave();
}
BENCHMARK(BM_QelCriticalSectionReentered);

} // namespace

BENCHMARK_MAIN();
