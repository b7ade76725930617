// The counter that ClockNative reads: the platform's, unless a test has put
// one of its own in its place to drive stop-watches and clock-seeded
// generators by hand.
#pragma once

#include <qel/export.h>
#include <qel/types.h>

namespace qel
{

struct CounterSource
{
    u64 (*read)();
    u64 (*frequency)();
};

// Makes the clock read `source` (null: the platform's counter) and returns
// the source in use before. Clock computes its per-millisecond and
// per-microsecond values once, so a test replaces the counter before the
// clock's first use.
QEL_API const CounterSource* ReplaceCounterSource(const CounterSource* source);

const CounterSource& GetCounterSource();

} // namespace qel
