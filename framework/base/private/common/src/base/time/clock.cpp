#include <qel/clock.h>

#include "base/core/singleton.h"

namespace qel
{

std::atomic<Clock*> Clock::ms_SingletonInstance{nullptr};

Clock::Clock()
    : m_FrequencyInMilliSecond(m_Frequency / 1000), m_FrequencyInMicroSecond(m_Frequency / 1000000)
{
}

Clock& Clock::GetSingletonInstance()
{
    Clock* instance = ms_SingletonInstance.load(std::memory_order_acquire);
    return instance ? *instance : *CreateSingletonInstance();
}

Clock* Clock::CreateSingletonInstance()
{
    return Singleton<Clock>::Create(ms_SingletonInstance, "qel::Clock");
}

u64 Clock::Read()
{
    return GetSingletonInstance().ReadClock();
}

u64 Clock::GetFrequency()
{
    return GetSingletonInstance().m_Frequency;
}

u64 Clock::GetFrequencyInMilliSecond()
{
    return GetSingletonInstance().m_FrequencyInMilliSecond;
}

u64 Clock::GetFrequencyInMicroSecond()
{
    return GetSingletonInstance().m_FrequencyInMicroSecond;
}

} // namespace qel
