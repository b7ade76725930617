// The factory: creators of objects by class name.
#include <qel/factory.h>

#include "base/core/singleton.h"

namespace qel
{

CreatorBase::~CreatorBase() = default;

std::atomic<Factory*> Factory::ms_SingletonInstance{nullptr};

Factory& Factory::GetSingletonInstance()
{
    Factory* instance = ms_SingletonInstance.load(std::memory_order_acquire);
    return instance ? *instance : *CreateSingletonInstance();
}

Factory* Factory::CreateSingletonInstance()
{
    return Singleton<Factory, HeapStorage<Factory>>::Create(ms_SingletonInstance, "qel::Factory");
}

bool Factory::SignedBytesLess::operator()(const char* left, const char* right) const
{
    for (;; ++left, ++right)
    {
        const signed char a = static_cast<signed char>(*left);
        const signed char b = static_cast<signed char>(*right);
        if (a != b)
            return a < b;
        if (a == 0)
            return false;
    }
}

void Factory::Register(const char* name, CreatorBase* creator)
{
    m_Creators.emplace(name, creator); // keeps an earlier creator of the name
}

void Factory::Unregister(const char* name)
{
    m_Creators.erase(name);
}

CreatorBase* Factory::Find(const char* name) const
{
    const auto found = m_Creators.lower_bound(name);
    return found != m_Creators.end() && !SignedBytesLess()(name, found->first) ? found->second
                                                                               : nullptr;
}

} // namespace qel
