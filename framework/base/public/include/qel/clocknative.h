// The system's high-resolution counter: its frequency and its current
// value, in ticks. Windows reads the performance counter; POSIX the
// monotonic clock, at 1,000,000,000 ticks per second.
#pragma once

#include <qel/allocationoperators.h>
#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

class QEL_API ClockNative
{
public:
    QEL_ALLOCATION_OPERATORS

    // Samples the frequency.
    ClockNative();

    u64 ReadClock() const;
    // Ticks per second, as sampled last.
    u64 GetClockFrequency() const { return m_Frequency; }
    // Samples the frequency again.
    void Resample();

protected:
    u64 m_Frequency;
};

} // namespace qel
