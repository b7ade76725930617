// Accumulates clock ticks between Start and Stop.
//
// Stop does not check that the watch runs: a second Stop adds the time since
// the last Start once more. The readings in seconds, milliseconds and
// microseconds divide by the clock's truncated divisors.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API StopWatch
{
public:
    QEL_ALLOCATION_OPERATORS

    // Stopped at 0.
    StopWatch();
    // Stopped at 0, then started when `start` is true.
    explicit StopWatch(bool start);

    // Runs from now on, keeping the ticks accumulated so far.
    void Start();
    // Clears the accumulated ticks and starts.
    void ReStart();
    void Stop();
    // Stops, with `ticks` accumulated.
    void Reset(u64 ticks);
    bool IsStarted() const { return m_Started; }

    // Ticks accumulated, including the running interval.
    u64 Read() const;
    u64 ReadInSecond() const;
    u64 ReadInMilliSecond() const;
    u64 ReadInMicroSecond() const;

private:
    u64 m_StartCount;
    u64 m_Accumulated;
    bool m_Started;
};

} // namespace qel
