// The counter on POSIX: the monotonic clock in nanoseconds.
#include "base/time/counter_native.h"

#include <ctime>

namespace qel
{
namespace native
{

u64 ReadCounter()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return u64(now.tv_sec) * 1000000000u + u64(now.tv_nsec);
}

u64 ReadCounterFrequency()
{
    return 1000000000u;
}

} // namespace native
} // namespace qel
