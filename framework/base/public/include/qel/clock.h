// The library's clock: a singleton over the high-resolution counter that
// also knows how many ticks make a millisecond and a microsecond. Both are
// truncated from the frequency when the clock is made, and stay: Resample
// updates only the frequency itself.
#pragma once

#include <qel/clocknative.h>
#include <qel/export.h>
#include <qel/types.h>

#include <atomic>

namespace qel
{

class QEL_API Clock : public ClockNative
{
public:
    // Each makes the clock on first use.
    static u64 Read();
    static u64 GetFrequency();
    static u64 GetFrequencyInMilliSecond();
    static u64 GetFrequencyInMicroSecond();

    static Clock& GetSingletonInstance();
    static Clock& GetSingletonInstanceFast()
    {
        return *ms_SingletonInstance.load(std::memory_order_acquire);
    }

private:
    template <class T, class Storage>
    friend class Singleton;

    Clock();
    ~Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

    static Clock* CreateSingletonInstance();

    u64 m_FrequencyInMilliSecond;
    u64 m_FrequencyInMicroSecond;

    static std::atomic<Clock*> ms_SingletonInstance;
};

} // namespace qel
