#include <qel/stopwatch.h>

#include <qel/clock.h>

namespace qel
{

StopWatch::StopWatch() : m_StartCount(0), m_Accumulated(0), m_Started(false) {}

StopWatch::StopWatch(bool start) : StopWatch()
{
    if (start)
        Start();
}

void StopWatch::Start()
{
    m_StartCount = Clock::Read();
    m_Started = true;
}

void StopWatch::ReStart()
{
    m_Accumulated = 0;
    Start();
}

void StopWatch::Stop()
{
    m_Accumulated += Clock::Read() - m_StartCount;
    m_Started = false;
}

void StopWatch::Reset(u64 ticks)
{
    m_Accumulated = ticks;
    m_Started = false;
}

u64 StopWatch::Read() const
{
    return m_Started ? m_Accumulated - m_StartCount + Clock::Read() : m_Accumulated;
}

u64 StopWatch::ReadInSecond() const
{
    return Read() / Clock::GetFrequency();
}

u64 StopWatch::ReadInMilliSecond() const
{
    return Read() / Clock::GetFrequencyInMilliSecond();
}

u64 StopWatch::ReadInMicroSecond() const
{
    return Read() / Clock::GetFrequencyInMicroSecond();
}

} // namespace qel
