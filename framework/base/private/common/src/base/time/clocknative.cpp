#include <qel/clocknative.h>

#include "base/time/counter_native.h"
#include "base/time/countersource.h"

#include <atomic>

namespace qel
{
namespace
{

const CounterSource kPlatformCounter = {&native::ReadCounter, &native::ReadCounterFrequency};
std::atomic<const CounterSource*> g_CounterSource{&kPlatformCounter};

} // namespace

const CounterSource* ReplaceCounterSource(const CounterSource* source)
{
    return g_CounterSource.exchange(source ? source : &kPlatformCounter);
}

const CounterSource& GetCounterSource()
{
    return *g_CounterSource.load(std::memory_order_acquire);
}

ClockNative::ClockNative() : m_Frequency(GetCounterSource().frequency()) {}

u64 ClockNative::ReadClock() const
{
    return GetCounterSource().read();
}

void ClockNative::Resample()
{
    m_Frequency = GetCounterSource().frequency();
}

} // namespace qel
