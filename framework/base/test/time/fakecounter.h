// A counter that the tests move by hand. It stands in for the platform's
// from the start of the program, before anything makes the clock, at
// 3,579,545 ticks per second: a rate whose millisecond and microsecond
// divisors (3579 and 3) are visibly truncated.
#pragma once

#include <qel/types.h>

#include "base/time/countersource.h"

#include <atomic>

namespace fake
{

inline std::atomic<qel::u64> now{0};
inline std::atomic<qel::u64> frequency{3579545};

// Puts the platform's counter back for the lifetime of a scope.
class PlatformCounter
{
public:
    PlatformCounter() : m_Previous(qel::ReplaceCounterSource(nullptr)) {}
    ~PlatformCounter() { qel::ReplaceCounterSource(m_Previous); }

private:
    const qel::CounterSource* m_Previous;
};

} // namespace fake
