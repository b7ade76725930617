// The counter on Windows: the performance counter.
#include "base/time/counter_native.h"

#include "base/platform/windows.h"

namespace qel
{
namespace native
{

u64 ReadCounter()
{
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return u64(now.QuadPart);
}

u64 ReadCounterFrequency()
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return u64(frequency.QuadPart);
}

} // namespace native
} // namespace qel
